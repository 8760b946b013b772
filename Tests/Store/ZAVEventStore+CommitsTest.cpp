#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVKeyedValuesContext.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Store/EventStoreFixture.h"
#include "Store/MainLoop.h"
#include "Support/DatabaseHandles.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using namespace std::chrono_literals;
using Kind = FMRowChange::Kind;

/// What observers were told, in its order.
class EventStoreCommits : public EventStore {
protected:
    [[nodiscard]] ZAVStoreSubscription subscribe() {
        ZAVError error;
        auto subscription =
            store().subscribe([this](const ZAVStoreCommit& commit) { told_.push_back(commit); }, &error);
        EXPECT_TRUE(subscription) << error.description();
        return subscription;
    }

    [[nodiscard]] const std::vector<ZAVStoreCommit>& told() {
        loop().runWaiting();
        return told_;
    }

    [[nodiscard]] std::size_t toldSoFar() const { return told_.size(); }

    static std::vector<FMRowChange> streamInserted(std::int64_t row) {
        return {{Kind::insertion, "streams", row}};
    }

private:
    std::vector<ZAVStoreCommit> told_;
};

TEST_F(EventStoreCommits, AreToldWithTheRowsThatTheyChanged) {
    const auto subscription = subscribe();
    EXPECT_TRUE(store().write([](const ZAVRepositories& repositories) {
        addStream(repositories, 1);
        addStream(repositories, 2);
        return true;
    }));
    ASSERT_EQ(told().size(), 1U);
    EXPECT_EQ(told().front().changes,
              (std::vector<FMRowChange>{{Kind::insertion, "streams", 1}, {Kind::insertion, "streams", 2}}));
    EXPECT_FALSE(told().front().isByOthers);
}

TEST_F(EventStoreCommits, AreToldOnTheLoopAlone) {
    const auto subscription = subscribe();
    std::thread([&] { writeStream(1); }).join();
    EXPECT_EQ(loop().waiting(), 1U) << "it waits for the loop";
    EXPECT_EQ(told().size(), 1U);
}

TEST_F(EventStoreCommits, AreNotToldOfWhatWasTakenBack) {
    const auto subscription = subscribe();
    EXPECT_FALSE(store().write([](const ZAVRepositories& repositories) {
        addStream(repositories, 1);
        return false;
    }));
    EXPECT_TRUE(store().write([&](const ZAVRepositories& repositories) {
        addStream(repositories, 2);
        EXPECT_FALSE(store().write([](const ZAVRepositories& inner) {
            addStream(inner, 3);
            return false;
        }));
        return true;
    }));
    EXPECT_TRUE(store().write([](const ZAVRepositories&) { return true; })) << "which changes nothing";
    ASSERT_EQ(told().size(), 1U);
    EXPECT_EQ(told().front().changes.size(), 1U);
}

TEST_F(EventStoreCommits, AreToldBeforeTheCompletionOfTheWriteThatMadeThem) {
    constexpr int writes = 30;
    const auto subscription = subscribe();
    std::vector<std::size_t> toldAtCompletion;
    for (int number = 1; number <= writes; ++number) {
        EXPECT_TRUE(store().writeAsync(
            [number](const ZAVRepositories& repositories) {
                addStream(repositories, number);
                return true;
            },
            [&](const ZAVWorkOutcome&) { toldAtCompletion.push_back(toldSoFar()); }));
    }
    loop().runUntil([&] { return toldAtCompletion.size() == writes; });
    for (std::size_t write = 0; write < toldAtCompletion.size(); ++write) {
        EXPECT_GE(toldAtCompletion[write], write + 1);
    }
    ASSERT_EQ(told().size(), static_cast<std::size_t>(writes));
    for (int number = 1; number <= writes; ++number) {
        EXPECT_EQ(told()[static_cast<std::size_t>(number) - 1].changes, streamInserted(number))
            << "in their order";
    }
}

TEST_F(EventStoreCommits, AreToldInTheirOrderWhicheverThreadMadeThem) {
    constexpr int threads = 4;
    constexpr int writes = 50;
    const auto subscription = subscribe();
    std::vector<std::thread> all;
    for (int thread = 0; thread < threads; ++thread) {
        all.emplace_back([&] {
            for (int write = 0; write < writes; ++write) {
                EXPECT_TRUE(store().write([](const ZAVRepositories& repositories) {
                    return repositories.events.database().executeUpdate(
                        "INSERT INTO streams (seq) VALUES (1)");
                }));
            }
        });
    }
    for (std::thread& thread : all) {
        thread.join();
    }
    ASSERT_EQ(told().size(), static_cast<std::size_t>(threads * writes));
    for (std::size_t commit = 0; commit < told().size(); ++commit) {
        EXPECT_EQ(told()[commit].changes, streamInserted(static_cast<std::int64_t>(commit) + 1));
    }
}

TEST_F(EventStoreCommits, TellOfChangedKeyedValues) {
    const auto subscription = subscribe();
    const auto set = [&](const ZAVDictionary& values) {
        EXPECT_TRUE(store().write([&](const ZAVRepositories& repositories) {
            const auto context = ZAVKeyedValuesContext::contextWithTable(
                ZAVKeyedValuesTableRemote, "event", ZAVDatabaseIdentifier(7), ZAVKeyedValuesKeyTypeTransient);
            return repositories.keyedValues.setKeyedValuesWithDictionary(values, std::nullopt, context);
        }));
    };
    ZAVDictionary values;
    values.set("a", std::string("1"));
    values.set("b", std::string("2"));
    set(values);
    set(values);  // which changes nothing
    set({});
    ASSERT_EQ(told().size(), 2U);
    for (const ZAVStoreCommit& commit : told()) {
        EXPECT_EQ(commit.changes,
                  (std::vector<FMRowChange>{{Kind::update, "keyed_values_remote", 7, "event"}}));
    }
}

TEST_F(EventStoreCommits, AreToldToEverybody) {
    int first = 0;
    int second = 0;
    auto one = store().subscribe([&](const ZAVStoreCommit&) { ++first; });
    writeStream(1);
    auto other = store().subscribe([&](const ZAVStoreCommit&) { ++second; });
    writeStream(2);
    loop().runWaiting();
    EXPECT_EQ(first, 2);
    EXPECT_EQ(second, 1);
}

TEST_F(EventStoreCommits, AreToldWithoutTheirRowsToOneWhoCameInTheMiddle) {
    std::optional<ZAVStoreSubscription> subscription;
    EXPECT_TRUE(store().write([&](const ZAVRepositories& repositories) {
        addStream(repositories, 1);
        subscription = subscribe();
        return true;
    }));
    ASSERT_EQ(told().size(), 1U);
    EXPECT_TRUE(told().front().changes.empty());
    writeStream(2);
    ASSERT_EQ(told().size(), 2U);
    EXPECT_EQ(told().back().changes, streamInserted(2));
}

// Ending

TEST_F(EventStoreCommits, AreToldNoMoreOnceASubscriptionHasEnded) {
    auto subscription = subscribe();
    writeStream(1);
    subscription.end();
    EXPECT_FALSE(subscription);
    EXPECT_TRUE(told().empty()) << "also of a commit that came before";
    writeStream(2);
    EXPECT_EQ(loop().waiting(), 0U);
}

TEST_F(EventStoreCommits, AreToldNoMoreWhenASubscriptionIsGivenUpInACall) {
    int calls = 0;
    ZAVStoreSubscription subscription = store().subscribe([&](const ZAVStoreCommit&) {
        ++calls;
        subscription.end();
        ++calls;
    });
    writeStream(1);
    writeStream(2);
    loop().runWaiting();
    EXPECT_EQ(calls, 2);
}

TEST_F(EventStoreCommits, HaveACallWaitedForThatRunsOnAnotherThread) {
    std::atomic<bool> isInCall = false;
    std::atomic<bool> mayEnd = false;
    bool isOver = false;
    ZAVStoreSubscription subscription = store().subscribe([&](const ZAVStoreCommit&) {
        isInCall = true;
        while (!mayEnd) {
            std::this_thread::yield();
        }
        isOver = true;
    });
    writeStream(1);
    std::thread ofLoop([&] { loop().runWaiting(); });
    while (!isInCall) {
        std::this_thread::yield();
    }
    std::thread later([&] {
        std::this_thread::sleep_for(20ms);
        mayEnd = true;
    });
    subscription.end();
    EXPECT_TRUE(isOver);
    later.join();
    ofLoop.join();
}

TEST_F(EventStoreCommits, AreToldAfterTheStoreIsGone) {
    const auto subscription = subscribe();
    writeStream(1);
    closeStore();
    EXPECT_EQ(told().size(), 1U);
}

TEST_F(EventStoreCommits, LetGoOfAnObserverThatIsOver) {
    const auto held = std::make_shared<int>(0);
    {
        const auto subscription = store().subscribe([held](const ZAVStoreCommit&) {});
        EXPECT_EQ(held.use_count(), 2);
    }
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(EventStoreCommits, CannotBeToldWithoutAnExecutor) {
    const auto mute = open({});
    ZAVError error;
    EXPECT_FALSE(mute->subscribe([](const ZAVStoreCommit&) {}, &error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 7") << error.description();
}

// Of others

TEST_F(EventStoreCommits, OfOthersAreToldWhenTheStoreIsAskedToLook) {
    const auto subscription = subscribe();
    EXPECT_EQ(store().lookForCommitsOfOthers(), std::optional(false));
    writeStream(1);
    EXPECT_EQ(store().lookForCommitsOfOthers(), std::optional(false)) << "its own is none";
    EXPECT_TRUE(openHandle(path())->executeUpdate("INSERT INTO streams (seq) VALUES (1)"));
    EXPECT_EQ(store().lookForCommitsOfOthers(), std::optional(true));
    EXPECT_EQ(store().lookForCommitsOfOthers(), std::optional(false)) << "it was told of";
    ASSERT_EQ(told().size(), 2U);
    EXPECT_TRUE(told().back().isByOthers);
    EXPECT_TRUE(told().back().changes.empty());
}

TEST_F(EventStoreCommits, OfOthersAreFoundAlsoWhenTheStoreHasWrittenSince) {
    const auto subscription = subscribe();
    EXPECT_TRUE(openHandle(path())->executeUpdate("INSERT INTO streams (seq) VALUES (1)"));
    writeStream(1);
    EXPECT_EQ(store().lookForCommitsOfOthers(), std::optional(true));
}

TEST_F(EventStoreCommits, OfOthersAreLookedForAtAnIntervalWhileSomebodyIsTold) {
    ZAVEventStoreOptions options = optionsWithLoop();
    options.lookForCommitsOfOthersEvery = 5ms;
    const auto looking = open(options);
    bool isTold = false;
    const auto subscription =
        looking->subscribe([&](const ZAVStoreCommit& commit) { isTold = isTold || commit.isByOthers; });
    EXPECT_TRUE(openHandle(path())->executeUpdate("INSERT INTO streams (seq) VALUES (1)"));
    loop().runUntil([&] { return isTold; });
    EXPECT_TRUE(openHandle(path())->executeUpdate("INSERT INTO streams (seq) VALUES (1)"));
    isTold = false;
    loop().runUntil([&] { return isTold; });
}

}  // namespace
}  // namespace zav::test
