#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <latch>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Store/EventStoreFixture.h"
#include "Support/DatabaseHandles.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

constexpr int readOnlyCode = 8;            // the engine's
constexpr int uniqueConstraint = 2067;     // the engine's
constexpr int controlRefused = 19;         // of ZAVDatabase
constexpr int cursorOutlivedItsWork = 20;  // of ZAVDatabase

// Opening

TEST(OpeningAnEventStore, IsRefusedInMemory) {
    ZAVError error;
    EXPECT_EQ(ZAVEventStore::open(":memory:", {}, &error), nullptr);
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 1") << error.description();
}

TEST(OpeningAnEventStore, IsRefusedWhereThereIsNoWriteAheadLog) {
    const TemporaryDirectory directory;
    ZAVEventStoreOptions options;
    options.database.vfs = "unix-dotfile";  // shares no memory
    ZAVError error;
    EXPECT_EQ(ZAVEventStore::open(directory.file("chat.db"), options, &error), nullptr);
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 2") << error.description();
}

TEST(OpeningAnEventStore, RefusesOptionsThatMeanNothing) {
    const TemporaryDirectory directory;
    ZAVEventStoreOptions options;
    options.readers = 0;
    ZAVError error;
    EXPECT_EQ(ZAVEventStore::open(directory.file("chat.db"), options, &error), nullptr);
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 4") << error.description();
    options.readers = 1;
    options.readerPageCacheKiB = -1;
    EXPECT_EQ(ZAVEventStore::open(directory.file("chat.db"), options, &error), nullptr);
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 4") << error.description();
    EXPECT_FALSE(std::filesystem::exists(directory.file("chat.db")));
}

TEST_F(EventStore, OpensItsHandlesOnTheFileWhereverTheProcessIsMeanwhile) {
    const TemporaryDirectory elsewhere;
    const auto here = std::filesystem::current_path();
    std::filesystem::current_path(elsewhere.path());
    ZAVError error;
    const auto store = ZAVEventStore::open("relative.db", {}, &error);
    std::filesystem::current_path(here);
    ASSERT_NE(store, nullptr) << error.description();
    EXPECT_TRUE(store->read([](const ZAVRepositories&) {}, &error)) << error.description();
}

// Reading

TEST_F(EventStore, ReadsWhatAWriteStoredThatHasReturned) {
    EXPECT_EQ(countOfStreams(), 0);
    writeStream(1);
    EXPECT_EQ(countOfStreams(), 1);
}

TEST_F(EventStore, GivesAWorkTheEventRepositoryWhereItAsksForThat) {
    std::size_t count = 1;
    EXPECT_TRUE(
        store().read([&](const ZAVEventRepository& repository) { count = repository.countOfEvents(); }));
    EXPECT_EQ(count, 0U);
}

TEST_F(EventStore, ReadsOneStateWhateverIsStoredMeanwhile) {
    writeStream(1);
    EXPECT_TRUE(store().read([&](const ZAVRepositories& repositories) {
        // Taken before the work runs, not by the first query of it.
        std::thread([&] { writeStream(2); }).join();
        EXPECT_EQ(countOf(repositories), 1);
        std::thread([&] { writeStream(3); }).join();
        EXPECT_EQ(countOf(repositories), 1);
    }));
    EXPECT_EQ(countOfStreams(), 3);
}

TEST_F(EventStore, ReadsOnSeveralThreadsAtOnce) {
    std::latch all(4);
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back(
            [&] { EXPECT_TRUE(store().read([&](const ZAVRepositories&) { all.arrive_and_wait(); })); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(EventStore, HasAFurtherReadWaitForOneOfThoseThatItHasHandlesFor) {
    ZAVEventStoreOptions options;
    options.readers = 1;
    const auto narrow = open(options);
    std::latch begun(1);
    std::promise<void> end;
    std::atomic<bool> hasEnded = false;
    std::thread first([&] {
        EXPECT_TRUE(narrow->read([&](const ZAVRepositories&) {
            begun.count_down();
            end.get_future().wait();
            hasEnded = true;
        }));
    });
    begun.wait();
    std::thread second(
        [&] { EXPECT_TRUE(narrow->read([&](const ZAVRepositories&) { EXPECT_TRUE(hasEnded); })); });
    std::this_thread::sleep_for(
        std::chrono::milliseconds(100));  // time enough for it to come in, if it could
    end.set_value();
    first.join();
    second.join();
}

TEST_F(EventStore, ReadsBesideAWriteWithoutWaitingForIt) {
    writeStream(1);
    EXPECT_TRUE(store().write([&](const ZAVRepositories& repositories) {
        addStream(repositories, 2);
        std::thread([&] { EXPECT_EQ(countOfStreams(), 1); }).join();
        return true;
    }));
    EXPECT_EQ(countOfStreams(), 2);
}

TEST_F(EventStore, RefusesToWriteInARead) {
    EXPECT_TRUE(store().read([&](const ZAVRepositories& repositories) {
        ZAVError error;
        EXPECT_EQ(repositories.streams.findOrCreateStreamWithUUID(uuidNumber(1), &error),
                  ZAVDatabaseIdentifierNotSet);
        EXPECT_EQ(error.code() & 0xFF, readOnlyCode) << error.description();
    }));
    EXPECT_EQ(countOfStreams(), 0);
}

TEST_F(EventStore, HasAReadWithinAReadBePartOfIt) {
    EXPECT_TRUE(store().read([&](const ZAVRepositories& outer) {
        std::thread([&] { writeStream(1); }).join();
        EXPECT_TRUE(store().read([&](const ZAVRepositories& inner) {
            EXPECT_EQ(&inner.events.database(), &outer.events.database());
            EXPECT_EQ(countOf(inner), 0);
        }));
        EXPECT_EQ(countOf(outer), 0) << "the inner read has not ended the outer one";
    }));
}

TEST_F(EventStore, LetsAnExceptionOfAReadPassAndReadsAgain) {
    ZAVEventStoreOptions options;
    options.readers = 1;
    const auto narrow = open(options);
    const auto fails = [](const ZAVRepositories&) { throw std::runtime_error("mine"); };
    EXPECT_THROW(narrow->read(fails), std::runtime_error);
    EXPECT_TRUE(narrow->read([](const ZAVRepositories&) {})) << "its only handle is free again";
}

// Writing

TEST_F(EventStore, StoresWhatAWorkWantsToKeep) {
    EXPECT_TRUE(store().write([](const ZAVRepositories& repositories) {
        addStream(repositories, 1);
        addStream(repositories, 2);
        return true;
    }));
    EXPECT_EQ(countOfStreams(), 2);
}

TEST_F(EventStore, TakesBackWhatAWorkDoesNotWantToKeep) {
    ZAVError error("Caller", 5, "from before");
    EXPECT_FALSE(store().write(
        [](const ZAVRepositories& repositories) {
            addStream(repositories, 1);
            return false;
        },
        &error));
    EXPECT_EQ(error.domain(), "Caller") << "nothing failed";
    EXPECT_EQ(countOfStreams(), 0);
    writeStream(1);
}

TEST_F(EventStore, TakesBackWhatAWorkWroteThatThrows) {
    const auto fails = [](const ZAVRepositories& repositories) -> bool {
        addStream(repositories, 1);
        throw std::runtime_error("mine");
    };
    EXPECT_THROW(store().write(fails), std::runtime_error);
    EXPECT_EQ(countOfStreams(), 0);
    writeStream(1);
}

TEST_F(EventStore, ReadsWithinAWriteWhatThatHasWritten) {
    EXPECT_TRUE(store().write([&](const ZAVRepositories& repositories) {
        addStream(repositories, 1);
        EXPECT_TRUE(store().read([](const ZAVRepositories& inner) { EXPECT_EQ(countOf(inner), 1); }));
        return true;
    }));
}

TEST_F(EventStore, TakesAWriteWithinAWriteBackAlone) {
    EXPECT_TRUE(store().write([&](const ZAVRepositories& repositories) {
        addStream(repositories, 1);
        EXPECT_FALSE(store().write([](const ZAVRepositories& inner) {
            addStream(inner, 2);
            return false;
        }));
        const auto fails = [](const ZAVRepositories& inner) -> bool {
            addStream(inner, 3);
            throw std::runtime_error("mine");
        };
        EXPECT_THROW(store().write(fails), std::runtime_error);
        EXPECT_EQ(countOf(repositories), 1);
        EXPECT_TRUE(store().write([](const ZAVRepositories& inner) {
            addStream(inner, 4);
            return true;
        }));
        return true;
    }));
    EXPECT_EQ(countOfStreams(), 2);
}

TEST_F(EventStore, TakesAnInnerWriteBackWithTheOuterOne) {
    EXPECT_FALSE(store().write([&](const ZAVRepositories&) {
        EXPECT_TRUE(store().write([](const ZAVRepositories& inner) {
            addStream(inner, 1);
            return true;
        }));
        return false;
    }));
    EXPECT_EQ(countOfStreams(), 0);
}

TEST_F(EventStore, TellsAnInnerWriteWhyTheEngineHasTakenAllBackWhateverItAnswers) {
    ZAVError outer;
    EXPECT_FALSE(store().write(
        [&](const ZAVRepositories&) {
            ZAVError inner;
            EXPECT_FALSE(store().write(
                [](const ZAVRepositories& repositories) {
                    addStream(repositories, 1);
                    repositories.events.database().executeUpdate(
                        "INSERT OR ROLLBACK INTO streams (stream_id) VALUES (?)",
                        ZAVDataFromUUID(uuidNumber(1)));
                    return false;
                },
                &inner));
            EXPECT_EQ(inner.code(), uniqueConstraint) << inner.description();
            return true;
        },
        &outer));
    EXPECT_EQ(outer.code(), uniqueConstraint) << outer.description();
}

TEST_F(EventStore, RefusesAWriteWithinARead) {
    EXPECT_TRUE(store().read([&](const ZAVRepositories&) {
        ZAVError error;
        EXPECT_FALSE(store().write(
            [](const ZAVRepositories&) {
                ADD_FAILURE() << "the work was called";
                return true;
            },
            &error));
        EXPECT_EQ(domainAndCode(error), "ZAVEventStore 3") << error.description();
    }));
}

TEST_F(EventStore, WritesToAnotherStoreWithinARead) {
    const TemporaryDirectory directory;
    const auto other = ZAVEventStore::open(directory.file("other.db"));
    ASSERT_NE(other, nullptr);
    EXPECT_TRUE(store().read([&](const ZAVRepositories&) {
        EXPECT_TRUE(other->write([&](const ZAVRepositories& repositories) {
            addStream(repositories, 1);
            EXPECT_EQ(countOfStreams(), 0) << "this store's read goes on";
            return true;
        }));
    }));
}

TEST_F(EventStore, FailsWithTheReasonWhenTheEngineHasTakenAllBack) {
    ZAVError error;
    EXPECT_FALSE(store().write(
        [](const ZAVRepositories& repositories) {
            addStream(repositories, 1);
            FMDatabase& database = repositories.events.database();
            EXPECT_FALSE(database.executeUpdate("INSERT OR ROLLBACK INTO streams (stream_id) VALUES (?)",
                                                ZAVDataFromUUID(uuidNumber(1))));
            EXPECT_FALSE(database.inTransaction());
            ZAVError further;
            EXPECT_EQ(repositories.streams.findOrCreateStreamWithUUID(uuidNumber(2), &further),
                      ZAVDatabaseIdentifierNotSet)
                << "it would be stored on its own";
            EXPECT_EQ(further.code(), uniqueConstraint) << further.description();
            EXPECT_FALSE(database.executeStatements("INSERT INTO streams (seq) VALUES (7)"));
            return true;
        },
        &error));
    EXPECT_EQ(error.code(), uniqueConstraint) << error.description();
    EXPECT_EQ(countOfStreams(), 0);
    writeStream(3);
    EXPECT_EQ(countOfStreams(), 1);
}

class TransactionByHand : public EventStore, public testing::WithParamInterface<const char*> {};

TEST_P(TransactionByHand, IsRefusedInAWork) {
    const auto refuses = [](const ZAVRepositories& repositories) {
        FMDatabase& database = repositories.events.database();
        EXPECT_FALSE(database.executeUpdate(GetParam()));
        EXPECT_EQ(database.lastError().code(), controlRefused) << database.lastError().description();
        EXPECT_FALSE(database.executeStatements(std::string("SELECT 1; ") + GetParam()));
        EXPECT_EQ(database.lastError().code(), controlRefused) << database.lastError().description();
        EXPECT_FALSE(database.executeQuery(GetParam()));
        EXPECT_TRUE(database.inTransaction());
        return false;
    };
    EXPECT_TRUE(store().read(refuses));
    EXPECT_FALSE(store().write(refuses));
}

INSTANTIATE_TEST_SUITE_P(As, TransactionByHand,
                         testing::Values("BEGIN", "begin immediate", "COMMIT", "END TRANSACTION", "ROLLBACK",
                                         "/* all */ RollBack Transaction", "-- all\n COMMIT",
                                         "SAVEPOINT zav_work", "RELEASE zav_work",
                                         "rollback to savepoint \"ZAV_work\""));

TEST_F(EventStore, RefusesATransactionOfTheLibrarysOwnInAWork) {
    EXPECT_TRUE(store().write([](const ZAVRepositories& repositories) {
        addStream(repositories, 1);
        FMDatabase& database = repositories.events.database();
        ZAVError error;
        EXPECT_FALSE(ZAVTransaction::begin(database, &error));
        EXPECT_EQ(error.code(), controlRefused) << error.description();
        database.rollback();
        EXPECT_TRUE(database.inTransaction());
        return true;
    }));
    EXPECT_EQ(countOfStreams(), 1);
}

TEST_F(EventStore, LetsAWorkSetSavepoints) {
    EXPECT_TRUE(store().write([](const ZAVRepositories& repositories) {
        FMDatabase& database = repositories.events.database();
        addStream(repositories, 1);
        EXPECT_TRUE(database.executeUpdate("SAVEPOINT mine"));
        addStream(repositories, 2);
        EXPECT_TRUE(database.executeUpdate("ROLLBACK TO mine"));
        EXPECT_TRUE(database.executeUpdate("RELEASE mine"));
        return true;
    }));
    EXPECT_EQ(countOfStreams(), 1);
}

// Cursors that are kept

std::optional<FMResultSet> cursorOf(const ZAVRepositories& repositories) {
    auto rows = repositories.events.database().executeQuery("SELECT 1 UNION ALL SELECT 2");
    EXPECT_TRUE(rows && rows->next());
    return rows;
}

void expectExpired(FMResultSet& rows) {
    EXPECT_EQ(rows.longLongIntForColumnIndex(0), 0);
    ZAVError error;
    EXPECT_FALSE(rows.nextWithError(&error));
    EXPECT_EQ(error.code(), cursorOutlivedItsWork) << error.description();
    error = {};
    EXPECT_FALSE(rows.closeWithError(&error));
    EXPECT_EQ(error.code(), cursorOutlivedItsWork) << error.description();
    FMResultSet moved(std::move(rows));
    EXPECT_FALSE(moved.nextWithError(&error));
}

TEST_F(EventStore, ClosesACursorThatIsKeptBeyondItsRead) {
    std::optional<FMResultSet> kept;
    EXPECT_TRUE(store().read([&](const ZAVRepositories& repositories) { kept = cursorOf(repositories); }));
    writeStream(1);
    EXPECT_EQ(countOfStreams(), 1) << "the handle's snapshot went with the work";
    expectExpired(*kept);
}

TEST_F(EventStore, ClosesACursorThatIsKeptBeyondItsWrite) {
    for (const bool isWanted : {true, false}) {
        std::optional<FMResultSet> kept;
        EXPECT_EQ(store().write([&](const ZAVRepositories& repositories) {
            kept = cursorOf(repositories);
            return isWanted;
        }),
                  isWanted);
        expectExpired(*kept);
    }
}

TEST_F(EventStore, LeavesACursorOfTheOuterWorkToIt) {
    EXPECT_TRUE(store().write([&](const ZAVRepositories& repositories) {
        auto rows = cursorOf(repositories);
        EXPECT_TRUE(store().read([](const ZAVRepositories&) {}));
        EXPECT_TRUE(store().write([](const ZAVRepositories&) { return true; }));
        EXPECT_TRUE(rows->next());
        EXPECT_EQ(rows->longLongIntForColumnIndex(0), 2);
        return true;
    }));
}

// Threads

TEST_F(EventStore, ShowsNoReaderHalfOfAWrite) {
    constexpr int writers = 3;
    constexpr int readers = 4;
    constexpr int batches = 60;
    constexpr int streamsOfABatch = 5;
    std::atomic<int> writing = writers;
    std::vector<std::thread> threads;
    for (int writer = 0; writer < writers; ++writer) {
        threads.emplace_back([&, writer] {
            for (int batch = 0; batch < batches; ++batch) {
                ZAVError error;
                EXPECT_TRUE(store().write(
                    [&](const ZAVRepositories& repositories) {
                        for (int stream = 0; stream < streamsOfABatch; ++stream) {
                            EXPECT_TRUE(repositories.events.database().executeUpdate(
                                "INSERT INTO streams (stream_id) VALUES (?)",
                                std::to_string(writer) + "/" + std::to_string(batch) + "/" +
                                    std::to_string(stream)));
                        }
                        return true;
                    },
                    &error))
                    << error.description();
            }
            --writing;
        });
    }
    for (int reader = 0; reader < readers; ++reader) {
        threads.emplace_back([&] {
            int before = 0;
            while (writing > 0) {
                const int count = countOfStreams();
                EXPECT_EQ(count % streamsOfABatch, 0);
                EXPECT_GE(count, before) << "a later read sees no less";
                before = count;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(countOfStreams(), writers * batches * streamsOfABatch);
}

}  // namespace
}  // namespace zav::test
