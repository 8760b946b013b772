#pragma once

#include <ZAVEventRepository/ZAVEventRepository.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Operations/Answers.h"
#include "Operations/Operation.h"
#include "Operations/Texts.h"
#include "Support/LogCapture.h"
#include "Support/StatementInterruption.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {

// What is expected of a call, which the catalogue or a test describes.

/// What a call answers, in one line.
inline std::string summaryOf(const Operation& operation, const ZAVEventRepository& repository,
                             ZAVError* error) {
    try {
        return operation.call(repository, error).summary();
    } catch (const NSInternalInconsistencyException&) {
        return "raises";
    }
}

/// The lines of a call that succeeds.
inline std::vector<LogRecord> linesOfASuccess(const Operation& operation) {
    return operation.log ? std::vector{verboseLine(operation.log->function, operation.log->verboseFormat,
                                                   operation.log->verboseMessage)}
                         : std::vector<LogRecord>();
}

/// Checks the lines that a failing call has written; the message of the second ends with `error`.
inline void expectLinesOfAFailure(const Operation& operation, const std::vector<LogRecord>& lines,
                                  const ZAVError& error) {
    if (!operation.log) {
        EXPECT_EQ(lines, std::vector<LogRecord>()) << operation << " logs nothing";
        return;
    }
    if (operation.report == FailureReport::outParameterOnly && lines.empty()) {
        return;  // it failed before that began which logs
    }
    ASSERT_EQ(lines.size(), 2U) << operation << " writes a line before its work and one after a failure";
    const LogTexts& log = *operation.log;
    EXPECT_EQ(lines[0], linesOfASuccess(operation)[0]);
    std::string message = log.failureMessage + error.description();
    if (log.printsMoreBeforeError && lines[1].message.starts_with(log.failureMessage) &&
        lines[1].message.ends_with(" with " + error.description())) {
        message = lines[1].message;
    }
    EXPECT_EQ(lines[1], operation.report == FailureReport::verboseLine
                            ? verboseLine(log.function, log.failureFormat, message)
                            : errorLine(log.function, log.failureFormat, message));
}

/// Runs an operation that does not fail, and checks that it answers `answer`, says no more than its verbose
/// line and leaves the caller's error as it was.
inline void expectNoFailure(const TestStore& store, const Operation& operation, const std::string& answer) {
    ZAVError error = errorOfSomebodyElse();
    const LogCapture log;
    EXPECT_EQ(summaryOf(operation, store.repository(), &error), answer) << operation;
    EXPECT_EQ(error, errorOfSomebodyElse())
        << "nothing failed, yet the caller's error became " << error.description();
    EXPECT_EQ(log.records(), linesOfASuccess(operation));
    EXPECT_EQ(summaryOf(operation, store.repository(), nullptr), answer) << "without an error to fill";
    expectHandleIsAtRest(store);
}

/// Runs an operation that must fail, and checks all that a caller sees of it.
inline void expectFailure(const TestStore& store, const Operation& operation, const ZAVError& expected,
                          const ZAVEventRepository* repository = nullptr) {
    ZAVError error = errorOfSomebodyElse();
    const LogCapture log;
    EXPECT_EQ(operation.call(repository != nullptr ? *repository : store.repository(), &error).value,
              operation.answers.failing)
        << operation << " did not report its failure, or answered part of a result";
    EXPECT_EQ(store.database().lastError(), expected) << store.database().lastError().description();
    EXPECT_EQ(error, operation.report == FailureReport::nothing ? errorOfSomebodyElse() : expected)
        << error.description();
    expectLinesOfAFailure(operation, log.records(), expected);
    expectHandleIsAtRest(store);
}

/// As `expectFailure`, for a caller who does not ask why.
inline void expectFailureWithoutAsking(const TestStore& store, const Operation& operation,
                                       const ZAVError& expected) {
    const LogCapture log;
    EXPECT_EQ(operation.call(store.repository(), nullptr).value, operation.answers.failing)
        << operation << " did not report its failure";
    EXPECT_EQ(store.database().lastError(), expected) << store.database().lastError().description();
    expectLinesOfAFailure(operation, log.records(), expected);
    expectHandleIsAtRest(store);
}

/// What the engine runs during one run of an operation.
inline std::vector<std::string> statementsOf(const TestStore& store, const Operation& operation,
                                             const std::string& answer = "true") {
    const StatementTrace trace(store.database());
    EXPECT_EQ(summaryOf(operation, store.repository(), nullptr), answer) << operation;
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
