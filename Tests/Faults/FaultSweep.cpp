#include "Faults/FaultSweep.h"

#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <stdexcept>

#include "Faults/FaultyAllocator.h"
#include "Faults/FaultyFileSystem.h"
#include "Operations/Description.h"
#include "Operations/FilledStore.h"
#include "Support/DatabaseHandles.h"
#include "Support/LogCapture.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestEffort.h"

namespace zav::test {
namespace {

/// More calls than any operation makes: a sweep that gets here would never end.
constexpr int mostCalls = 100000;

using Rows = std::vector<std::string>;

const ZAVError fromBefore("Caller", 5, "from before");

/// A file that each round copies: a filled store, closed in good order.
class Template {
public:
    static const std::string& pathFor(bool writeAheadLog) {
        static const Template withLog(true);
        static const Template withJournal(false);
        return writeAheadLog ? withLog.path_ : withJournal.path_;
    }

private:
    explicit Template(bool writeAheadLog) : path_(directory_.file("template.db")) {
        FMDatabaseOptions options;
        options.writeAheadLog = writeAheadLog;
        ZAVError error;
        const auto database = ZAVDatabaseSchema::openDatabase(path_, options, &error);
        if (!database) {
            throw std::runtime_error("cannot make the template: " + error.description());
        }
        fillStore(database);
    }

    TemporaryDirectory directory_;
    std::string path_;
};

/// What an operation does to the store when nothing fails.
struct Expectation {
    Answer answer;
    Rows before;
    Rows after;
};

Expectation expectationOf(const Operation& operation, const FMDatabaseOptions& options) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("store.db");
    std::filesystem::copy_file(Template::pathFor(options.writeAheadLog), path);
    const auto database = openHandle(path, options);
    Expectation expectation;
    expectation.before = rowsOfAllTables(*database);
    ZAVError error;
    expectation.answer = operation.call(ZAVEventRepository(database), &error);
    expectation.after = rowsOfAllTables(*database);
    if (error || expectation.answer.value == operation.answers.failing) {
        throw std::runtime_error(nameOf(operation) + " fails without a fault: " + error.description());
    }
    return expectation;
}

bool endsWith(const std::string& text, const ZAVError& error) {
    return text.ends_with(error.description());
}

/// What is seen of one call.
struct Observation {
    Answer answer;
    ZAVError error = fromBefore;
    std::vector<LogRecord> lines;
    ZAVError lastError;
};

/// A failed operation has told of it in the way that it promises, and with one and the same error.
void expectReported(const Operation& operation, const Observation& seen) {
    const bool silent = operation.report == FailureReport::nothing ||
                        (operation.breaksOffSilently && seen.error == fromBefore);
    if (silent) {
        EXPECT_EQ(seen.error, fromBefore) << "the caller's error was written";
        EXPECT_LE(seen.lines.size(), 1U) << "a line was written after the work: " << seen.lines.back();
        return;
    }
    EXPECT_NE(seen.error, fromBefore) << "the operation failed without telling the caller why";
    EXPECT_NE(seen.error, ZAVError()) << "the operation failed with an empty error";
    if (operation.report == FailureReport::outParameterOnly) {
        return;
    }
    EXPECT_EQ(seen.error, seen.lastError) << "caller and handle were told different things";
    ASSERT_EQ(seen.lines.size(), 2U) << "a failing operation writes one line before and one after its work";
    const bool asError = operation.report == FailureReport::errorLine;
    EXPECT_EQ(seen.lines[1].flag, asError ? DDLogFlagError : DDLogFlagVerbose);
    EXPECT_EQ(seen.lines[1].asynchronous, !asError);
    EXPECT_TRUE(endsWith(seen.lines[1].message, seen.error))
        << "caller was told " << seen.error.description() << ", the log " << seen.lines[1].message;
}

bool isPrefix(const std::vector<std::string>& part, const std::vector<std::string>& whole) {
    return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
}

/// An operation that reads events does not fail when an event's metadata or parts cannot be read: it answers
/// the event without metadata and says why, or with the parts that were read. Nothing else may be missing.
void expectPartial(const Operation& operation, const Observation& seen, const Answer& whole) {
    ASSERT_EQ(seen.answer.value, whole.value);
    ASSERT_EQ(seen.answer.contents.size(), whole.contents.size()) << "parts are missing from the answer";
    std::map<std::string, const ZAVEvent*> expected;
    for (const auto& event : whole.events) {
        expected[describeAlone(*event)] = event.get();
    }
    for (const auto& event : seen.answer.events) {
        const auto found = expected.find(describeAlone(*event));
        ASSERT_NE(found, expected.end()) << "an event that is not stored so: " << describeAlone(*event);
        EXPECT_TRUE(isPrefix(describeParts(*event), describeParts(*found->second)))
            << "not the first parts of " << describeAlone(*event);
        if (const auto metadata = describeMetadata(*event); metadata != describeMetadata(*found->second)) {
            EXPECT_TRUE(metadata.empty()) << "some of the metadata of " << describeAlone(*event);
            EXPECT_NE(seen.error, fromBefore) << "metadata are missing, and the caller was not told";
        }
    }
    if (!operation.leavesOutIncomplete) {
        EXPECT_EQ(seen.answer.events.size(), whole.events.size()) << "events are missing from the answer";
    }
    EXPECT_EQ(seen.lines.size(), 1U) << "an operation that does not fail writes one line";
}

/// What `rows` lack of `expected`, and have beyond them.
Rows differences(const Rows& rows, const Rows& expected) {
    Rows found;
    std::set_difference(expected.begin(), expected.end(), rows.begin(), rows.end(),
                        std::back_inserter(found));
    for (std::string& row : found) {
        row.insert(0, "missing ");
    }
    const std::size_t missing = found.size();
    std::set_difference(rows.begin(), rows.end(), expected.begin(), expected.end(),
                        std::back_inserter(found));
    for (std::size_t index = missing; index < found.size(); ++index) {
        found[index].insert(0, "unexpected ");
    }
    return found;
}

/// Each row is one of before or one of after, and what both have is there.
void expectRowsBetween(const Rows& rows, const Expectation& expectation) {
    const std::set<std::string> now(rows.begin(), rows.end());
    const std::set<std::string> before(expectation.before.begin(), expectation.before.end());
    const std::set<std::string> after(expectation.after.begin(), expectation.after.end());
    for (const auto& row : now) {
        EXPECT_TRUE(before.contains(row) || after.contains(row)) << "a row that nobody stored: " << row;
    }
    for (const auto& row : before) {
        EXPECT_TRUE(now.contains(row) || !after.contains(row)) << "a row was lost: " << row;
    }
}

void expectSound(const std::string& path, const FMDatabaseOptions& options, const Rows& rows,
                 const std::string& when) {
    const auto database = openHandle(path, options);
    EXPECT_EQ(scalar(*database, "PRAGMA integrity_check"), "ok") << when;
    EXPECT_EQ(differences(rowsOfAllTables(*database), rows), Rows())
        << "another connection sees other rows " << when;
}

class Round {
public:
    Round(const Operation& operation, const Expectation& expectation, const FMDatabaseOptions& options)
        : operation_(operation),
          expectation_(expectation),
          options_(options),
          path_(directory_.file("store.db")) {
        std::filesystem::copy_file(Template::pathFor(options.writeAheadLog), path_);
        database_ = openHandle(path_, options);
    }

    /// Whether the fault was met.
    bool run(const FaultInjector& injector, int number, bool fromThenOn, SweepTally& tally) {
        const Observation seen = observe(injector, number, fromThenOn);
        if (injector.failures() == 0) {
            EXPECT_EQ(seen.answer.text(), expectation_.answer.text());
            return false;
        }
        ++tally.faults;
        const bool failed = seen.answer.value == operation_.answers.failing;
        if (failed) {
            ++tally.reported;
            expectReported(operation_, seen);
        } else if (seen.answer.text() == expectation_.answer.text()) {
            ++tally.absorbed;
            EXPECT_EQ(seen.error, fromBefore) << "an error beside a complete answer";
            EXPECT_LE(seen.lines.size(), 1U);
        } else {
            ++tally.partial;
            expectPartial(operation_, seen, expectation_.answer);
        }
        expectNothingOpen();
        const auto rows = rowsOfAllTables(*database_);
        expectRowsBetween(rows, expectation_);
        if (!failed) {
            EXPECT_EQ(differences(rows, expectation_.after), Rows())
                << "the operation told of a success that it had not";
        } else if (operation_.isAtomic) {
            EXPECT_EQ(differences(rows, expectation_.before), Rows())
                << "the operation failed, and changed something";
        }
        expectSound(path_, options_, rows, "after the fault");
        expectToWorkAgain(!failed);
        return true;
    }

private:
    Observation observe(const FaultInjector& injector, int number, bool fromThenOn) const {
        const LogCapture log;
        Observation seen;
        injector.fail(number, fromThenOn);
        seen.answer = operation_.call(ZAVEventRepository(database_), &seen.error);
        injector.heal();
        seen.lastError = database_->lastError();
        seen.lines = log.records();
        return seen;
    }

    void expectNothingOpen() const {
        EXPECT_EQ(database_->openResultSets(), 0U) << "a cursor stayed open";
        EXPECT_EQ(busyStatements(*database_), 0) << "a statement was not reset";
        EXPECT_FALSE(database_->inTransaction()) << "a transaction stayed open";
    }

    void expectToWorkAgain(bool isSecondTime) {
        ZAVError error = fromBefore;
        const Answer answer = operation_.call(ZAVEventRepository(database_), &error);
        if (isSecondTime && !operation_.isRepeatable) {  // it may answer with another row
            EXPECT_NE(answer.value, operation_.answers.failing) << "the handle does not work again";
        } else {
            EXPECT_EQ(answer.text(), expectation_.answer.text())
                << "the handle does not work again: " << error.description();
        }
        EXPECT_EQ(error, fromBefore) << "the handle does not work again";
        const auto rows = rowsOfAllTables(*database_);
        if (operation_.isRepeatable) {
            EXPECT_EQ(differences(rows, expectation_.after), Rows())
                << "the operation did not do its work the second time";
        }
        database_.reset();
        expectSound(path_, options_, rows, "after the handle was closed");
    }

    const Operation& operation_;
    const Expectation& expectation_;
    const FMDatabaseOptions& options_;
    TemporaryDirectory directory_;
    std::string path_;
    std::shared_ptr<FMDatabase> database_;
};

}  // namespace

void forEachFault(const std::string& subject, const FaultInjector& injector, const FMDatabaseOptions& options,
                  bool fromThenOn, int step, const std::function<bool(int number)>& runRound) {
    for (int number = 1; number < mostCalls; number += step) {
        SCOPED_TRACE(subject + " with " + injector.name + " failing at call " + std::to_string(number) +
                     (fromThenOn ? " and from then on" : "") +
                     (options.writeAheadLog ? "" : ", without write-ahead log"));
        if (!runRound(number) || testing::Test::HasFailure()) {
            return;  // through without the fault; or one broken round, which tells enough
        }
    }
    ADD_FAILURE() << subject << " does not come to an end";
}

SweepTally& SweepTally::operator+=(const SweepTally& other) {
    faults += other.faults;
    reported += other.reported;
    absorbed += other.absorbed;
    partial += other.partial;
    return *this;
}

std::string SweepTally::description() const {
    return std::to_string(faults) + " faults injected and survived (" + std::to_string(reported) +
           " reported as failures, " + std::to_string(absorbed) + " without effect, " +
           std::to_string(partial) + " left events without metadata or parts)";
}

SweepTally sweep(const Operation& operation, const FaultInjector& injector, const FMDatabaseOptions& options,
                 bool fromThenOn, int step) {
    const Expectation expectation = expectationOf(operation, options);
    SweepTally tally;
    forEachFault(nameOf(operation), injector, options, fromThenOn, step, [&](int number) {
        return Round(operation, expectation, options).run(injector, number, fromThenOn, tally);
    });
    return tally;
}

SweepTally sweepOpening(bool exists, const FaultInjector& injector, const FMDatabaseOptions& options,
                        bool fromThenOn, int step) {
    Rows stored;
    if (exists) {
        stored = rowsOfAllTables(*openHandle(Template::pathFor(options.writeAheadLog), options));
    }
    SweepTally tally;
    forEachFault("opening", injector, options, fromThenOn, step, [&](int number) {
        const TemporaryDirectory directory;
        const std::string path = directory.file("store.db");
        if (exists) {
            std::filesystem::copy_file(Template::pathFor(options.writeAheadLog), path);
        }
        ZAVError error = fromBefore;
        injector.fail(number, fromThenOn);
        auto database = ZAVDatabaseSchema::openDatabase(path, options, &error);
        injector.heal();
        if (injector.failures() == 0) {
            EXPECT_NE(database, nullptr) << error.description();
            return false;
        }
        ++tally.faults;
        ++(database ? tally.absorbed : tally.reported);
        EXPECT_EQ(error == fromBefore, database != nullptr) << "the answer and the error do not agree";
        EXPECT_NE(error, ZAVError()) << "opening failed with an empty error";
        EXPECT_NE(error.domain(), ZAVErrorDomainDatabase)
            << "a fault was taken for a mistake in the store: " << error.description();
        if (database) {
            EXPECT_EQ(scalar(*database, "PRAGMA journal_mode"), options.writeAheadLog ? "wal" : "delete")
                << "the store was opened in another mode than was asked for";
            EXPECT_EQ(scalar(*database, "PRAGMA synchronous"), options.writeAheadLog ? "2" : "3")
                << "the store waits for the device less than was asked for";
        }
        database.reset();
        database = ZAVDatabaseSchema::openDatabase(path, options, &error);
        EXPECT_NE(database, nullptr) << "the store cannot be opened any more: " << error.description();
        if (database) {
            EXPECT_EQ(rowsOfAllTables(*database), stored);
            EXPECT_EQ(scalar(*database, "PRAGMA integrity_check"), "ok");
            EXPECT_EQ(scalar(*database, "PRAGMA user_version"),
                      std::to_string(ZAVDatabaseSchema::currentVersion()));
        }
        return true;
    });
    return tally;
}

SweepTally sweepEveryFileCall(const Sweep& sweep) {
    constexpr FileCall everyFileCall[] = {FileCall::open,     FileCall::read,   FileCall::write,
                                          FileCall::truncate, FileCall::sync,   FileCall::fileSize,
                                          FileCall::lock,     FileCall::remove, FileCall::sharedMemory};
    FaultyFileSystem files;
    FMDatabaseOptions withLog;
    withLog.vfs = FaultyFileSystem::name;
    withLog.busyTimeout = std::chrono::milliseconds(0);
    withLog.pageCacheKiB = 16;  // so small that the operations have to come back to the file
    FMDatabaseOptions withCheckpoints = withLog;
    withCheckpoints.writeAheadLogPages = 1;
    FMDatabaseOptions withJournal = withLog;
    withJournal.writeAheadLog = false;

    SweepTally tally;
    for (const FMDatabaseOptions& options : {withLog, withCheckpoints, withJournal}) {
        for (const FileCall call : everyFileCall) {
            const FaultInjector injector{
                std::string(nameOf(call)),
                [&](int number, bool fromThenOn) { files.fail(call, number, fromThenOn); },
                [&] { files.heal(); }, [&] { return files.failures(); }};
            for (const bool fromThenOn : {false, true}) {
                tally += sweep(injector, options, fromThenOn, stride(1, 1));
            }
        }
    }
    EXPECT_GT(tally.faults, 0) << "no fault was ever met";
    return tally;
}

SweepTally sweepEveryRequestForMemory(const Sweep& sweep) {
    const FaultInjector memory{"memory", FaultyAllocator::fail, FaultyAllocator::heal,
                               FaultyAllocator::failures};
    const FaultyFileSystem files;  // none of its calls fail; it is used because it waits for no device
    FMDatabaseOptions options;
    options.vfs = FaultyFileSystem::name;
    options.busyTimeout = std::chrono::milliseconds(0);
    SweepTally tally;
    for (const bool fromThenOn : {false, true}) {
        tally += sweep(memory, options, fromThenOn, stride(4, 1));
    }
    EXPECT_GT(tally.faults, 0) << "no fault was ever met";
    return tally;
}

}  // namespace zav::test
