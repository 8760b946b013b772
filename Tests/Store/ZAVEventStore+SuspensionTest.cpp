#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Store/EventStoreFixture.h"
#include "Store/MainLoop.h"
#include "Support/DatabaseHandles.h"
#include "Support/FileLocks.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using SuspendedWorks = ZAVEventStore::SuspendedWorks;
using Ended = ZAVWorkOutcome::State;

/// A statement that takes longer than any test.
constexpr const char* withoutEnd =
    "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT count(*) FROM n";

constexpr const char* suspendedCode = "ZAVEventStore 16";

std::chrono::steady_clock::time_point soon() {
    return std::chrono::steady_clock::now() + std::chrono::seconds(10);
}

/// The application's own code, which a work stands in until the test lets it go on.
class OwnCode {
public:
    void run() {
        reached_.count_down();
        goOn_.get_future().wait();
    }
    void awaitBegin() { reached_.wait(); }
    void end() { goOn_.set_value(); }

private:
    std::latch reached_{1};
    std::promise<void> goOn_;
};

class EventStoreAsleep : public EventStore {
protected:
    void suspend(SuspendedWorks waiting = SuspendedWorks::wait) {
        ZAVError error;
        EXPECT_TRUE(store().suspend(soon(), waiting, &error)) << error.description();
        EXPECT_EQ(locksOn(path()), std::vector<std::string>());
    }

    void resume() {
        ZAVError error;
        EXPECT_TRUE(store().resume(&error)) << error.description();
    }

    void addBeside(int number, Outcomes& outcomes) {
        EXPECT_TRUE(store().writeAsync(
            [number](const ZAVRepositories& repositories) {
                addStream(repositories, number);
                return true;
            },
            outcomes.completion()));
    }

    /// Has a work of this name stand in the application's own code.
    void occupyWriter(OwnCode& code, Outcomes& outcomes, const std::string& name = "") {
        ZAVWorkOptions options;
        options.name = name;
        EXPECT_TRUE(store().writeAsync(
            [&code](const ZAVRepositories& repositories) {
                addStream(repositories, 1);
                code.run();
                return true;
            },
            outcomes.completion(), options));
        code.awaitBegin();
    }

    static void expectSuspended(const ZAVWorkOutcome& outcome) {
        EXPECT_EQ(outcome.state, Ended::failed);
        EXPECT_EQ(domainAndCode(outcome.error), suspendedCode) << outcome.error.description();
    }

    void awaitNoLock() const {
        const auto end = soon();
        while (!locksOn(path()).empty() && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(1ms);
        }
        EXPECT_EQ(locksOn(path()), std::vector<std::string>());
    }
};

TEST_F(EventStoreAsleep, HoldsNoLockAndHasItsLogFolded) {
    writeStream(1);
    EXPECT_EQ(countOfStreams(), 1);
    EXPECT_FALSE(locksOn(path()).empty()) << "an open handle always holds one";
    suspend();
    EXPECT_FALSE(fs::exists(path() + "-wal"));
    suspend();  // once more changes nothing
    resume();
    EXPECT_EQ(countOfStreams(), 1);
    writeStream(2);
    EXPECT_EQ(countOfStreams(), 2);
    resume();
    EXPECT_EQ(countOfStreams(), 2);
}

TEST_F(EventStoreAsleep, LeavesItsLogWhenThereIsNoTimeToFoldIt) {
    writeStream(1);
    EXPECT_EQ(countOfStreams(), 1);
    ZAVError error;
    EXPECT_TRUE(store().suspend(std::chrono::steady_clock::now(), SuspendedWorks::wait, &error))
        << error.description();
    EXPECT_EQ(locksOn(path()), std::vector<std::string>());
    EXPECT_GT(fs::file_size(path() + "-wal"), 0U);
    resume();
    EXPECT_EQ(countOfStreams(), 1);
}

TEST_F(EventStoreAsleep, RefusesEveryCallWithAnErrorOfItsOwn) {
    suspend();
    const auto refuses = [](const auto& call) {
        ZAVError error;
        EXPECT_FALSE(call(&error));
        EXPECT_EQ(domainAndCode(error), suspendedCode) << error.description();
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
    refuses([&](ZAVError* error) { return store().missingSequences(uuidNumber(1), 1, error); });
    refuses([&](ZAVError* error) { return store().makeTombstone(uuidNumber(1), 1, error); });
    store().releaseMemory();
    EXPECT_EQ(locksOn(path()), std::vector<std::string>()) << "nothing was opened for them";
}

// Works that run

TEST_F(EventStoreAsleep, EndsReadsThatRun) {
    std::latch begun(2);
    const auto readOn = [&](const ZAVRepositories& repositories) {
        auto rows = repositories.events.database().executeQuery(withoutEnd);
        begun.count_down();
        EXPECT_TRUE(rows);
        EXPECT_FALSE(rows && rows->next());
    };
    Outcomes outcomes;
    EXPECT_TRUE(store().readAsync(readOn, outcomes.completion()));
    std::thread reader([&] {
        ZAVError error;
        EXPECT_FALSE(store().read(readOn, &error));
        EXPECT_EQ(domainAndCode(error), suspendedCode) << error.description();
    });
    begun.wait();
    suspend();
    reader.join();
    expectSuspended(outcomes.only(loop()));
}

TEST_F(EventStoreAsleep, TakesBackAWriteThatRuns) {
    std::latch begun(1);
    std::thread writer([&] {
        ZAVError error;
        EXPECT_FALSE(store().write(
            [&](const ZAVRepositories& repositories) {
                addStream(repositories, 1);
                begun.count_down();
                EXPECT_FALSE(repositories.events.database().executeUpdate(withoutEnd));
                return true;
            },
            &error));
        EXPECT_EQ(domainAndCode(error), suspendedCode) << error.description();
    });
    begun.wait();
    suspend();
    writer.join();
    resume();
    EXPECT_EQ(countOfStreams(), 0);
    writeStream(2);
}

TEST_F(EventStoreAsleep, EndsAWriteThatWaitsForTheLockOfAnother) {
    ZAVEventStoreOptions options = optionsWithLoop();
    options.database.busyTimeout = 1h;
    const auto patient = open(options);
    closeStore();
    const auto other = openHandle(path());
    auto transaction = ZAVTransaction::begin(*other);
    ASSERT_TRUE(transaction);
    std::atomic<bool> hasBegun = false;
    Outcomes outcomes;
    EXPECT_TRUE(patient->writeAsync(
        [&](const ZAVRepositories&) {
            hasBegun = true;
            return true;
        },
        outcomes.completion()));
    std::this_thread::sleep_for(20ms);
    ZAVError error;
    EXPECT_TRUE(patient->suspend(soon(), SuspendedWorks::wait, &error)) << error.description();
    EXPECT_FALSE(hasBegun);
    EXPECT_TRUE(transaction->commit());
    EXPECT_TRUE(patient->resume(&error)) << error.description();
    loop().runWaiting();
    if (!outcomes.all().empty()) {
        expectSuspended(outcomes.all().front());
    }
}

TEST_F(EventStoreAsleep, LetsACommitStandThatWaitsForReaders) {
    closeStore();
    ZAVEventStoreOptions options = optionsWithLoop();
    options.database.writeAheadLogPages = 1;
    options.database.writeAheadLogCeiling = 1;
    options.database.writeAheadLogWait = 1h;
    const auto waiting = open(options);
    const auto other = openHandle(path());
    auto reading = other->executeQuery("SELECT 1 FROM sqlite_master");
    ASSERT_TRUE(reading && reading->next());
    std::atomic<bool> isInCommit = false;
    std::thread writer([&] {
        ZAVError error;
        EXPECT_TRUE(waiting->write(
            [&](const ZAVRepositories& repositories) {
                addStream(repositories, 1);
                isInCommit = true;
                return true;
            },
            &error))
            << error.description();
    });
    while (!isInCommit) {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(50ms);
    ZAVError error;
    EXPECT_TRUE(waiting->suspend(soon(), SuspendedWorks::wait, &error)) << error.description();
    writer.join();
    EXPECT_EQ(scalar(*openHandle(path()), "SELECT COUNT(*) FROM streams"), "1");
}

TEST_F(EventStoreAsleep, NamesTheWorkThatStillRunsAtTheDeadline) {
    OwnCode code;
    Outcomes outcomes;
    occupyWriter(code, outcomes, "import of history");
    ZAVError error;
    EXPECT_FALSE(store().suspend(std::chrono::steady_clock::now() + 20ms, SuspendedWorks::wait, &error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 18") << error.description();
    EXPECT_NE(error.message().find("the write \"import of history\" on thread "), std::string::npos)
        << error.message();
    EXPECT_FALSE(store().read([](const ZAVRepositories&) {}, &error));
    EXPECT_EQ(domainAndCode(error), suspendedCode) << "it takes no work; " << error.description();
    EXPECT_FALSE(locksOn(path()).empty());
    code.end();
    awaitNoLock();  // though nobody asks again
    expectSuspended(outcomes.only(loop()));
    suspend();
    resume();
    EXPECT_EQ(countOfStreams(), 0) << "what it wrote was taken back";
}

TEST_F(EventStoreAsleep, NamesAReadByItsThread) {
    OwnCode code;
    std::thread reader([&] {
        ZAVError error;
        EXPECT_FALSE(store().read([&](const ZAVRepositories&) { code.run(); }, &error));
        EXPECT_EQ(domainAndCode(error), suspendedCode) << error.description();
    });
    code.awaitBegin();
    ZAVError error;
    EXPECT_FALSE(store().suspend(std::chrono::steady_clock::now(), SuspendedWorks::wait, &error));
    EXPECT_EQ(error.message().find("a read on thread "), 0U) << error.message();
    code.end();
    reader.join();
    EXPECT_EQ(locksOn(path()), std::vector<std::string>());
}

TEST_F(EventStoreAsleep, GoesOnBesideAWorkThatKeptItAwake) {
    OwnCode code;
    Outcomes outcomes;
    occupyWriter(code, outcomes);
    EXPECT_FALSE(store().suspend(std::chrono::steady_clock::now()));
    resume();
    EXPECT_EQ(countOfStreams(), 0);
    code.end();
    expectSuspended(outcomes.only(loop()));
    writeStream(2);
    EXPECT_EQ(countOfStreams(), 1);
}

TEST_F(EventStoreAsleep, CannotFallAsleepWithinAWork) {
    const auto refuses = [&](const ZAVRepositories&) {
        ZAVError error;
        EXPECT_FALSE(store().suspend(soon(), SuspendedWorks::wait, &error));
        EXPECT_EQ(domainAndCode(error), "ZAVEventStore 17") << error.description();
        return true;
    };
    EXPECT_TRUE(store().read(refuses));
    EXPECT_TRUE(store().write(refuses));
    writeStream(1);
}

// Works that wait

TEST_F(EventStoreAsleep, TurnsAwayCallersThatWaitForTheirTurn) {
    OwnCode code;
    Outcomes outcomes;
    Outcomes queued;
    occupyWriter(code, outcomes);
    addBeside(2, queued);
    std::thread caller([&] {
        ZAVError error;
        EXPECT_FALSE(store().write(
            [&](const ZAVRepositories&) {
                ADD_FAILURE() << "it runs";
                return true;
            },
            &error));
        EXPECT_EQ(domainAndCode(error), suspendedCode) << error.description();
    });
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(store().suspend(std::chrono::steady_clock::now()));
    caller.join();
    code.end();
    suspend();
    resume();
    EXPECT_EQ(queued.only(loop()).state, Ended::done) << "though the one behind it has gone";
}

TEST_F(EventStoreAsleep, RunsWhatWaitedWhenItIsAwake) {
    OwnCode code;
    Outcomes running;
    Outcomes queued;
    occupyWriter(code, running);
    for (int number = 2; number <= 6; ++number) {
        addBeside(number, queued);
    }
    std::thread([&] { EXPECT_FALSE(store().suspend(std::chrono::steady_clock::now())); }).join();
    code.end();
    suspend();
    expectSuspended(running.only(loop()));
    EXPECT_TRUE(queued.all().empty());
    resume();
    loop().runUntil([&] { return queued.all().size() == 5; });
    EXPECT_EQ(countOfStreams(), 5);
}

TEST_F(EventStoreAsleep, RefusesWhatWaitsWhenItIsToldTo) {
    OwnCode code;
    Outcomes running;
    Outcomes queued;
    occupyWriter(code, running);
    for (int number = 2; number <= 6; ++number) {
        addBeside(number, queued);
    }
    EXPECT_FALSE(store().suspend(std::chrono::steady_clock::now(), SuspendedWorks::refused));
    code.end();
    suspend(SuspendedWorks::refused);
    resume();
    loop().runWaiting();
    ASSERT_EQ(queued.all().size(), 5U);
    for (const ZAVWorkOutcome& outcome : queued.all()) {
        expectSuspended(outcome);
    }
    EXPECT_EQ(countOfStreams(), 0);
}

TEST_F(EventStoreAsleep, KeepsTheDeadlinesOfWhatWaits) {
    OwnCode code;
    Outcomes running;
    Outcomes late;
    occupyWriter(code, running);
    ZAVWorkOptions options;
    options.deadline = std::chrono::steady_clock::now() + 30ms;
    EXPECT_TRUE(store().writeAsync([](const ZAVRepositories&) { return true; }, late.completion(), options));
    EXPECT_FALSE(store().suspend(std::chrono::steady_clock::now()));
    code.end();
    suspend();
    EXPECT_EQ(late.only(loop()).state, Ended::late) << "it is told while the store sleeps";
}

// Waking up

TEST_F(EventStoreAsleep, IsNotAwakeWhenItsFileCannotBeOpenedAndCanBeTriedAgain) {
    writeStream(1);
    suspend();
    fs::rename(path(), path() + ".away");
    ZAVError error;
    EXPECT_FALSE(store().resume(&error));
    EXPECT_TRUE(error);
    EXPECT_FALSE(fs::exists(path())) << "no new one is made in its place";
    EXPECT_FALSE(store().read([](const ZAVRepositories&) {}, &error));
    EXPECT_EQ(domainAndCode(error), suspendedCode) << error.description();
    fs::rename(path() + ".away", path());
    resume();
    EXPECT_EQ(countOfStreams(), 1);
}

TEST_F(EventStoreAsleep, TellsOnceThatOthersMayHaveCommitted) {
    std::vector<ZAVStoreCommit> told;
    const auto subscription =
        store().subscribe([&](const ZAVStoreCommit& commit) { told.push_back(commit); });
    writeStream(1);
    suspend();
    run(*openHandle(path()), "INSERT INTO streams (stream_id) VALUES (x'22')");
    loop().runWaiting();
    EXPECT_EQ(told.size(), 1U);
    resume();
    loop().runWaiting();
    ASSERT_EQ(told.size(), 2U);
    EXPECT_TRUE(told[1].isByOthers);
    EXPECT_TRUE(told[1].changes.empty()) << "anything may have changed";
    EXPECT_EQ(store().lookForCommitsOfOthers(), false) << "that was told";
    writeStream(3);
    loop().runWaiting();
    ASSERT_EQ(told.size(), 3U);
    EXPECT_FALSE(told[2].isByOthers);
    EXPECT_EQ(told[2].changes.size(), 1U) << "its rows are told as before";
    run(*openHandle(path()), "INSERT INTO streams (stream_id) VALUES (x'44')");
    EXPECT_EQ(store().lookForCommitsOfOthers(), true);
}

TEST_F(EventStoreAsleep, LooksForCommitsOfOthersAgain) {
    closeStore();
    ZAVEventStoreOptions options = optionsWithLoop();
    options.lookForCommitsOfOthersEvery = 5ms;
    const auto looking = open(options);
    std::size_t told = 0;
    const auto subscription = looking->subscribe([&](const ZAVStoreCommit&) { ++told; });
    EXPECT_TRUE(looking->suspend(soon()));
    std::this_thread::sleep_for(30ms);
    EXPECT_TRUE(looking->resume());
    loop().runUntil([&] { return told == 1; });
    run(*openHandle(path()), "INSERT INTO streams (stream_id) VALUES (x'22')");
    loop().runUntil([&] { return told >= 2; });
}

// The end

TEST_F(EventStoreAsleep, MayBeClosedAndRefusesWhatWaits) {
    OwnCode code;
    Outcomes running;
    Outcomes queued;
    occupyWriter(code, running);
    addBeside(2, queued);
    EXPECT_FALSE(store().suspend(std::chrono::steady_clock::now()));
    code.end();
    suspend();
    EXPECT_TRUE(store().close(ZAVEventStore::QueuedWorks::run));
    const ZAVWorkOutcome outcome = queued.only(loop());
    EXPECT_EQ(outcome.state, Ended::failed);
    EXPECT_EQ(domainAndCode(outcome.error), "ZAVEventStore 5") << outcome.error.description();
    ZAVError error;
    EXPECT_FALSE(store().resume(&error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 5") << error.description();
    EXPECT_FALSE(store().suspend(soon(), SuspendedWorks::wait, &error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 5") << error.description();
    EXPECT_EQ(locksOn(path()), std::vector<std::string>());
}

TEST_F(EventStoreAsleep, MayBeDestroyed) {
    writeStream(1);
    suspend();
    closeStore();
    EXPECT_EQ(countOfStreamsIn(*open({})), 1);
}

TEST_F(EventStoreAsleep, MayBeDestroyedWhileAWorkKeepsItAwake) {
    OwnCode code;
    Outcomes running;
    occupyWriter(code, running);
    EXPECT_FALSE(store().suspend(std::chrono::steady_clock::now()));
    std::thread later([&] {
        std::this_thread::sleep_for(20ms);
        code.end();
    });
    closeStore();
    later.join();
    expectSuspended(running.only(loop()));
}

// Memory

TEST_F(EventStoreAsleep, GivesItsCachesBackWhenItIsAskedTo) {
    constexpr int streams = 20000;
    EXPECT_TRUE(store().write([](const ZAVRepositories& repositories) {
        run(repositories.events.database(),
            "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT 20000)"
            " INSERT INTO streams (stream_id) SELECT randomblob(100) FROM n");
        return true;
    }));
    EXPECT_EQ(countOfStreams(), streams);
    const auto before = sqlite3_memory_used();
    if (before == 0) {
        GTEST_SKIP() << "this engine does not count its memory";
    }
    store().releaseMemory();
    EXPECT_LT(sqlite3_memory_used(), before - 2'000'000);
    EXPECT_EQ(countOfStreams(), streams);
    EXPECT_TRUE(store().write([&](const ZAVRepositories& repositories) {
        store().releaseMemory();  // when the work is over
        addStream(repositories, 1);
        return countOf(repositories) == streams + 1;
    }));
}

}  // namespace
}  // namespace zav::test
