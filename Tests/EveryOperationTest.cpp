#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Support/LogCapture.h"
#include "Support/OperationExpectations.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using Lines = std::vector<std::string>;

class FilledStore : public TestStore {
public:
    FilledStore() { fillStore(sharedDatabase()); }
};

/// What a call prepares and runs: each statement once, in the order in which they first run.
Lines statementsOf(const Operation& operation, const TestStore& store) {
    const StatementTrace trace(store.database(), StatementTrace::Text::asPrepared);
    ZAVError error;
    static_cast<void>(operation.call(store.repository(), &error));
    EXPECT_FALSE(error) << operation << " failed with " << error.description();
    Lines statements;
    for (const std::string& statement : trace.statements()) {
        if (std::find(statements.begin(), statements.end(), statement) == statements.end()) {
            statements.push_back(statement);
        }
    }
    return statements;
}

Lines textsOf(const std::vector<ExpectedStatement>& statements) {
    Lines texts;
    for (const ExpectedStatement& statement : statements) {
        texts.push_back(statement.text);
    }
    return texts;
}

/// The steps of the engine's plan for a statement.
Lines planFor(const std::string& statement, FMDatabase& database) {
    Lines steps;
    sqlite3_stmt* explanation = nullptr;
    const std::string sql = "EXPLAIN QUERY PLAN " + statement;
    EXPECT_EQ(sqlite3_prepare_v2(database.sqliteHandle(), sql.c_str(), -1, &explanation, nullptr), SQLITE_OK)
        << sqlite3_errmsg(database.sqliteHandle());
    while (sqlite3_step(explanation) == SQLITE_ROW) {
        steps.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(explanation, 3)));
    }
    sqlite3_finalize(explanation);
    return steps;
}

LogRecord announcementOf(const LogTexts& log) {
    return verboseLine(log.function, log.verboseFormat, log.verboseMessage);
}

/// The lines that a failing call writes; the message of the second ends with `error`.
void expectLinesOfAFailure(const Operation& operation, const std::vector<LogRecord>& lines,
                           const ZAVError& error) {
    if (!operation.log) {
        EXPECT_EQ(lines, std::vector<LogRecord>()) << operation << " logs nothing";
        return;
    }
    ASSERT_EQ(lines.size(), 2U) << operation << " writes a line before its work and one after a failure";
    EXPECT_EQ(lines[0], announcementOf(*operation.log));
    const LogTexts& log = *operation.log;
    EXPECT_TRUE(lines[1].message.starts_with(log.failureMessage) &&
                lines[1].message.ends_with(error.description()))
        << lines[1].message << "\nshould begin with \"" << log.failureMessage << "\" and end with "
        << error.description();
    LogRecord expected = operation.report == FailureReport::verboseLine
                             ? verboseLine(log.function, log.failureFormat, lines[1].message)
                             : errorLine(log.function, log.failureFormat, lines[1].message);
    EXPECT_EQ(lines[1], expected);
}

class EveryOperation : public testing::TestWithParam<Operation> {};

INSTANTIATE_TEST_SUITE_P(Of, EveryOperation, testing::ValuesIn(everyOperation()),
                         [](const testing::TestParamInfo<Operation>& operation) {
                             return nameOf(operation.param);
                         });

TEST_P(EveryOperation, RunsItsStatementsAndNoOther) {
    const FilledStore store;
    EXPECT_EQ(statementsOf(GetParam(), store), textsOf(GetParam().statements));
}

TEST_P(EveryOperation, FindsItsRowsAsItsEntrySays) {
    if (sqlite3_libversion_number() < 3040000) {
        GTEST_SKIP() << "older engines plan, and describe their plans, in other words";
    }
    const FilledStore store;
    for (const ExpectedStatement& statement : GetParam().statements) {
        const Lines steps = planFor(statement.text, store.database());
        ASSERT_GE(steps.size(), statement.plan.size()) << statement.text << "\n"
                                                       << testing::PrintToString(steps);
        const auto rest = steps.begin() + static_cast<std::ptrdiff_t>(statement.plan.size());
        EXPECT_EQ(Lines(steps.begin(), rest), statement.plan) << statement.text;
        for (auto step = rest; step != steps.end(); ++step) {
            EXPECT_FALSE(step->starts_with("SCAN "))
                << statement.text << "\nreads a table in full: " << *step;
            EXPECT_TRUE(statement.sorts || step->find("TEMP B-TREE") == std::string::npos)
                << statement.text << "\nsorts rows that an index yields in their order: " << *step;
        }
    }
}

TEST_P(EveryOperation, AnnouncesItselfAndSaysNothingElseWhenItSucceeds) {
    const FilledStore store;
    ZAVError error = errorOfSomebodyElse();
    const LogCapture log;
    EXPECT_NE(GetParam().call(store.repository(), &error).value, GetParam().answerOnFailure);
    EXPECT_EQ(error, errorOfSomebodyElse()) << "a success left an error: " << error.description();
    EXPECT_EQ(log.records(),
              GetParam().log ? std::vector{announcementOf(*GetParam().log)} : std::vector<LogRecord>());
    expectHandleIsAtRest(store);
}

TEST_P(EveryOperation, ReportsItsFailureAsItsEntrySays) {
    const FilledStore store;
    store.execute("DROP TABLE " + GetParam().brokenWithout);
    const ZAVError expected("SQLite", SQLITE_ERROR, "no such table: " + GetParam().brokenWithout);
    ZAVError error = errorOfSomebodyElse();
    const LogCapture log;
    EXPECT_EQ(GetParam().call(store.repository(), &error).value, GetParam().answerOnFailure);
    EXPECT_EQ(store.database().lastError(), expected) << store.database().lastError().description();
    EXPECT_EQ(error, GetParam().report == FailureReport::nothing ? errorOfSomebodyElse() : expected)
        << error.description();
    expectLinesOfAFailure(GetParam(), log.records(), expected);
    expectHandleIsAtRest(store);
}

TEST_P(EveryOperation, FailsAndLogsAsWellForACallerWhoDoesNotAskWhy) {
    const FilledStore store;
    store.execute("DROP TABLE " + GetParam().brokenWithout);
    const LogCapture log;
    EXPECT_EQ(GetParam().call(store.repository(), nullptr).value, GetParam().answerOnFailure);
    expectLinesOfAFailure(GetParam(), log.records(), store.database().lastError());
    expectHandleIsAtRest(store);
}

}  // namespace
}  // namespace zav::test
