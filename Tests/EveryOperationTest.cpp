#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Operations/TestWithOperation.h"
#include "Support/ContentParts.h"
#include "Support/DatabaseHandles.h"
#include "Support/LogCapture.h"
#include "Support/OperationExpectations.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using Lines = std::vector<std::string>;

/// What a call on a filled store runs.
Lines traceOf(const Operation& operation, StatementTrace::Text text) {
    const FilledStore store;
    const StatementTrace trace(store.database(), text);
    EXPECT_EQ(summaryOf(operation, store.repository(), nullptr), operation.answers.filled);
    return trace.statements();
}

/// The values in a statement whose placeholders they fill.
Lines valuesIn(const std::string& statement, const std::string& prepared) {
    Lines values;
    auto from = prepared.find('?');
    auto at = from;
    while (from != std::string::npos) {
        const auto next = prepared.find('?', from + 1);
        const std::string between = prepared.substr(from + 1, next - (from + 1));
        const auto end = between.empty() ? statement.size() : statement.find(between, at);
        values.push_back(statement.substr(at, end - at));
        at = end + between.size();
        from = next;
    }
    return values;
}

std::string lineOf(int times, const std::string& text, const Lines& values) {
    return std::to_string(times) + " x " + text + " with " + testing::PrintToString(values);
}

/// Each statement of a call with how often it runs and the values of the first time, in the order in which
/// they first run. What the entry takes for the time of the call becomes "now" when it may be a time.
Lines statementsRunBy(const Operation& operation) {
    const std::vector<ExpectedStatement>& expected = operation.statements;
    const Lines prepared = traceOf(operation, StatementTrace::Text::asPrepared);
    const Lines run = traceOf(operation, StatementTrace::Text::withValues);
    EXPECT_EQ(prepared.size(), run.size()) << "two calls ran different statements";
    Lines lines;
    Lines seen;
    for (std::size_t index = 0; index < std::min(prepared.size(), run.size()); ++index) {
        const std::string& text = prepared[index];
        if (std::find(seen.begin(), seen.end(), text) != seen.end()) {
            continue;
        }
        Lines values = valuesIn(run[index], text);
        if (seen.size() < expected.size()) {
            const Lines& wanted = expected[seen.size()].values;
            for (std::size_t place = 0; place < std::min(values.size(), wanted.size()); ++place) {
                if (wanted[place] == "now" && std::strtod(values[place].c_str(), nullptr) > 1.6e9) {
                    values[place] = "now";
                }
            }
        }
        seen.push_back(text);
        lines.push_back(
            lineOf(static_cast<int>(std::count(prepared.begin(), prepared.end(), text)), text, values));
    }
    return lines;
}

Lines linesOf(const std::vector<ExpectedStatement>& statements) {
    Lines lines;
    for (const ExpectedStatement& statement : statements) {
        lines.push_back(lineOf(statement.times, statement.text, statement.values));
    }
    return lines;
}

class EveryOperation : public TestWithOperation {};

INSTANTIATE_TEST_SUITE_P(Of, EveryOperation, testing::ValuesIn(entriesOf(everyOperation())), nameOfParameter);

TEST_P(EveryOperation, RunsItsStatementsWithTheirValuesAndNoOther) {
    EXPECT_EQ(statementsRunBy(operation()), linesOf(operation().statements));
}

TEST_P(EveryOperation, FindsItsRowsAsItsEntrySays) {
    if (sqlite3_libversion_number() < 3040000) {
        GTEST_SKIP() << "older engines plan, and describe their plans, in other words";
    }
    const FilledStore store;
    for (const ExpectedStatement& statement : operation().statements) {
        const Lines steps = planOf(statement.text, store.database());
        ASSERT_GE(steps.size(), statement.plan.size()) << statement.text << "\n"
                                                       << testing::PrintToString(steps);
        const auto rest = steps.begin() + static_cast<std::ptrdiff_t>(statement.plan.size());
        EXPECT_EQ(Lines(steps.begin(), rest), statement.plan) << statement.text;
        EXPECT_EQ(statement.plan.empty(), steps.empty())
            << statement.text << "\nlooks for rows, and its entry does not say how: " << steps.front();
        for (auto step = rest; step != steps.end(); ++step) {
            EXPECT_FALSE(step->starts_with("SCAN "))
                << statement.text << "\nreads a table in full: " << *step;
            EXPECT_TRUE(statement.sorts || step->find("TEMP B-TREE") == std::string::npos)
                << statement.text << "\nsorts rows that an index yields in their order: " << *step;
        }
    }
}

#ifdef SQLITE_STMTSTATUS_REPREPARE
TEST_P(EveryOperation, HasNoStatementPreparedAnewWhenItIsCalledAgain) {
    if (sqlite3_libversion_number() < 3020000) {
        GTEST_SKIP() << "older engines do not count how often a statement was prepared anew";
    }
    const FilledStore store;
    const auto call = [&] {
        try {
            static_cast<void>(operation().call(store.repository(), nullptr));
        } catch (const NSInternalInconsistencyException&) {
            // What the call before took away may be missed by this one.
        }
    };
    constexpr int startsAnew = 1;
    const auto preparations = [&](sqlite3_stmt* statement) {
        return sqlite3_stmt_status(statement, SQLITE_STMTSTATUS_REPREPARE, startsAnew);
    };
    call();
    for (sqlite3_stmt* const statement : preparedStatements(store.database())) {
        preparations(statement);  // for the schema, which was made on this handle
    }
    call();
    call();
    for (sqlite3_stmt* const statement : preparedStatements(store.database())) {
        EXPECT_EQ(preparations(statement), 0) << sqlite3_sql(statement);
    }
}
#endif

TEST_P(EveryOperation, AnnouncesItselfAndSaysNothingElseWhenItSucceeds) {
    const FilledStore store;
    ZAVError error = errorOfSomebodyElse();
    const LogCapture log;
    EXPECT_EQ(summaryOf(operation(), store.repository(), &error), operation().answers.filled);
    EXPECT_EQ(error, errorOfSomebodyElse()) << "a success left an error: " << error.description();
    EXPECT_EQ(log.records(), linesOfASuccess(operation()));
    expectHandleIsAtRest(store);
}

TEST_P(EveryOperation, LeavesEveryRowAsItWasWhenItOnlyReads) {
    const auto& statements = operation().statements;
    if (std::any_of(statements.begin(), statements.end(),
                    [](const auto& statement) { return !statement.text.starts_with("SELECT "); })) {
        return;
    }
    const FilledStore store;
    const Lines before = rowsOfAllTables(store.database());
    const int changes = sqlite3_total_changes(store.database().sqliteHandle());
    EXPECT_EQ(summaryOf(operation(), store.repository(), nullptr), operation().answers.filled);
    EXPECT_EQ(summaryOf(operation(), store.repository(), nullptr), operation().answers.filled)
        << "the second time";
    EXPECT_EQ(sqlite3_total_changes(store.database().sqliteHandle()), changes);
    EXPECT_EQ(rowsOfAllTables(store.database()), before);
}

TEST_P(EveryOperation, AnswersAsItsEntrySaysWhenNothingIsStored) {
    const TestStore store;
    ZAVError error = errorOfSomebodyElse();
    const LogCapture log;
    EXPECT_EQ(summaryOf(operation(), store.repository(), &error), operation().answers.empty);
    EXPECT_EQ(error, errorOfSomebodyElse()) << "nothing failed, yet: " << error.description();
    EXPECT_EQ(log.records(), linesOfASuccess(operation()));
    expectHandleIsAtRest(store);
}

TEST_P(EveryOperation, ReportsAsItsEntrySaysThatATableIsMissing) {
    ASSERT_FALSE(operation().needs.empty());
    for (const std::string& table : operation().needs) {
        SCOPED_TRACE(table);
        const FilledStore store;
        store.execute("DROP TABLE " + table);
        expectFailure(store, operation(), missingTable(table));
        expectFailureWithoutAsking(store, operation(), missingTable(table));
    }
}

TEST_P(EveryOperation, TellsTheLogAndTheCallerInTheOrderOfItsEntry) {
    if (operation().report != FailureReport::errorLine && operation().report != FailureReport::verboseLine) {
        return;
    }
    const FilledStore store;
    store.execute("DROP TABLE " + operation().needs.front());
    const auto lines = callersErrorAtEachLine(
        [&](ZAVError* error) { static_cast<void>(operation().call(store.repository(), error)); });
    const ZAVError atTheFailure =
        operation().tellsTheCallerFirst ? missingTable(operation().needs.front()) : ZAVError();
    EXPECT_EQ(lines, (std::vector<LineAndError>{{operation().log->verboseFormat, ZAVError()},
                                                {operation().log->failureFormat, atTheFailure}}));
}

TEST_P(EveryOperation, ReportsThatItsFirstStepFailedAndWorksAfterwards) {
    const FilledStore store;
    if (operation().breaksOffSilently) {
        return;
    }
    if (sqlite3_libversion_number() < 3040000 && operation().statements.front().text == "BEGIN IMMEDIATE") {
        GTEST_SKIP() << "older engines begin a transaction without asking whether they were interrupted";
    }
    const Lines before = rowsOfAllTables(store.database());
    {
        const StatementInterruption interruption(store.database(), operation().statements.front().text);
        expectFailure(store, operation(), interruptionError());
        expectFailureWithoutAsking(store, operation(), interruptionError());
    }
    EXPECT_EQ(rowsOfAllTables(store.database()), before) << "what failed at once has changed something";
    ZAVError error;
    EXPECT_EQ(summaryOf(operation(), store.repository(), &error), operation().answers.filled)
        << error.description();
}

TEST_P(EveryOperation, ReportsThatItsFirstChangeIsRefused) {
    static const std::regex change(R"((INSERT|UPDATE|DELETE)(?: OR \w+)?(?: INTO| FROM)? (\w+) .*)");
    for (const ExpectedStatement& statement : operation().statements) {
        std::smatch words;
        if (std::regex_match(statement.text, words, change)) {
            const FilledStore store;
            refuse(store, words[1].str() + " ON " + words[2].str());
            const Lines before = rowsOfAllTables(store.database());
            expectFailure(store, operation(), refusal());
            expectFailureWithoutAsking(store, operation(), refusal());
            EXPECT_EQ(rowsOfAllTables(store.database()), before);
            return;
        }
    }
}

TEST_P(EveryOperation, DropsWhatItReadBeforeAStepThatFails) {
    if (operation().answers.filled.starts_with("set of ")) {
        const FilledStore store;
        const InterruptionAfterRow interruption(store.database(), 1);
        expectFailure(store, operation(), interruptionError());
        EXPECT_EQ(interruption.rows(), 1) << "the step after the first row was to fail";
        EXPECT_EQ(summaryOf(operation(), store.repository(), nullptr), operation().answers.filled)
            << "after the failure";
    }
}

}  // namespace
}  // namespace zav::test
