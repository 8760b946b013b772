#include <ZAVEventRepository/ZAVEventStore.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <latch>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Store/EventStoreFixture.h"
#include "Store/MainLoop.h"
#include "Support/DatabaseHandles.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using State = ZAVWorkOutcome::State;
using namespace std::chrono_literals;

constexpr int interrupted = 9;  // the engine's

/// A statement that takes longer than any test.
constexpr const char* endless =
    "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT count(*) FROM n";

/// A point that a work stands at until the test lets it go on.
class Halt {
public:
    void pass() {
        reached_.count_down();
        goOn_.get_future().wait();
    }
    void awaitArrival() { reached_.wait(); }
    void letGo() { goOn_.set_value(); }

private:
    std::latch reached_{1};
    std::promise<void> goOn_;
};

bool addOne(const ZAVRepositories& repositories, int number) {
    return repositories.streams.findOrCreateStreamWithUUID(uuidNumber(number)) != ZAVDatabaseIdentifierNotSet;
}

class EventStoreBeside : public EventStore {
protected:
    void add(int number, Outcomes& outcomes) {
        ZAVError error;
        EXPECT_TRUE(store().writeAsync(
            [number](const ZAVRepositories& repositories) { return addOne(repositories, number); },
            outcomes.completion(), {}, &error))
            << error.description();
    }

    /// Has the writing thread stand at `halt`.
    void occupyWriter(Halt& halt) {
        EXPECT_TRUE(store().writeAsync(
            [&halt](const ZAVRepositories&) {
                halt.pass();
                return true;
            },
            {}));
        halt.awaitArrival();
    }
};

// Running

TEST_F(EventStoreBeside, RunsAReadOnAThreadOfItsOwnAndTellsTheLoop) {
    writeStream(1);
    Outcomes outcomes;
    std::thread::id thread;
    int count = 0;
    EXPECT_TRUE(store().readAsync(
        [&](const ZAVRepositories& repositories) {
            thread = std::this_thread::get_id();
            count = countOf(repositories);
        },
        outcomes.completion()));
    EXPECT_EQ(outcomes.only(loop()).state, State::done);
    EXPECT_EQ(count, 1);
    EXPECT_NE(thread, std::this_thread::get_id());
}

TEST_F(EventStoreBeside, StoresWhatAWriteWantsToKeepBeforeItIsTold) {
    Outcomes outcomes;
    add(1, outcomes);
    EXPECT_EQ(outcomes.only(loop()).state, State::done);
    EXPECT_EQ(countOfStreams(), 1);
}

TEST_F(EventStoreBeside, TellsOfAWriteThatItDidNotWantToKeep) {
    Outcomes outcomes;
    EXPECT_TRUE(store().writeAsync(
        [](const ZAVRepositories& repositories) { return !addOne(repositories, 1); }, outcomes.completion()));
    const ZAVWorkOutcome outcome = outcomes.only(loop());
    EXPECT_EQ(outcome.state, State::takenBack);
    EXPECT_FALSE(outcome.error);
    EXPECT_EQ(countOfStreams(), 0);
}

TEST_F(EventStoreBeside, HandsOutWhatAWorkThrew) {
    Outcomes ofWrite;
    Outcomes ofRead;
    EXPECT_TRUE(store().writeAsync(
        [](const ZAVRepositories& repositories) -> bool {
            addOne(repositories, 1);
            throw std::runtime_error("mine");
        },
        ofWrite.completion()));
    EXPECT_TRUE(store().readAsync([](const ZAVRepositories&) { throw std::runtime_error("mine"); },
                                  ofRead.completion()));
    for (Outcomes* const outcomes : {&ofWrite, &ofRead}) {
        const ZAVWorkOutcome outcome = outcomes->only(loop());
        EXPECT_EQ(outcome.state, State::failed);
        EXPECT_FALSE(outcome.error);
        ASSERT_TRUE(outcome.thrown);
        EXPECT_THROW(std::rethrow_exception(outcome.thrown), std::runtime_error);
    }
    EXPECT_EQ(countOfStreams(), 0);
}

TEST_F(EventStoreBeside, TellsWhyAWriteFailedThatTheEngineTookBack) {
    Outcomes outcomes;
    EXPECT_TRUE(store().writeAsync(
        [](const ZAVRepositories& repositories) {
            addOne(repositories, 1);
            repositories.events.database().executeUpdate(
                "INSERT OR ROLLBACK INTO streams (stream_id) VALUES (?)", ZAVDataFromUUID(uuidNumber(1)));
            return true;
        },
        outcomes.completion()));
    constexpr int uniqueConstraint = 2067;  // the engine's
    const ZAVWorkOutcome outcome = outcomes.only(loop());
    EXPECT_EQ(outcome.state, State::failed);
    EXPECT_EQ(outcome.error.code(), uniqueConstraint) << outcome.error.description();
}

TEST_F(EventStoreBeside, RunsWritesInTheOrderInWhichTheyWereGiven) {
    constexpr int writes = 50;
    std::vector<int> order;
    Halt halt;
    occupyWriter(halt);
    Outcomes outcomes;
    for (int number = 0; number < writes; ++number) {
        EXPECT_TRUE(store().writeAsync(
            [&order, number](const ZAVRepositories&) {
                order.push_back(number);
                return true;
            },
            outcomes.completion()));
    }
    halt.letGo();
    // A write of this thread takes its turn behind them.
    EXPECT_TRUE(store().write([&](const ZAVRepositories&) {
        order.push_back(writes);
        return true;
    }));
    std::vector<int> expected;
    for (int number = 0; number <= writes; ++number) {
        expected.push_back(number);
    }
    EXPECT_EQ(order, expected);
}

TEST_F(EventStoreBeside, ReadsWithoutWaitingForQueuedWrites) {
    writeStream(1);
    Halt halt;
    occupyWriter(halt);
    Outcomes ofWrite;
    add(2, ofWrite);
    Outcomes ofRead;
    EXPECT_TRUE(
        store().readAsync([](const ZAVRepositories& repositories) { EXPECT_EQ(countOf(repositories), 1); },
                          ofRead.completion()));
    EXPECT_EQ(ofRead.only(loop()).state, State::done);
    EXPECT_TRUE(ofWrite.all().empty());
    halt.letGo();
    EXPECT_EQ(ofWrite.only(loop()).state, State::done);
}

TEST_F(EventStoreBeside, RunsAsManyReadsAtOnceAsItHasHandles) {
    std::latch all(4);
    Outcomes outcomes;
    for (int number = 0; number < 4; ++number) {
        EXPECT_TRUE(
            store().readAsync([&](const ZAVRepositories&) { all.arrive_and_wait(); }, outcomes.completion()));
    }
    loop().runUntil([&] { return outcomes.all().size() == 4; });
}

TEST_F(EventStoreBeside, LetsAWorkGiveItAnother) {
    Outcomes outcomes;
    EXPECT_TRUE(store().readAsync(
        [&](const ZAVRepositories&) {
            EXPECT_TRUE(store().writeAsync(
                [](const ZAVRepositories& repositories) { return addOne(repositories, 1); },
                outcomes.completion()));
        },
        {}));
    EXPECT_EQ(outcomes.only(loop()).state, State::done);
    EXPECT_EQ(countOfStreams(), 1);
}

TEST_F(EventStoreBeside, LetsACompletionUseTheStore) {
    bool isOver = false;
    EXPECT_TRUE(
        store().writeAsync([](const ZAVRepositories& repositories) { return addOne(repositories, 1); },
                           [&](const ZAVWorkOutcome&) {
                               writeStream(2);
                               EXPECT_EQ(countOfStreams(), 2);
                               isOver = true;
                           }));
    loop().runUntil([&] { return isOver; });
}

TEST_F(EventStoreBeside, LetsGoOfAWorkBeforeItTells) {
    const auto held = std::make_shared<int>(0);
    bool isOver = false;
    EXPECT_TRUE(store().readAsync([held](const ZAVRepositories&) {},
                                  [&, watched = std::weak_ptr<int>(held)](const ZAVWorkOutcome&) {
                                      EXPECT_EQ(watched.use_count(), 1) << "the test's own";
                                      isOver = true;
                                  }));
    loop().runUntil([&] { return isOver; });
}

TEST_F(EventStoreBeside, RefusesAWorkThatItCouldNotTellTheEndOf) {
    const auto mute = open({});
    ZAVError error;
    EXPECT_FALSE(mute->readAsync([](const ZAVRepositories&) {}, {}, {}, &error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 7") << error.description();
}

// Cancelling

TEST_F(EventStoreBeside, NeverRunsAWorkThatIsCancelledWhileItWaits) {
    Halt halt;
    occupyWriter(halt);
    Outcomes outcomes;
    const auto work = store().writeAsync(
        [](const ZAVRepositories&) {
            ADD_FAILURE() << "the work was called";
            return true;
        },
        outcomes.completion());
    ASSERT_TRUE(work);
    EXPECT_TRUE(work->cancel());
    EXPECT_EQ(outcomes.only(loop()).state, State::cancelled) << "told at once, while the writer is busy";
    EXPECT_TRUE(work->cancel()) << "it is cancelled";
    halt.letGo();
    writeStream(1);
    EXPECT_EQ(outcomes.all().size(), 1U);
}

TEST_F(EventStoreBeside, EndsAStatementThatRunsAndTakesTheWriteBack) {
    std::latch begun(1);
    Outcomes outcomes;
    const auto work = store().writeAsync(
        [&](const ZAVRepositories& repositories) {
            addOne(repositories, 1);
            FMDatabase& database = repositories.events.database();
            begun.count_down();
            EXPECT_FALSE(database.executeUpdate(endless));
            EXPECT_EQ(database.lastError().code() & 0xFF, interrupted);
            EXPECT_FALSE(addOne(repositories, 2)) << "nothing more runs";
            EXPECT_FALSE(database.executeStatements("SELECT 1"));
            return true;
        },
        outcomes.completion());
    begun.wait();
    std::this_thread::sleep_for(20ms);  // so that the statement has begun, as a rule
    EXPECT_TRUE(work->cancel());
    EXPECT_EQ(outcomes.only(loop()).state, State::cancelled);
    EXPECT_EQ(countOfStreams(), 0);
    writeStream(3);
    EXPECT_EQ(countOfStreams(), 1) << "the handle's next work is not hit";
}

TEST_F(EventStoreBeside, EndsAStatementOfAReadThatRuns) {
    ZAVEventStoreOptions options = optionsWithLoop();
    options.readers = 1;
    const auto narrow = open(options);
    std::latch begun(1);
    Outcomes outcomes;
    const auto work = narrow->readAsync(
        [&](const ZAVRepositories& repositories) {
            begun.count_down();
            EXPECT_FALSE(repositories.events.database().executeUpdate(endless));
        },
        outcomes.completion());
    begun.wait();
    EXPECT_TRUE(work->cancel());
    EXPECT_EQ(outcomes.only(loop()).state, State::cancelled);
    EXPECT_TRUE(
        narrow->read([](const ZAVRepositories& repositories) { EXPECT_EQ(countOf(repositories), 0); }));
}

TEST_F(EventStoreBeside, CancelsAWorkBetweenItsStatements) {
    Halt halt;
    Outcomes outcomes;
    const auto work = store().writeAsync(
        [&](const ZAVRepositories& repositories) {
            addOne(repositories, 1);
            halt.pass();
            EXPECT_FALSE(addOne(repositories, 2));
            return true;
        },
        outcomes.completion());
    halt.awaitArrival();
    EXPECT_TRUE(work->cancel());
    halt.letGo();
    EXPECT_EQ(outcomes.only(loop()).state, State::cancelled);
    EXPECT_EQ(countOfStreams(), 0);
}

TEST_F(EventStoreBeside, CancelsAWriteWithinAWriteWithTheOuterOne) {
    Halt halt;
    Outcomes outcomes;
    const auto work = store().writeAsync(
        [&](const ZAVRepositories& repositories) {
            addOne(repositories, 1);
            EXPECT_FALSE(store().write([&](const ZAVRepositories& inner) {
                addOne(inner, 2);
                halt.pass();
                return true;
            }));
            return true;
        },
        outcomes.completion());
    halt.awaitArrival();
    EXPECT_TRUE(work->cancel());
    halt.letGo();
    EXPECT_EQ(outcomes.only(loop()).state, State::cancelled);
    EXPECT_EQ(countOfStreams(), 0);
    writeStream(3);
    EXPECT_EQ(countOfStreams(), 1);
}

TEST_F(EventStoreBeside, SaysThatAWorkWasDoneWhenItIsCancelledTooLate) {
    Outcomes outcomes;
    const auto work = store().writeAsync(
        [](const ZAVRepositories& repositories) { return addOne(repositories, 1); }, outcomes.completion());
    EXPECT_EQ(outcomes.only(loop()).state, State::done);
    EXPECT_FALSE(work->cancel());
    EXPECT_EQ(countOfStreams(), 1);
}

TEST_F(EventStoreBeside, AgreesWithCancelOnHowEachWorkEnded) {
    constexpr int rounds = 200;
    int kept = 0;
    for (int round = 0; round < rounds; ++round) {
        Outcomes outcomes;
        const auto work = store().writeAsync(
            [round](const ZAVRepositories& repositories) {
                return repositories.events.database().executeUpdate("INSERT INTO streams (seq) VALUES (?)",
                                                                    round);
            },
            outcomes.completion());
        std::this_thread::sleep_for(std::chrono::microseconds(round));
        const bool isCancelled = work->cancel();
        EXPECT_EQ(outcomes.only(loop()).state, isCancelled ? State::cancelled : State::done);
        kept += isCancelled ? 0 : 1;
    }
    EXPECT_EQ(countOfStreams(), kept);
}

TEST_F(EventStoreBeside, EndsAWaitForALockWhenTheWorkIsCancelled) {
    const auto other = open({});
    Halt halt;
    std::thread holder([&] {
        EXPECT_TRUE(other->write([&](const ZAVRepositories&) {
            halt.pass();
            return true;
        }));
    });
    halt.awaitArrival();
    Outcomes outcomes;
    const auto work = store().writeAsync(
        [](const ZAVRepositories&) {
            ADD_FAILURE() << "the work was called";
            return true;
        },
        outcomes.completion());
    std::this_thread::sleep_for(20ms);  // so that it waits, as a rule
    EXPECT_TRUE(work->cancel());
    EXPECT_EQ(outcomes.only(loop()).state, State::cancelled) << "the lock is still held";
    halt.letGo();
    holder.join();
    writeStream(1);
}

// Deadlines

TEST_F(EventStoreBeside, NeverRunsAWorkWhoseDeadlineHasGoneBy) {
    Halt halt;
    occupyWriter(halt);
    Outcomes outcomes;
    EXPECT_TRUE(store().writeAsync(
        [](const ZAVRepositories&) {
            ADD_FAILURE() << "the work was called";
            return true;
        },
        outcomes.completion(), {std::chrono::steady_clock::now() - 1s}));
    EXPECT_EQ(outcomes.only(loop()).state, State::late) << "told while the writer is busy";
    halt.letGo();
}

TEST_F(EventStoreBeside, EndsAWorkAtItsDeadline) {
    Outcomes outcomes;
    EXPECT_TRUE(store().writeAsync(
        [](const ZAVRepositories& repositories) {
            addOne(repositories, 1);
            EXPECT_FALSE(repositories.events.database().executeUpdate(endless));
            return true;
        },
        outcomes.completion(), {std::chrono::steady_clock::now() + 50ms}));
    EXPECT_EQ(outcomes.only(loop()).state, State::late);
    EXPECT_EQ(countOfStreams(), 0);
}

TEST_F(EventStoreBeside, EndsAWaitForALockAtTheDeadline) {
    const auto other = open({});
    Halt halt;
    std::thread holder([&] {
        EXPECT_TRUE(other->write([&](const ZAVRepositories&) {
            halt.pass();
            return true;
        }));
    });
    halt.awaitArrival();
    Outcomes outcomes;
    EXPECT_TRUE(store().writeAsync([](const ZAVRepositories&) { return true; }, outcomes.completion(),
                                   {std::chrono::steady_clock::now() + 50ms}));
    EXPECT_EQ(outcomes.only(loop()).state, State::late) << "the lock is still held";
    halt.letGo();
    holder.join();
}

TEST_F(EventStoreBeside, DoesNotMindADeadlineThatComesAfterTheEnd) {
    Outcomes outcomes;
    EXPECT_TRUE(
        store().writeAsync([](const ZAVRepositories& repositories) { return addOne(repositories, 1); },
                           outcomes.completion(), {std::chrono::steady_clock::now() + 1h}));
    EXPECT_EQ(outcomes.only(loop()).state, State::done);
}

// Closing

TEST_F(EventStoreBeside, RunsWhatIsQueuedBeforeItIsClosed) {
    Outcomes outcomes;
    for (int number = 1; number <= 5; ++number) {
        add(number, outcomes);
    }
    EXPECT_TRUE(store().close(ZAVEventStore::QueuedWorks::run));
    loop().runWaiting();
    ASSERT_EQ(outcomes.all().size(), 5U);
    for (const ZAVWorkOutcome& outcome : outcomes.all()) {
        EXPECT_EQ(outcome.state, State::done);
    }
    EXPECT_EQ(countOfStreamsIn(*open({})), 5);
}

TEST_F(EventStoreBeside, RefusesWhatIsQueuedWhenItIsClosedSo) {
    Halt halt;
    Outcomes running;
    EXPECT_TRUE(store().writeAsync(
        [&](const ZAVRepositories& repositories) {
            addOne(repositories, 1);
            halt.pass();
            return true;
        },
        running.completion()));
    halt.awaitArrival();
    Outcomes waiting;
    add(2, waiting);
    std::thread closer([&] { EXPECT_TRUE(store().close(ZAVEventStore::QueuedWorks::refused)); });
    ZAVError error;
    while (store().read([](const ZAVRepositories&) {}, &error)) {
        std::this_thread::yield();
    }
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 5") << error.description();
    halt.letGo();
    closer.join();
    EXPECT_EQ(running.only(loop()).state, State::done) << "a work that runs is waited for";
    const ZAVWorkOutcome outcome = waiting.only(loop());
    EXPECT_EQ(outcome.state, State::failed);
    EXPECT_EQ(domainAndCode(outcome.error), "ZAVEventStore 5") << outcome.error.description();
}

TEST_F(EventStoreBeside, RefusesEverythingOnceItIsClosed) {
    EXPECT_TRUE(store().close(ZAVEventStore::QueuedWorks::run));
    EXPECT_TRUE(store().close(ZAVEventStore::QueuedWorks::run)) << "once more changes nothing";
    const auto refuses = [](const auto& call) {
        ZAVError error;
        EXPECT_FALSE(call(&error));
        EXPECT_EQ(domainAndCode(error), "ZAVEventStore 5") << error.description();
    };
    refuses([&](ZAVError* error) { return store().read([](const ZAVRepositories&) {}, error); });
    refuses(
        [&](ZAVError* error) { return store().write([](const ZAVRepositories&) { return true; }, error); });
    refuses([&](ZAVError* error) { return store().readAsync([](const ZAVRepositories&) {}, {}, {}, error); });
    refuses([&](ZAVError* error) {
        return store().writeAsync([](const ZAVRepositories&) { return true; }, {}, {}, error);
    });
    refuses([&](ZAVError* error) { return store().subscribe([](const ZAVStoreCommit&) {}, error); });
    refuses([&](ZAVError* error) { return store().lookForCommitsOfOthers(error); });
}

TEST_F(EventStoreBeside, IsNotClosedInAWorkOfItsOwn) {
    const auto refuses = [&](const ZAVRepositories&) {
        ZAVError error;
        EXPECT_FALSE(store().close(ZAVEventStore::QueuedWorks::run, &error));
        EXPECT_EQ(domainAndCode(error), "ZAVEventStore 6") << error.description();
        return true;
    };
    EXPECT_TRUE(store().read(refuses));
    EXPECT_TRUE(store().write(refuses));
    Outcomes outcomes;
    EXPECT_TRUE(store().writeAsync(refuses, outcomes.completion()));
    EXPECT_EQ(outcomes.only(loop()).state, State::done);
    writeStream(1);
}

TEST_F(EventStoreBeside, FoldsItsLogWhenItIsClosed) {
    writeStream(1);
    EXPECT_EQ(countOfStreams(), 1);
    EXPECT_TRUE(store().close(ZAVEventStore::QueuedWorks::run));
    EXPECT_FALSE(std::filesystem::exists(path() + "-wal"));
}

TEST_F(EventStoreBeside, RunsCompletionsThatComeAfterItIsGone) {
    Outcomes outcomes;
    Halt halt;
    EXPECT_TRUE(store().writeAsync(
        [&](const ZAVRepositories& repositories) {
            halt.pass();
            return addOne(repositories, 1);
        },
        outcomes.completion()));
    halt.awaitArrival();
    Outcomes refused;
    const auto waiting =
        store().writeAsync([](const ZAVRepositories&) { return true; }, refused.completion());
    std::thread later([&] {
        std::this_thread::sleep_for(20ms);
        halt.letGo();
    });
    closeStore();
    later.join();
    EXPECT_TRUE(outcomes.all().empty()) << "the loop has not run yet";
    EXPECT_EQ(outcomes.only(loop()).state, State::done);
    EXPECT_EQ(refused.only(loop()).state, State::failed);
    EXPECT_FALSE(waiting->cancel()) << "it has come to its end";
}

TEST_F(EventStoreBeside, MayBeDestroyedInACompletion) {
    bool isOver = false;
    EXPECT_TRUE(
        store().writeAsync([](const ZAVRepositories& repositories) { return addOne(repositories, 1); },
                           [&](const ZAVWorkOutcome&) {
                               closeStore();
                               isOver = true;
                           }));
    loop().runUntil([&] { return isOver; });
}

}  // namespace
}  // namespace zav::test
