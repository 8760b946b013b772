#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>
#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVStreamRepository.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Operations/TestWithOperation.h"
#include "Support/LogCapture.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestEffort.h"
#include "Support/TestStore.h"
#include "Support/Tool.h"

namespace zav::test {
namespace {

using Lines = std::vector<std::string>;
using Milliseconds = std::chrono::milliseconds;

/// Longer than anything here takes, however slowly the tests run.
constexpr Milliseconds longEnough{30'000};

std::shared_ptr<FMDatabase> openFile(const std::string& path, Milliseconds busyTimeout = longEnough) {
    FMDatabaseOptions options;
    options.busyTimeout = busyTimeout;
    options.synchronous = FMDatabaseOptions::Synchronous::normal;
    ZAVError error;
    auto database = ZAVDatabaseSchema::openDatabase(path, options, &error);
    EXPECT_NE(database, nullptr) << error.description();
    return database;
}

/// A file with one stream, and any number of handles on it.
class SharedStore {
public:
    SharedStore() {
        EXPECT_NE(ZAVStreamRepository(open()).findOrCreateStreamWithUUID(stream()),
                  ZAVDatabaseIdentifierNotSet);
    }

    [[nodiscard]] std::shared_ptr<FMDatabase> open(Milliseconds busyTimeout = longEnough) const {
        return openFile(path(), busyTimeout);
    }
    [[nodiscard]] std::string path() const { return directory_.file("chat.db"); }
    [[nodiscard]] std::string directory() const { return directory_.path().string(); }
    [[nodiscard]] static ZAVUUID stream() { return uuidNumber(0xAA); }

private:
    TemporaryDirectory directory_;
};

/// An event that nobody else stores: complete and not yet sequenced, with a part that is being downloaded.
std::shared_ptr<ZAVEvent> eventNamed(const std::string& name) {
    auto event = makeEvent(EventType_MESSAGE, SharedStore::stream(), 0);
    event->set_client_id(ZAVData::fromText(name));
    event->set_transient_metadata(ZAVDictionary{{"name", name}});
    auto download = makeTextPart("");
    download->setTransferStatus(ZAVContentTransferDownloading);
    download->set_external_url("https://content.example.com/1");
    download->setExternalContentURLExpiration(ZAVDateFromSecondsSince1970(4000000000));
    download->setFileURL(ZAVURL::URLWithString("files/1"));
    event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{makeTextPart(name), download});
    return event;
}

ZAVSet<ZAVTEvent> eventsNamed(const std::string& name, int count) {
    ZAVSet<ZAVTEvent> events;
    for (int number = 0; number < count; ++number) {
        events.insert(eventNamed(name + " " + std::to_string(number)));
    }
    return events;
}

std::size_t sizeOf(FMDatabase& database, const std::string& table) {
    auto rows = database.executeQuery("SELECT COUNT(*) FROM " + table);
    return rows && rows->next() ? static_cast<std::size_t>(rows->longLongIntForColumnIndex(0)) : 0;
}

std::string integrityOf(FMDatabase& database) {
    auto rows = database.executeQuery("PRAGMA integrity_check");
    return rows && rows->next() ? rows->stringForColumnIndex(0).value_or("") : "unreadable";
}

/// Threads that are waited for, whatever happens.
class Threads {
public:
    Threads() = default;
    ~Threads() { join(); }
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;

    void start(std::function<void()> work) { threads_.emplace_back(std::move(work)); }
    void join() {
        for (std::thread& thread : threads_) {
            thread.join();
        }
        threads_.clear();
    }

private:
    std::vector<std::thread> threads_;
};

// One writes, another reads

/// Looks at a store into which somebody else puts batches of a size.
class BatchObserver {
public:
    BatchObserver(std::shared_ptr<FMDatabase> database, std::size_t batchSize)
        : repository_(std::move(database)), batchSize_(batchSize) {}

    /// Expects whole batches only, and nothing gone that was there before.
    void look() {
        ZAVError error;
        expectMore(repository_.countOfEvents(&error), "countOfEvents");
        const auto all = repository_.allEvents(&error);
        ASSERT_TRUE(all) << error.description();
        expectMore(all->size(), "allEvents");
        for (const auto& event : *all) {
            ASSERT_TRUE(event->content() && event->transient_metadata())
                << "an event was read without its rows";
            EXPECT_EQ(event->content()->size(), 2U) << "an event was read with some of its parts";
            EXPECT_EQ(event->transient_metadata()->size(), 1U);
        }
        const auto publishable = repository_.unprocessedEvents(&error);
        ASSERT_TRUE(publishable) << error.description();
        EXPECT_TRUE(publishable->empty());
        const auto downloads = repository_.eventContentsHavingIncompleteDownloadsWithLimit(1'000'000, &error);
        ASSERT_TRUE(downloads) << error.description();
        expectMore(downloads->size(), "the queue of downloads");
        EXPECT_FALSE(error) << error.description();
        ++looks_;
    }

    [[nodiscard]] std::size_t seen() const { return seen_; }
    [[nodiscard]] int looks() const { return looks_; }

private:
    void expectMore(std::size_t count, const char* source) {
        EXPECT_EQ(count % batchSize_, 0U) << source << " showed a batch that was not complete";
        EXPECT_GE(count, seen_) << source << " no longer showed what was there before";
        seen_ = count;
    }

    ZAVEventRepository repository_;
    std::size_t batchSize_;
    std::size_t seen_ = 0;
    std::atomic<int> looks_ = 0;
};

void persistInATransaction(
    const std::shared_ptr<FMDatabase>& database, const ZAVSet<ZAVTEvent>& events,
    const std::function<void()>& beforeCommit = [] {}) {
    ZAVError error;
    auto transaction = ZAVTransaction::begin(*database, &error);
    ASSERT_TRUE(transaction) << error.description();
    ASSERT_TRUE(ZAVEventRepository(database).persistEvents(events, &error)) << error.description();
    beforeCommit();
    ASSERT_TRUE(transaction->commit(&error)) << error.description();
}

TEST(HandlesOfTwoThreads, OneReadsWholeBatchesWhileTheOtherWrites) {
    constexpr std::size_t batchSize = 6;
    const std::size_t batches = static_cast<std::size_t>(rounds(15, 200));
    const SharedStore store;
    BatchObserver reader(store.open(), batchSize);
    std::atomic<bool> done = false;
    Threads threads;
    threads.start([&] {
        const auto database = store.open();
        for (std::size_t batch = 0; batch < batches; ++batch) {
            persistInATransaction(database, eventsNamed("batch " + std::to_string(batch), batchSize), [&] {
                // What is not committed is looked at too: at least one look begins and ends here.
                for (const int before = reader.looks(); reader.looks() < before + 2 && !done;) {
                    std::this_thread::yield();
                }
            });
        }
        done = true;
    });
    while (!done) {
        reader.look();
        if (testing::Test::HasFailure()) {
            done = true;
        }
    }
    threads.join();
    reader.look();
    EXPECT_EQ(reader.seen(), batches * batchSize);
}

std::string importLines(int first, int count) {
    std::vector<nlohmann::json> events;
    for (int number = first; number < first + count; ++number) {
        nlohmann::json event = eventJSON(0);
        const std::string digits = std::to_string(100000000000 + number);
        event["client_id"] = "22222222-2222-2222-2222-" + digits;
        event["transient_metadata"] = {{"name", digits}};
        event["content"] = {{{"media_type", "text/plain"}, {"text", digits}},
                            {{"media_type", "image/png"},
                             {"external_url", "https://content.example.com/1"},
                             {"external_content_url_expiration", 4000000000},
                             {"transfer_status", 3},
                             {"file_path", "files/1"}}};
        events.push_back(std::move(event));
    }
    return lines(events);
}

/// An import into a store, in a process of its own.
std::future<ToolRun> importElsewhere(const std::string& path, std::string input, int batchSize) {
    return std::async(std::launch::async, [path, input = std::move(input), batchSize] {
        ToolCircumstances circumstances;
        circumstances.input = input;
        return runTool({"import", path, "-", "--batch", std::to_string(batchSize)}, circumstances);
    });
}

bool isRunning(const std::future<ToolRun>& process) {
    return process.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
}

TEST(HandlesOfTwoProcesses, OneReadsWholeBatchesWhileTheOtherWrites) {
    const SharedStore store;
    const int count = rounds(20, 200);
    BatchObserver reader(store.open(), 10);
    auto writer = importElsewhere(store.path(), importLines(0, 10 * count), 10);
    while (isRunning(writer)) {
        reader.look();
    }
    const ToolRun run = writer.get();
    EXPECT_EQ(run.status, 0) << run.err;
    reader.look();
    EXPECT_EQ(reader.seen(), static_cast<std::size_t>(10 * count));
}

TEST(HandlesOfTwoProcesses, AnotherReadsWholeBatchesWhileThisOneWrites) {
    constexpr std::size_t batchSize = 10;
    const SharedStore store;
    std::atomic<bool> done = false;
    Threads writer;
    writer.start([&] {
        const auto database = store.open();
        for (int batch = 0; !done; ++batch) {
            const auto events = eventsNamed("batch " + std::to_string(batch), batchSize);
            for (const auto& event : events) {
                event->set_client_id(ZAVDataFromUUID(ZAVUUID::random()));  // the tool tells of any other
            }
            persistInATransaction(database, events);
        }
    });
    std::size_t seen = 0;
    for (int round = 0; round < rounds(5, 30); ++round) {
        const ToolRun run = runTool({"events", store.path()});
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.err, "");
        const auto count = static_cast<std::size_t>(std::count(run.out.begin(), run.out.end(), '\n'));
        EXPECT_EQ(count % batchSize, 0U) << "a batch was listed that was not complete";
        EXPECT_GE(count, seen) << "what was listed before is gone";
        seen = count;
    }
    done = true;
}

// Several write

TEST(HandlesOfSeveralThreads, AllWriteAndNothingIsLost) {
    constexpr int threadCount = 3;
    const int transactions = rounds(10, 100);
    const SharedStore store;
    Threads threads;
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.start([&, thread] {
            const auto database = store.open();
            for (int number = 0; number < transactions; ++number) {
                const std::string name = std::to_string(thread) + "-" + std::to_string(number);
                persistInATransaction(database, eventsNamed("together " + name, 3));
                ZAVError error;
                EXPECT_TRUE(
                    ZAVEventRepository(database).persistEvents(eventsNamed("one by one " + name, 2), &error))
                    << error.description();
            }
        });
    }
    threads.join();
    const auto database = store.open();
    const auto expected = static_cast<std::size_t>(threadCount * transactions * 5);
    EXPECT_EQ(ZAVEventRepository(database).countOfEvents(), expected);
    EXPECT_EQ(sizeOf(*database, "(SELECT DISTINCT client_id FROM events)"), expected);
    EXPECT_EQ(sizeOf(*database, "event_content_parts"), 2 * expected);
    EXPECT_EQ(sizeOf(*database, "keyed_values_remote"), expected);
    EXPECT_EQ(integrityOf(*database), "ok");
}

TEST(HandlesOfTwoProcesses, AllWriteAndNothingIsLost) {
    const SharedStore store;
    const int count = rounds(60, 600);
    auto first = importElsewhere(store.path(), importLines(0, count), 7);
    auto second = importElsewhere(store.path(), importLines(count, count), 3);
    const auto database = store.open();
    std::size_t own = 0;
    while (isRunning(first) || isRunning(second)) {
        persistInATransaction(database, eventsNamed("own " + std::to_string(own++), 1));
    }
    const ToolRun firstRun = first.get();
    const ToolRun secondRun = second.get();
    EXPECT_EQ(firstRun.status, 0) << firstRun.err;
    EXPECT_EQ(secondRun.status, 0) << secondRun.err;
    EXPECT_EQ(ZAVEventRepository(database).countOfEvents(), static_cast<std::size_t>(2 * count) + own);
    EXPECT_EQ(sizeOf(*database, "streams"), 1U) << "two processes registered one stream twice";
    EXPECT_EQ(integrityOf(*database), "ok");
}

/// Calls something when a handle begins its first statement that starts with a text.
class AtStatement {
public:
    AtStatement(FMDatabase& database, std::string prefix, std::function<void()> action)
        : database_(database), prefix_(std::move(prefix)), action_(std::move(action)) {
        sqlite3_trace_v2(database_.sqliteHandle(), SQLITE_TRACE_STMT, begin, this);
    }
    ~AtStatement() { sqlite3_trace_v2(database_.sqliteHandle(), 0, nullptr, nullptr); }
    AtStatement(const AtStatement&) = delete;
    AtStatement& operator=(const AtStatement&) = delete;

private:
    static int begin(unsigned, void* context, void* statement, void*) {
        auto& self = *static_cast<AtStatement*>(context);
        const std::string_view text = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
        if (self.action_ && text.starts_with(self.prefix_)) {
            std::exchange(self.action_, nullptr)();
        }
        return 0;
    }

    FMDatabase& database_;
    std::string prefix_;
    std::function<void()> action_;
};

TEST(TwoWriters, TheSecondWaitsForTheFirst) {
    const SharedStore store;
    const auto first = store.open();
    auto transaction = ZAVTransaction::begin(*first);
    ASSERT_TRUE(transaction);
    ASSERT_TRUE(ZAVEventRepository(first).persistEvents(eventsNamed("first", 1)));
    std::promise<void> arrived;
    Threads threads;
    threads.start([&] {
        const auto second = store.open();
        const AtStatement atInsertion(*second, "INSERT", [&] { arrived.set_value(); });
        ZAVError error;
        EXPECT_TRUE(ZAVEventRepository(second).persistEvents(eventsNamed("second", 1), &error))
            << error.description();
    });
    arrived.get_future().wait();
    EXPECT_TRUE(transaction->commit());
    threads.join();
    EXPECT_EQ(ZAVEventRepository(first).countOfEvents(), 2U);
}

TEST(TwoWriters, FindOneStreamThatBothWouldRegister) {
    const SharedStore store;
    const auto first = store.open();
    const auto second = store.open();
    ZAVDatabaseIdentifier rowOfSecond = ZAVDatabaseIdentifierNotSet;
    const AtStatement atInsertion(*first, "INSERT INTO streams", [&] {
        rowOfSecond = ZAVStreamRepository(second).findOrCreateStreamWithUUID(uuidNumber(5));
    });
    ZAVError error;
    const auto rowOfFirst = ZAVStreamRepository(first).findOrCreateStreamWithUUID(uuidNumber(5), &error);
    ASSERT_NE(rowOfSecond, ZAVDatabaseIdentifierNotSet) << "nothing was proved: the second came too late";
    EXPECT_EQ(rowOfFirst, rowOfSecond)
        << "the stream was there when it was asked for: " << error.description();
}

// Past the timeout

/// Expects that an operation which failed because somebody else writes said so in every way that it promises.
void expectBusy(const Operation& operation, const FMDatabase& database, const Answer& answer,
                const ZAVError& error, const std::vector<LogRecord>& lines) {
    EXPECT_EQ(answer.value, operation.answers.failing);
    EXPECT_EQ(database.lastError().code(), SQLITE_BUSY) << database.lastError().description();
    if (operation.report == FailureReport::nothing) {
        EXPECT_FALSE(error) << error.description();
        return;
    }
    EXPECT_EQ(error, ZAVError("SQLite", SQLITE_BUSY, "database is locked")) << error.description();
    if (operation.report == FailureReport::outParameterOnly) {
        return;
    }
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[1].flag,
              operation.report == FailureReport::errorLine ? DDLogFlagError : DDLogFlagVerbose);
    EXPECT_TRUE(lines[1].message.ends_with(error.description())) << lines[1].message;
}

class OperationOnALockedDatabase : public TestWithOperation {};

TEST_P(OperationOnALockedDatabase, ReadsOrFailsClearlyAndWorksWhenTheLockIsGone) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("store.db");
    const auto holder = openFile(path);
    fillStore(holder);
    const auto database = openFile(path, Milliseconds(0));
    const Lines before = rowsOfAllTables(*database);
    auto lock = ZAVTransaction::begin(*holder);
    ASSERT_TRUE(lock);
    ZAVError lockedError;
    Answer lockedAnswer;
    std::vector<LogRecord> lockedLines;
    {
        const LogCapture log;
        lockedAnswer = operation().call(ZAVEventRepository(database), &lockedError);
        lockedLines = log.records();
    }
    const bool failed = static_cast<bool>(database->lastError());
    if (failed) {
        expectBusy(operation(), *database, lockedAnswer, lockedError, lockedLines);
    } else {
        EXPECT_NE(lockedAnswer.value, operation().answers.failing);
        EXPECT_FALSE(lockedError) << lockedError.description();
    }
    EXPECT_FALSE(database->inTransaction());
    EXPECT_EQ(database->openResultSets(), 0U);
    EXPECT_EQ(rowsOfAllTables(*database), before) << "half of an operation was stored";

    lock->rollback();
    ZAVError error;
    const Answer answer = operation().call(ZAVEventRepository(database), &error);
    EXPECT_NE(answer.value, operation().answers.failing) << "the lock is gone: " << error.description();
    EXPECT_FALSE(error) << error.description();
    const bool writes = rowsOfAllTables(*database) != before;
    EXPECT_EQ(failed, writes) << (writes ? "it wrote in spite of the lock"
                                         : "a reader was stopped by a writer");
}

INSTANTIATE_TEST_SUITE_P(Every, OperationOnALockedDatabase, testing::ValuesIn(entriesOf(everyOperation())),
                         nameOfParameter);

TEST(ALockedDatabase, IsOpenedAndItsSchemaIsNotMadeMeanwhile) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("new.db");
    FMDatabaseOptions options;
    options.busyTimeout = Milliseconds(0);
    const auto holder = FMDatabase::databaseWithPath(path, options);
    ASSERT_NE(holder, nullptr);
    ASSERT_TRUE(holder->executeUpdate("BEGIN IMMEDIATE"));
    ZAVError error;
    EXPECT_EQ(ZAVDatabaseSchema::openDatabase(path, options, &error), nullptr);
    EXPECT_EQ(error.code() & 0xFF, SQLITE_BUSY) << error.description();
    ASSERT_TRUE(holder->executeUpdate("ROLLBACK"));
    EXPECT_NE(ZAVDatabaseSchema::openDatabase(path, options, &error), nullptr) << error.description();
}

/// Opens a file without a write-ahead log that somebody reads or writes, and expects that this waits for
/// them.
void expectOpeningToWaitFor(const std::string& statement, const std::string& end) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("journal.db");
    FMDatabaseOptions options;
    options.writeAheadLog = false;
    const auto other = ZAVDatabaseSchema::openDatabase(path, options);
    ASSERT_NE(other, nullptr);
    ASSERT_TRUE(other->executeStatements(statement)) << other->lastError().description();
    auto opened = std::async(std::launch::async, [&] { return openFile(path); });
    // There is time enough to meet the lock; whoever opens the file must not give up that soon.
    EXPECT_NE(opened.wait_for(Milliseconds(100)), std::future_status::ready)
        << "opening did not wait for a lock, although it may";
    EXPECT_TRUE(other->executeStatements(end));
    EXPECT_NE(opened.get(), nullptr);
}

TEST(ALockedDatabase, ThatIsReadWithoutAWriteAheadLogIsOpenedWhenTheReaderIsDone) {
    expectOpeningToWaitFor("BEGIN; SELECT COUNT(*) FROM events", "COMMIT");
}

TEST(ALockedDatabase, ThatIsWrittenWithoutAWriteAheadLogIsOpenedWhenTheWriterIsDone) {
    expectOpeningToWaitFor("BEGIN IMMEDIATE", "COMMIT");
    expectOpeningToWaitFor("BEGIN EXCLUSIVE", "COMMIT");
}

TEST(ALockedDatabase, WithoutAWriteAheadLogRollsTheTransactionBackThatCannotBeCommitted) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("journal.db");
    FMDatabaseOptions options;
    options.writeAheadLog = false;
    options.busyTimeout = Milliseconds(0);
    const auto writer = ZAVDatabaseSchema::openDatabase(path, options);
    const auto reader = ZAVDatabaseSchema::openDatabase(path, options);
    ASSERT_TRUE(writer && reader);
    ASSERT_TRUE(writer->executeUpdate("INSERT INTO streams (seq) VALUES (1)"));
    auto rows = reader->executeQuery("SELECT seq FROM streams");
    ASSERT_TRUE(rows && rows->next());

    ZAVError error;
    auto transaction = ZAVTransaction::begin(*writer, &error);
    ASSERT_TRUE(transaction) << error.description();
    ASSERT_TRUE(writer->executeUpdate("INSERT INTO streams (seq) VALUES (2)"));
    EXPECT_FALSE(transaction->commit(&error)) << "a reader's rows were changed under its eyes";
    EXPECT_EQ(error.code() & 0xFF, SQLITE_BUSY) << error.description();
    EXPECT_FALSE(writer->inTransaction());
    rows->close();
    EXPECT_EQ(ZAVStreamRepository(reader).countOfStreams(), 1U);
    EXPECT_TRUE(writer->executeUpdate("INSERT INTO streams (seq) VALUES (2)"));
}

// An old view of the data

/// A reader who keeps seeing what was there when it began, and a writer who has changed it since.
class OldSnapshot : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(ZAVEventRepository(writer_).persistEvents(eventsNamed("old", 3))); }

    void writeElsewhere() { ASSERT_TRUE(ZAVEventRepository(writer_).persistEvents(eventsNamed("new", 1))); }

    void expectThatWritingFails() {
        ZAVError error;
        const LogCapture log;
        EXPECT_FALSE(ZAVEventRepository(reader_).persistEvents(eventsNamed("late", 1), &error))
            << "a decision that rests on old data was stored";
        EXPECT_EQ(error.code(), SQLITE_BUSY_SNAPSHOT) << error.description();
        EXPECT_EQ(error.message(), "database is locked");
        ASSERT_EQ(log.records().size(), 2U);
        EXPECT_TRUE(log.records()[1].message.ends_with(error.description()));
    }

    void expectThatWritingWorks() {
        ZAVError error;
        EXPECT_TRUE(ZAVEventRepository(reader_).persistEvents(eventsNamed("late", 1), &error))
            << error.description();
        EXPECT_EQ(ZAVEventRepository(reader_).countOfEvents(), 5U);
    }

    const SharedStore store_;
    const std::shared_ptr<FMDatabase> writer_ = store_.open();
    const std::shared_ptr<FMDatabase> reader_ = store_.open();
};

TEST_F(OldSnapshot, OfATransactionIsNotWrittenFromUntilItIsRolledBack) {
    ASSERT_TRUE(reader_->executeUpdate("BEGIN"));
    EXPECT_EQ(ZAVEventRepository(reader_).countOfEvents(), 3U);
    writeElsewhere();
    EXPECT_EQ(ZAVEventRepository(reader_).countOfEvents(), 3U) << "the snapshot changed";
    expectThatWritingFails();
    EXPECT_EQ(ZAVEventRepository(reader_).countOfEvents(), 3U) << "the snapshot is gone";
    ASSERT_TRUE(reader_->executeUpdate("ROLLBACK"));
    EXPECT_EQ(ZAVEventRepository(reader_).countOfEvents(), 4U);
    expectThatWritingWorks();
}

TEST_F(OldSnapshot, OfAnOpenCursorIsNotWrittenFromUntilItIsClosed) {
    auto rows = reader_->executeQuery("SELECT client_id FROM events");
    ASSERT_TRUE(rows && rows->next());
    writeElsewhere();
    expectThatWritingFails();
    EXPECT_TRUE(rows->next()) << "the cursor did not survive";
    rows->close();
    expectThatWritingWorks();
}

TEST_F(OldSnapshot, NeverArisesForOneWhoTakesTheWriteLockFirst) {
    auto transaction = ZAVTransaction::begin(*reader_);
    ASSERT_TRUE(transaction);
    EXPECT_EQ(ZAVEventRepository(reader_).countOfEvents(), 3U);
    const auto impatient = store_.open(Milliseconds(0));
    const LogCapture log;
    EXPECT_FALSE(ZAVEventRepository(impatient).persistEvents(eventsNamed("new", 1)));
    EXPECT_TRUE(ZAVEventRepository(reader_).persistEvents(eventsNamed("late", 1)));
    EXPECT_TRUE(transaction->commit());
}

TEST_F(OldSnapshot, OfACursorIsReadToItsEndWhileAnotherWrites) {
    auto rows = reader_->executeQuery("SELECT client_id FROM events ORDER BY database_identifier");
    ASSERT_TRUE(rows && rows->next());
    const auto impatient = store_.open(Milliseconds(0));
    ZAVError error;
    EXPECT_TRUE(ZAVEventRepository(impatient).persistEvents(eventsNamed("new", 2), &error))
        << "a reader stopped a writer: " << error.description();
    EXPECT_TRUE(impatient->executeUpdate("DELETE FROM events WHERE client_id = CAST('old 2' AS BLOB)"));
    EXPECT_EQ(rows->dataForColumnIndex(0), ZAVData::fromText("old 0"));
    ASSERT_TRUE(rows->next());
    ASSERT_TRUE(rows->next()) << "a row that was deleted meanwhile is missing from the snapshot";
    EXPECT_EQ(rows->dataForColumnIndex(0), ZAVData::fromText("old 2"));
    EXPECT_FALSE(rows->next()) << "a row that was added meanwhile is in the snapshot";
    EXPECT_EQ(ZAVEventRepository(reader_).countOfEvents(), 4U);
}

TEST_F(OldSnapshot, KeepsWhatACheckpointCannotFoldYet) {
    auto rows = reader_->executeQuery("SELECT client_id FROM events ORDER BY database_identifier");
    ASSERT_TRUE(rows && rows->next());
    writeElsewhere();
    const ZAVDatabaseMaintenance maintenance(store_.open(Milliseconds(0)));
    const auto part = maintenance.checkpoint();
    ASSERT_TRUE(part);
    EXPECT_TRUE(part->isHeldUp);
    EXPECT_LT(part->copied, part->frames) << "what the cursor may still read was overwritten";
    EXPECT_TRUE(rows->next() && rows->next());
    EXPECT_EQ(rows->dataForColumnIndex(0), ZAVData::fromText("old 2"));
    EXPECT_FALSE(rows->next());
    const auto whole = maintenance.checkpoint(ZAVCheckpointMode::truncate);
    ASSERT_TRUE(whole);
    EXPECT_FALSE(whole->isHeldUp) << "nobody reads any more, and the log was not folded";
    EXPECT_EQ(whole->copied, whole->frames);
    for (const auto& database : {reader_, writer_, store_.open()}) {
        EXPECT_EQ(ZAVEventRepository(database).allEvents()->size(), 4U);
        EXPECT_EQ(integrityOf(*database), "ok");
    }
}

// Handles come and go

TEST(ShortLivedHandles, OfSeveralThreadsReadAndWriteOneFile) {
    constexpr int threadCount = 3;
    const int uses = rounds(12, 200);
    const SharedStore store;
    Threads threads;
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.start([&, thread] {
            std::size_t seen = 0;
            for (int number = 0; number < uses; ++number) {
                const auto database = store.open();
                ASSERT_NE(database, nullptr);
                const ZAVEventRepository repository(database);
                const std::string name = std::to_string(thread) + "-" + std::to_string(number);
                ZAVError error;
                EXPECT_TRUE(repository.persistEvents(eventsNamed(name, 1), &error)) << error.description();
                const std::size_t count = repository.countOfEvents(&error);
                EXPECT_GT(count, seen) << "what this thread stored before is gone";
                EXPECT_FALSE(error) << error.description();
                seen = count;
            }
        });
    }
    threads.join();
    const auto database = store.open();
    EXPECT_EQ(ZAVEventRepository(database).countOfEvents(), static_cast<std::size_t>(threadCount * uses));
    EXPECT_EQ(integrityOf(*database), "ok");
}

/// How often the schema of a file was changed.
std::size_t schemaChanges(FMDatabase& database) {
    auto rows = database.executeQuery("PRAGMA schema_version");
    return rows && rows->next() ? static_cast<std::size_t>(rows->longLongIntForColumnIndex(0)) : 0;
}

std::size_t schemaChangesOfANewFile() {
    static const std::size_t changes = [] {
        const TemporaryDirectory directory;
        return schemaChanges(*openFile(directory.file("new.db")));
    }();
    return changes;
}

void expectMadeOnce(const std::string& path) {
    const auto database = openFile(path);
    ASSERT_NE(database, nullptr);
    EXPECT_EQ(ZAVDatabaseSchema::versionOfDatabase(*database), ZAVDatabaseSchema::currentVersion());
    EXPECT_EQ(schemaChanges(*database), schemaChangesOfANewFile()) << "the schema was made more than once";
    EXPECT_EQ(integrityOf(*database), "ok");
}

/// Calls something when the next connection of the process begins its statement of a number, counted from 0.
class AtStatementOfOpening {
public:
    AtStatementOfOpening(int number, std::function<void()> action)
        : left_(number), action_(std::move(action)) {
        current_ = this;
        sqlite3_auto_extension(entry());
    }
    ~AtStatementOfOpening() {
        sqlite3_cancel_auto_extension(entry());
        current_ = nullptr;
    }
    AtStatementOfOpening(const AtStatementOfOpening&) = delete;
    AtStatementOfOpening& operator=(const AtStatementOfOpening&) = delete;

    [[nodiscard]] bool happened() const { return !action_; }

private:
    static void (*entry())() { return reinterpret_cast<void (*)()>(equip); }

    static int equip(sqlite3* connection, char**, const void*) {
        if (AtStatementOfOpening* const self = std::exchange(current_, nullptr)) {
            sqlite3_trace_v2(connection, SQLITE_TRACE_STMT, begin, self);
        }
        return SQLITE_OK;
    }

    static int begin(unsigned, void* context, void*, void*) {
        auto& self = *static_cast<AtStatementOfOpening*>(context);
        if (self.left_-- == 0) {
            std::exchange(self.action_, nullptr)();
        }
        return 0;
    }

    static inline AtStatementOfOpening* current_ = nullptr;
    int left_;
    std::function<void()> action_;
};

TEST(ANewFile, MayBeMadeByAnotherAtAnyMomentOfOpeningIt) {
    int moment = 0;
    for (bool happened = true; happened; ++moment) {
        SCOPED_TRACE("at statement " + std::to_string(moment));
        const TemporaryDirectory directory;
        const std::string path = directory.file("new.db");
        const AtStatementOfOpening otherOpens(moment, [&] {
            FMDatabaseOptions impatient;
            impatient.busyTimeout = Milliseconds(0);
            static_cast<void>(ZAVDatabaseSchema::openDatabase(path, impatient));
        });
        auto database = openFile(path);
        ASSERT_NE(database, nullptr) << "another one that opens the file at once got in the way";
        happened = otherOpens.happened();
        sqlite3_trace_v2(database->sqliteHandle(), 0, nullptr, nullptr);
        expectMadeOnce(path);
    }
    EXPECT_GT(moment, 5) << "nothing was proved: opening ran no statement";
}

TEST(ANewFile, IsMadeOnceWhenSeveralThreadsOpenItAtOnce) {
    constexpr int threadCount = 4;
    for (int round = 0; round < rounds(8, 100); ++round) {
        const TemporaryDirectory directory;
        const std::string path = directory.file("new.db");
        std::barrier start(threadCount);
        Threads threads;
        for (int thread = 0; thread < threadCount; ++thread) {
            threads.start([&, thread] {
                start.arrive_and_wait();
                const auto database = openFile(path);
                ASSERT_NE(database, nullptr) << "another thread that opens the file at once got in the way";
                ZAVError error;
                EXPECT_NE(
                    ZAVStreamRepository(database).findOrCreateStreamWithUUID(uuidNumber(thread), &error),
                    ZAVDatabaseIdentifierNotSet)
                    << error.description();
            });
        }
        threads.join();
        expectMadeOnce(path);
        EXPECT_EQ(ZAVStreamRepository(openFile(path)).countOfStreams(), std::size_t{threadCount});
    }
}

TEST(ANewFile, IsMadeOnceWhenSeveralProcessesOpenItAtOnce) {
    for (int round = 0; round < rounds(3, 30); ++round) {
        const TemporaryDirectory directory;
        const std::string path = directory.file("new.db");
        std::vector<std::future<ToolRun>> processes;
        for (int process = 0; process < 3; ++process) {
            processes.push_back(std::async(std::launch::async, [&] { return runTool({"init", path}); }));
        }
        for (auto& process : processes) {
            const ToolRun run = process.get();
            EXPECT_EQ(run.status, 0) << "another process that opens the file at once got in the way: "
                                     << run.err;
        }
        expectMadeOnce(path);
    }
}

// One handle, and handles that have nothing in common

TEST(OneHandle, ServesTwoRepositoriesByTurns) {
    const SharedStore store;
    const auto database = store.open();
    const ZAVEventRepository first(database);
    const ZAVEventRepository second(database);
    auto cursor = database->executeQuery("SELECT 1 UNION ALL SELECT 2");
    ASSERT_TRUE(cursor && cursor->next());
    for (int number = 0; number < 5; ++number) {
        const std::string name = std::to_string(number);
        EXPECT_TRUE(first.persistEvents(eventsNamed("first " + name, 2)));
        EXPECT_EQ(second.countOfEvents(), static_cast<std::size_t>(3 * number + 2));
        EXPECT_TRUE(second.persistEvents(eventsNamed("second " + name, 1)));
        EXPECT_EQ(first.allEvents()->size(), static_cast<std::size_t>(3 * number + 3));
    }
    EXPECT_TRUE(cursor->next()) << "a cursor of the caller's was disturbed";
    EXPECT_TRUE(first.deleteEvents(*second.allEvents()));
    EXPECT_EQ(second.countOfEvents(), 0U);
}

TEST(OneHandle, MayBeMadeUsedAndClosedByDifferentThreads) {
    const SharedStore store;
    std::shared_ptr<FMDatabase> database;
    const auto elsewhere = [](const std::function<void()>& work) { std::thread(work).join(); };
    elsewhere([&] { database = store.open(); });
    elsewhere([&] {
        EXPECT_TRUE(ZAVEventRepository(database).persistEvents(eventsNamed("one", 2)));
        EXPECT_EQ(ZAVEventRepository(database).allEvents()->size(), 2U);
    });
    elsewhere([&] { EXPECT_EQ(ZAVEventRepository(database).countOfEvents(), 2U); });
    EXPECT_EQ(ZAVEventRepository(database).countOfEvents(), 2U);
    elsewhere([&] { database.reset(); });
    EXPECT_EQ(ZAVEventRepository(store.open()).countOfEvents(), 2U);
}

TEST(OneHandle, CarriesAnOpenTransactionAndAnOpenCursorToAnotherThread) {
    const SharedStore store;
    const auto database = store.open();
    auto transaction = ZAVTransaction::begin(*database);
    ASSERT_TRUE(transaction);
    ASSERT_TRUE(ZAVEventRepository(database).persistEvents(eventsNamed("one", 2)));
    auto rows = database->executeQuery("SELECT client_id FROM events");
    ASSERT_TRUE(rows && rows->next());
    std::thread([&] {
        EXPECT_TRUE(rows->next());
        rows->close();
        EXPECT_TRUE(transaction->commit());
    }).join();
    EXPECT_FALSE(database->inTransaction());
    EXPECT_EQ(ZAVEventRepository(store.open()).countOfEvents(), 2U);
}

/// What every operation answers on a new store, and what it leaves behind.
Lines answersOnANewStore() {
    const TemporaryDirectory directory;
    const auto database = openFile(directory.file("store.db"));
    fillStore(database);
    Lines texts;
    for (const Operation& operation : everyOperation()) {
        ZAVError error;
        for (std::string& line : operation.call(ZAVEventRepository(database), &error).text()) {
            texts.push_back(std::move(line));
        }
        EXPECT_FALSE(error) << nameOf(operation) << ": " << error.description();
    }
    for (std::string& row : rowsOfAllTables(*database)) {
        texts.push_back(std::move(row));
    }
    return texts;
}

TEST(HandlesOnDifferentFiles, ShareNothing) {
    constexpr std::size_t threadCount = 3;
    std::vector<Lines> answers(threadCount);
    std::barrier start(threadCount);
    Threads threads;
    for (Lines& own : answers) {
        threads.start([&] {
            start.arrive_and_wait();
            own = answersOnANewStore();
        });
    }
    threads.join();
    const Lines alone = answersOnANewStore();
    for (const Lines& own : answers) {
        EXPECT_TRUE(own == alone) << "a handle answered differently beside others";
    }
}

}  // namespace
}  // namespace zav::test
