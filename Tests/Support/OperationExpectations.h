#pragma once

#include <ZAVEventRepository/ZAVEventRepository.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Support/LogCapture.h"
#include "Support/StatementInterruption.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {

/// A call of an operation, and what it must say.
struct ExpectedOperation {
    /// Whether the operation answered true, or a record.
    std::function<bool(const ZAVEventRepository& repository, ZAVError* error)> run;

    /// The line before the work.
    LogRecord announcement;

    /// The line after a failure, up to the error with which it ends.
    LogRecord failure;
};

/// The failure of `operation` with the error appended to its message.
inline LogRecord failureWith(const ExpectedOperation& operation, const ZAVError& error) {
    LogRecord line = operation.failure;
    line.message += error.description();
    return line;
}

/// Runs an operation that does not fail, and checks that it answers `answer`, says no more than its verbose
/// line and leaves the caller's error as it was.
inline void expectNoFailure(const TestStore& store, const ExpectedOperation& operation, bool answer) {
    ZAVError error = errorOfSomebodyElse();
    const LogCapture log;
    EXPECT_EQ(operation.run(store.repository(), &error), answer) << operation.announcement.message;
    EXPECT_EQ(error, errorOfSomebodyElse())
        << "nothing failed, yet the caller's error became " << error.description();
    EXPECT_EQ(log.records(), std::vector{operation.announcement});
    EXPECT_EQ(operation.run(store.repository(), nullptr), answer) << "without an error to fill";
    expectHandleIsAtRest(store);
}

/// Runs an operation that must fail, and checks all that a caller sees of it.
inline void expectFailure(const TestStore& store, const ExpectedOperation& operation,
                          const ZAVError& expected) {
    ZAVError error = errorOfSomebodyElse();
    const LogCapture log;
    const std::vector lines{operation.announcement, failureWith(operation, expected)};
    EXPECT_FALSE(operation.run(store.repository(), &error)) << "the failure was not reported";
    EXPECT_EQ(error, expected) << error.description();
    EXPECT_EQ(error, store.database().lastError()) << "the caller did not get the handle's last error";
    EXPECT_EQ(log.records(), lines);
    expectHandleIsAtRest(store);
}

/// As `expectFailure`, for a caller who does not ask why.
inline void expectFailureWithoutAsking(const TestStore& store, const ExpectedOperation& operation,
                                       const ZAVError& expected) {
    const LogCapture log;
    EXPECT_FALSE(operation.run(store.repository(), nullptr)) << "the failure was not reported";
    EXPECT_EQ(store.database().lastError(), expected) << store.database().lastError().description();
    EXPECT_EQ(log.records(), (std::vector{operation.announcement, failureWith(operation, expected)}));
    expectHandleIsAtRest(store);
}

/// What the engine runs during one run of an operation that answers true or a record.
inline std::vector<std::string> statementsOf(const TestStore& store, const ExpectedOperation& operation,
                                             bool answer = true) {
    const StatementTrace trace(store.database());
    EXPECT_EQ(operation.run(store.repository(), nullptr), answer) << operation.announcement.message;
    return trace.statements();
}

/// Makes a change of a table fail: `when` names the change, as in "UPDATE ON messages".
inline void refuse(const TestStore& store, const std::string& when) {
    store.execute("CREATE TRIGGER refusing BEFORE " + when +
                  " BEGIN SELECT RAISE(ABORT, 'refused by the test'); END");
}

/// What a change that `refuse` names fails with.
inline ZAVError refusal() {
    return {"SQLite", SQLITE_CONSTRAINT_TRIGGER, "refused by the test"};
}

/// What a statement that a `StatementInterruption` breaks off fails with.
inline ZAVError interruptionError() {
    return {"SQLite", SQLITE_INTERRUPT, "interrupted"};
}

inline ZAVError missingTable(const std::string& name) {
    return {"SQLite", SQLITE_ERROR, "no such table: " + name};
}

}  // namespace zav::test
