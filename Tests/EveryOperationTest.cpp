#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Support/ContentParts.h"
#include "Support/LogCapture.h"
#include "Support/OperationExpectations.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using Lines = std::vector<std::string>;

/// What a call answers, in one line.
std::string summaryOf(const Operation& operation, const TestStore& store, ZAVError* error) {
    try {
        return operation.call(store.repository(), error).summary();
    } catch (const NSInternalInconsistencyException&) {
        return "raises";
    }
}

/// What a call on a filled store runs.
Lines traceOf(const Operation& operation, StatementTrace::Text text) {
    const FilledStore store;
    const StatementTrace trace(store.database(), text);
    EXPECT_EQ(summaryOf(operation, store, nullptr), operation.answer);
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
/// they first run. What `expected` takes for the time of the call becomes "now" when it may be a time.
Lines statementsOf(const Operation& operation, const std::vector<ExpectedStatement>& expected) {
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

LogRecord announcementOf(const LogTexts& log) {
    return verboseLine(log.function, log.verboseFormat, log.verboseMessage);
}

/// The lines of a call that succeeds.
std::vector<LogRecord> linesOfASuccess(const Operation& operation) {
    return operation.log ? std::vector{announcementOf(*operation.log)} : std::vector<LogRecord>();
}

/// The lines that a failing call writes; the message of the second ends with `error`.
void expectLinesOfAFailure(const Operation& operation, const std::vector<LogRecord>& lines,
                           const ZAVError& error) {
    if (!operation.log) {
        EXPECT_EQ(lines, std::vector<LogRecord>()) << operation << " logs nothing";
        return;
    }
    if (operation.report == FailureReport::outParameterOnly && lines.empty()) {
        return;  // it failed before that began which logs
    }
    ASSERT_EQ(lines.size(), 2U) << operation << " writes a line before its work and one after a failure";
    EXPECT_EQ(lines[0], announcementOf(*operation.log));
    const LogTexts& log = *operation.log;
    EXPECT_TRUE(lines[1].message.starts_with(log.failureMessage) &&
                lines[1].message.ends_with(error.description()))
        << lines[1].message << "\nshould begin with \"" << log.failureMessage << "\" and end with "
        << error.description();
    EXPECT_EQ(lines[1], operation.report == FailureReport::verboseLine
                            ? verboseLine(log.function, log.failureFormat, lines[1].message)
                            : errorLine(log.function, log.failureFormat, lines[1].message));
}

/// Calls an operation that must fail, and checks all that a caller sees of it.
void expectFailure(const Operation& operation, const TestStore& store, const ZAVError& expected) {
    ZAVError error = errorOfSomebodyElse();
    const LogCapture log;
    EXPECT_EQ(operation.call(store.repository(), &error).value, operation.answerOnFailure);
    EXPECT_EQ(store.database().lastError(), expected) << store.database().lastError().description();
    EXPECT_EQ(error, operation.report == FailureReport::nothing ? errorOfSomebodyElse() : expected)
        << error.description();
    expectLinesOfAFailure(operation, log.records(), expected);
    expectHandleIsAtRest(store);
}

/// As `expectFailure`, for a caller who does not ask why.
void expectFailureWithoutAsking(const Operation& operation, const TestStore& store,
                                const ZAVError& expected) {
    const LogCapture log;
    EXPECT_EQ(operation.call(store.repository(), nullptr).value, operation.answerOnFailure);
    EXPECT_EQ(store.database().lastError(), expected) << store.database().lastError().description();
    expectLinesOfAFailure(operation, log.records(), expected);
    expectHandleIsAtRest(store);
}

class EveryOperation : public testing::TestWithParam<Operation> {};

INSTANTIATE_TEST_SUITE_P(Of, EveryOperation, testing::ValuesIn(everyOperation()),
                         [](const testing::TestParamInfo<Operation>& operation) {
                             return nameOf(operation.param);
                         });

TEST_P(EveryOperation, RunsItsStatementsWithTheirValuesAndNoOther) {
    EXPECT_EQ(statementsOf(GetParam(), GetParam().statements), linesOf(GetParam().statements));
}

TEST_P(EveryOperation, FindsItsRowsAsItsEntrySays) {
    if (sqlite3_libversion_number() < 3040000) {
        GTEST_SKIP() << "older engines plan, and describe their plans, in other words";
    }
    const FilledStore store;
    for (const ExpectedStatement& statement : GetParam().statements) {
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

TEST_P(EveryOperation, AnnouncesItselfAndSaysNothingElseWhenItSucceeds) {
    const FilledStore store;
    ZAVError error = errorOfSomebodyElse();
    const LogCapture log;
    EXPECT_EQ(summaryOf(GetParam(), store, &error), GetParam().answer);
    EXPECT_EQ(error, errorOfSomebodyElse()) << "a success left an error: " << error.description();
    EXPECT_EQ(log.records(), linesOfASuccess(GetParam()));
    expectHandleIsAtRest(store);
}

TEST_P(EveryOperation, LeavesEveryRowAsItWasWhenItOnlyReads) {
    const auto& statements = GetParam().statements;
    if (std::any_of(statements.begin(), statements.end(),
                    [](const auto& statement) { return !statement.text.starts_with("SELECT "); })) {
        return;
    }
    const FilledStore store;
    const Lines before = rowsOfAllTables(store.database());
    const int changes = sqlite3_total_changes(store.database().sqliteHandle());
    EXPECT_EQ(summaryOf(GetParam(), store, nullptr), GetParam().answer);
    EXPECT_EQ(summaryOf(GetParam(), store, nullptr), GetParam().answer) << "the second time";
    EXPECT_EQ(sqlite3_total_changes(store.database().sqliteHandle()), changes);
    EXPECT_EQ(rowsOfAllTables(store.database()), before);
}

TEST_P(EveryOperation, AnswersAsItsEntrySaysWhenNothingIsStored) {
    const TestStore store;
    ZAVError error = errorOfSomebodyElse();
    const LogCapture log;
    EXPECT_EQ(summaryOf(GetParam(), store, &error), GetParam().answerFromEmptyTables);
    EXPECT_EQ(error, errorOfSomebodyElse()) << "nothing failed, yet: " << error.description();
    EXPECT_EQ(log.records(), linesOfASuccess(GetParam()));
    expectHandleIsAtRest(store);
}

TEST_P(EveryOperation, ReportsAsItsEntrySaysThatATableIsMissing) {
    ASSERT_FALSE(GetParam().needs.empty());
    for (const std::string& table : GetParam().needs) {
        SCOPED_TRACE(table);
        const FilledStore store;
        store.execute("DROP TABLE " + table);
        expectFailure(GetParam(), store, missingTable(table));
        expectFailureWithoutAsking(GetParam(), store, missingTable(table));
    }
}

TEST_P(EveryOperation, TellsTheLogAndTheCallerInTheOrderOfItsEntry) {
    if (GetParam().report != FailureReport::errorLine && GetParam().report != FailureReport::verboseLine) {
        return;
    }
    const FilledStore store;
    store.execute("DROP TABLE " + GetParam().needs.front());
    const auto lines = callersErrorAtEachLine(
        [&](ZAVError* error) { static_cast<void>(GetParam().call(store.repository(), error)); });
    const ZAVError atTheFailure =
        GetParam().tellsTheCallerFirst ? missingTable(GetParam().needs.front()) : ZAVError();
    EXPECT_EQ(lines, (std::vector<LineAndError>{{GetParam().log->verboseFormat, ZAVError()},
                                                {GetParam().log->failureFormat, atTheFailure}}));
}

TEST_P(EveryOperation, ReportsThatItsFirstStepFailedAndWorksAfterwards) {
    const FilledStore store;
    if (GetParam().breaksOffSilently) {
        return;
    }
    const Lines before = rowsOfAllTables(store.database());
    {
        const StatementInterruption interruption(store.database(), GetParam().statements.front().text);
        expectFailure(GetParam(), store, interruptionError());
        expectFailureWithoutAsking(GetParam(), store, interruptionError());
    }
    EXPECT_EQ(rowsOfAllTables(store.database()), before) << "what failed at once has changed something";
    ZAVError error;
    EXPECT_EQ(summaryOf(GetParam(), store, &error), GetParam().answer) << error.description();
}

TEST_P(EveryOperation, DropsWhatItReadBeforeAStepThatFails) {
    if (GetParam().answer.starts_with("set of ")) {
        const FilledStore store;
        const InterruptionAfterRow interruption(store.database(), 1);
        expectFailure(GetParam(), store, interruptionError());
        EXPECT_EQ(interruption.rows(), 1) << "the step after the first row was to fail";
        EXPECT_EQ(summaryOf(GetParam(), store, nullptr), GetParam().answer) << "after the failure";
    }
}

}  // namespace
}  // namespace zav::test
