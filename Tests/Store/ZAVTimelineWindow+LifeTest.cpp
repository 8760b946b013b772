#include <ZAVEventRepository/ZAVKeyedValuesContext.h>
#include <ZAVEventRepository/ZAVTimelineWindow.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Store/WindowFixture.h"
#include "Support/Tool.h"

namespace zav::test {
namespace {

using namespace std::chrono_literals;

class LifeOfAWindow : public WindowStore {
protected:
    /// Waits until everything that was committed before is on the screen, by a commit that changes it.
    void settle() {
        const std::string mark = "mark " + std::to_string(++marks_);
        execute("UPDATE events SET creator_name = '" + mark + "' WHERE seq = 1");
        loop().runUntil([&] {
            const auto& events = screen().last().page.events;
            return !events.empty() && events.front()->creator_name() == mark;
        });
    }

    void awaitText(const std::string& expected) {
        loop().runUntil([&] { return text() == expected; });
    }

private:
    int marks_ = 0;
};

// Extending and trimming

TEST_F(LifeOfAWindow, is_extended_on_both_sides) {
    addSequences({1, 2, 3, 4, 5, 6});
    const auto window = show({.count = 2, .around = ZAVSequence{4}});
    EXPECT_EQ(text(), "... 3 4 ...");
    after([&] { window->extendEarlier(1); });
    EXPECT_EQ(text(), "... 2 3 4 ...");
    EXPECT_EQ(screen().steps(), "+ 0");
    after([&] { window->extendLater(1); });
    EXPECT_EQ(text(), "... 2 3 4 5 ...");
    after([&] { window->extendEarlier(100); });
    EXPECT_EQ(text(), "1 2 3 4 5 ...");
    after([&] { window->extendLater(1); });
    EXPECT_EQ(text(), "1 2 3 4 5 6");
    after([&] { addSequences({7}); });
    EXPECT_EQ(text(), "1 2 3 4 5 6 7") << "at the newest end it follows";
}

TEST_F(LifeOfAWindow, follows_no_more_when_the_newest_events_are_trimmed) {
    addSequences({1, 2, 3, 4, 5});
    const auto window = show();
    after([&] { window->trim(at(2), at(4)); });
    EXPECT_EQ(text(), "... 2 3 4 ...");
    EXPECT_EQ(screen().steps(), "- 4, - 0");
    addSequences({6});
    after([&] { execute("DELETE FROM events WHERE seq = 3"); });
    EXPECT_EQ(text(), "... 2 4 ...");
    after([&] { window->extendLater(100); });
    EXPECT_EQ(text(), "... 2 4 5 6");
}

TEST_F(LifeOfAWindow, goes_on_to_follow_when_what_it_told_last_is_to_stay) {
    addSequences({1, 2, 3, 4, 5});
    const auto window = show();
    // What has come since is not known yet to whom trims, and is not let go of.
    addSequences({6});
    window->trim(at(3), at(5));
    awaitText("... 3 4 5 6");
    EXPECT_EQ(text(), "... 3 4 5 6");
    after([&] { addSequences({7}); });
    EXPECT_EQ(text(), "... 3 4 5 6 7");
    after([&] { add(std::nullopt, "waits", 1); });
    const auto cursors = screen().last().page.cursors;
    after([&] { window->trim(cursors.at(4), cursors.back()); });
    EXPECT_EQ(text(), "... 7 waits");
    after([&] { addSequences({8}); });
    EXPECT_EQ(text(), "... 7 8 waits");
}

TEST_F(LifeOfAWindow, is_not_trimmed_by_the_places_of_another_stream) {
    addSequences({1, 2, 3});
    const auto other = ZAVTimelineCursor::atSequence(streamOf(uuidNumber(2)), 2);
    const auto window = show();
    window->trim(other, other);
    settle();
    EXPECT_EQ(text(), "1 2 3");
}

TEST_F(LifeOfAWindow, keeps_waiting_events_in_it_when_its_last_one_gets_its_sequence) {
    addSequences({1});
    add(std::nullopt, "a", 1);
    const ZAVDatabaseIdentifier last = add(std::nullopt, "b", 2);
    add(std::nullopt, "c", 3);
    const auto window = show();
    const auto cursors = screen().last().page.cursors;
    after([&] { window->trim(cursors.at(1), cursors.at(2)); });
    EXPECT_EQ(text(), "... a b ...");
    after([&] { execute("UPDATE events SET seq = 2 WHERE database_identifier = " + std::to_string(last)); });
    EXPECT_EQ(text(), "... a ...") << "it stands before the first one now";
    after([&] { window->extendEarlier(1); });
    EXPECT_EQ(text(), "... b a ...");
}

// When it reads

TEST_F(LifeOfAWindow, tells_nothing_of_commits_that_do_not_change_it) {
    addSequences({1, 2});
    const auto window = show();
    add(std::nullopt, "waits", 1);
    awaitDelivery(2);
    write([&](const ZAVRepositories& repositories) {
        return repositories.streams.findOrCreateStreamWithUUID(uuidNumber(7)) != ZAVDatabaseIdentifierNotSet;
    });
    execute("INSERT INTO events (type, stream_database_identifier, client_id, seq) VALUES (4, 2, X'01', 1)");
    execute("UPDATE events SET type = 4 WHERE seq = 2");
    settle();
    EXPECT_EQ(screen().deliveries(), 3U);
}

TEST_F(LifeOfAWindow, gathers_what_is_committed_within_its_time) {
    addSequences({1});
    Screen patient;
    const auto window =
        ZAVTimelineWindow::open(timeline(), patient.observer(), {.coalescing = std::chrono::hours(1)});
    loop().runUntil([&] { return patient.deliveries() == 1; });
    const auto quick = show();
    for (ZAVSequence seq = 2; seq <= 20; ++seq) {
        addSequences({seq});
    }
    settle();
    EXPECT_EQ(screen().last().page.events.size(), 20U);
    EXPECT_EQ(patient.deliveries(), 1U);
    window->extendEarlier(1);
    loop().runUntil([&] { return patient.deliveries() == 2; });
    EXPECT_EQ(patient.last().page.events.size(), 20U) << "what is asked of it does not wait";
}

TEST_F(LifeOfAWindow, is_read_again_when_its_time_has_come) {
    addSequences({1});
    Screen screen;
    const auto window = ZAVTimelineWindow::open(timeline(), screen.observer(), {.coalescing = 20ms});
    loop().runUntil([&] { return screen.deliveries() == 1; });
    addSequences({2});
    addSequences({3});
    loop().runUntil([&] { return screen.last().page.events.size() == 3; });
    EXPECT_LE(screen.deliveries(), 3U);
}

TEST_F(LifeOfAWindow, waits_for_an_executor_that_is_busy) {
    addSequences({1});
    const auto window = show();
    addSequences({2, 3, 4, 5});
    while (loop().waiting() == 0) {
        std::this_thread::yield();
    }
    addSequences({6, 7, 8, 9});
    EXPECT_EQ(loop().waiting(), 1U) << "one delivery waits, however much is committed";
    loop().runUntil([&] { return screen().last().page.events.size() == 9; });
}

TEST_F(LifeOfAWindow, sees_its_stream_come_into_being) {
    const auto window = show();
    EXPECT_EQ(text(), "");
    after([&] { add(1, "1"); });
    awaitText("1");
}

// Of others

TEST_F(LifeOfAWindow, sees_what_another_handle_commits_once_the_store_has_looked) {
    addSequences({1, 2});
    const auto window = show();
    const auto other = openHandle(path());
    EXPECT_TRUE(other->executeUpdate("DELETE FROM events WHERE seq = 1"));
    after([&] { EXPECT_EQ(store().lookForCommitsOfOthers(), true); });
    EXPECT_EQ(text(), "2");
    EXPECT_TRUE(other->executeUpdate("UPDATE event_content_parts SET transfer_status = 1"));
    after([&] { EXPECT_EQ(store().lookForCommitsOfOthers(), true); });
    EXPECT_EQ(screen().steps(), "~ 0");
}

TEST_F(LifeOfAWindow, sees_what_another_process_commits_while_the_store_looks_for_it) {
    ZAVEventStoreOptions options = optionsWithLoop();
    options.lookForCommitsOfOthersEvery = 5ms;
    const auto looking = open(options);
    addSequences({1, 2});
    Screen screen;
    const auto window = ZAVTimelineWindow::open(ZAVTimeline(*looking, room()), screen.observer());
    loop().runUntil([&] { return screen.deliveries() == 1; });
    const auto tool = runTool({"delete", path(), "--id", "1"});
    EXPECT_EQ(tool.status, 0) << tool.err;
    loop().runUntil([&] { return screen.last().page.events.size() == 1; });
    EXPECT_EQ(screen.steps(), "- 0");
}

// Of a store that is suspended

TEST_F(LifeOfAWindow, tells_once_what_was_committed_while_its_store_was_suspended) {
    addSequences({1, 2, 3});
    const auto window = show();
    ASSERT_TRUE(store().suspend(std::chrono::steady_clock::now() + 10s));
    {
        const auto other = openHandle(path());
        EXPECT_TRUE(other->executeUpdate("DELETE FROM events WHERE seq = 2"));
        EXPECT_TRUE(other->executeUpdate("UPDATE events SET subtype = 7 WHERE seq = 3"));
    }
    loop().runWaiting();
    EXPECT_EQ(screen().deliveries(), 1U) << "it sleeps, which is no failure";
    after([&] { ASSERT_TRUE(store().resume()); });
    EXPECT_EQ(text(), "1 3");
    EXPECT_EQ(screen().steps(), "- 1, ~ 1");
    settle();
    EXPECT_EQ(screen().deliveries(), 3U) << "of what it was told there is no second time";
}

TEST_F(LifeOfAWindow, does_what_was_asked_of_it_when_its_store_is_awake) {
    addSequences({1, 2, 3, 4});
    const auto window = show({.count = 2});
    ASSERT_TRUE(store().suspend(std::chrono::steady_clock::now() + 10s));
    window->extendEarlier(1);
    loop().runWaiting();
    EXPECT_EQ(text(), "... 3 4");
    after([&] { ASSERT_TRUE(store().resume()); });
    EXPECT_EQ(text(), "... 2 3 4");
    ASSERT_TRUE(store().suspend(std::chrono::steady_clock::now() + 10s));
    ZAVError error;
    EXPECT_EQ(ZAVTimelineWindow::open(timeline(), screen().observer(), {}, &error), nullptr);
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 16");
}

TEST_F(LifeOfAWindow, misses_nothing_and_tells_no_failure_when_its_store_is_suspended_as_it_is_read) {
    addSequences({1});
    const auto window = show();
    for (ZAVSequence seq = 2; seq <= 40; ++seq) {
        addSequences({seq});
        ASSERT_TRUE(store().suspend(std::chrono::steady_clock::now() + 10s));
        loop().runWaiting();
        EXPECT_FALSE(screen().last().error) << screen().last().error.description();
        ASSERT_TRUE(store().resume());
    }
    loop().runUntil([&] { return screen().last().page.events.size() == 40; });
    EXPECT_FALSE(screen().last().error) << screen().last().error.description();
}

// Failing

TEST_F(LifeOfAWindow, keeps_what_it_holds_when_it_cannot_be_read_and_tries_again_with_the_next_commit) {
    addSequences({1, 2});
    const auto window = show();
    const auto before = screen().last().page.events;
    after([&] { execute("ALTER TABLE event_content_parts RENAME TO away; UPDATE events SET subtype = 3"); });
    EXPECT_NE(screen().last().error.message().find("no such table"), std::string::npos)
        << screen().last().error.description();
    EXPECT_EQ(screen().last().page.events, before);
    EXPECT_EQ(screen().steps(), "");
    execute("UPDATE events SET subtype = 4");
    execute("ALTER TABLE away RENAME TO event_content_parts; UPDATE streams SET seq = 2");
    loop().runUntil([&] { return !screen().last().error; });
    EXPECT_EQ(text(), "1 2");
    EXPECT_EQ(screen().last().page.events.front()->subtype(), 4);
    EXPECT_EQ(screen().deliveries(), 3U) << "the same failure is told once";
}

TEST_F(LifeOfAWindow, says_that_a_cursor_is_of_another_stream) {
    addSequences({1});
    const auto other = ZAVTimelineCursor::atSequence(streamOf(uuidNumber(2)), 1);
    const auto window = show({.around = other});
    EXPECT_EQ(domainAndCode(screen().last().error), "ZAVEventStore 15");
    EXPECT_TRUE(screen().last().page.events.empty());
}

TEST_F(LifeOfAWindow, cannot_be_opened_with_invalid_options_or_without_an_executor) {
    ZAVError error;
    EXPECT_EQ(ZAVTimelineWindow::open(timeline(), screen().observer(), {.count = 0}, &error), nullptr);
    EXPECT_EQ(error.description(),
              ZAVError("ZAVEventStore", 4, "the option count is 0, but must be at least 1").description());
    EXPECT_EQ(ZAVTimelineWindow::open(timeline(), screen().observer(), {.coalescing = -1ms}, &error),
              nullptr);
    EXPECT_EQ(error.message(), "the option coalescing is -1 ms, but may not be negative");
    EXPECT_EQ(ZAVTimelineWindow::open(timeline({.types = {static_cast<ZAVTEventType>(63)}}),
                                      screen().observer(), {}, &error),
              nullptr);
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 4");
    const auto mute = open({});
    EXPECT_EQ(ZAVTimelineWindow::open(ZAVTimeline(*mute, room()), screen().observer(), {}, &error), nullptr);
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 7");
    const ZAVTimeline ofClosed = timeline();
    ASSERT_TRUE(store().close(ZAVEventStore::QueuedWorks::run));
    EXPECT_EQ(ZAVTimelineWindow::open(ofClosed, screen().observer(), {}, &error), nullptr);
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 5");
}

// The end

TEST_F(LifeOfAWindow, tells_nothing_once_it_has_ended) {
    addSequences({1});
    auto window = show();
    addSequences({2});
    while (loop().waiting() == 0) {
        std::this_thread::yield();
    }
    window.reset();
    loop().runWaiting();
    EXPECT_EQ(screen().deliveries(), 1U) << "also of what was read before";
}

TEST_F(LifeOfAWindow, may_end_within_its_own_delivery) {
    addSequences({1});
    int calls = 0;
    std::unique_ptr<ZAVTimelineWindow> window;
    const auto held = std::make_shared<int>(0);
    window = ZAVTimelineWindow::open(timeline(), [&, held](const ZAVTimelineDelivery& delivery) {
        ++calls;
        window.reset();
        EXPECT_EQ(textsOf(delivery.page), "1") << "the delivery is there to its end";
    });
    EXPECT_GT(held.use_count(), 1);
    loop().runUntil([&] { return calls > 0; });
    addSequences({2});
    loop().runWaiting();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(held.use_count(), 1) << "the observer is let go of";
}

TEST_F(LifeOfAWindow, has_a_delivery_waited_for_that_runs_on_another_thread) {
    std::atomic<bool> isInCall = false;
    std::atomic<bool> mayEnd = false;
    bool isOver = false;
    auto window = ZAVTimelineWindow::open(timeline(), [&](const ZAVTimelineDelivery&) {
        isInCall = true;
        while (!mayEnd) {
            std::this_thread::yield();
        }
        isOver = true;
    });
    std::thread ofLoop([&] { loop().runUntil([&] { return isInCall.load(); }); });
    while (!isInCall) {
        std::this_thread::yield();
    }
    std::thread later([&] {
        std::this_thread::sleep_for(20ms);
        mayEnd = true;
    });
    window.reset();
    EXPECT_TRUE(isOver);
    later.join();
    ofLoop.join();
}

TEST_F(LifeOfAWindow, may_outlive_its_store) {
    addSequences({1});
    const auto window = show();
    addSequences({2});
    closeStore();
    window->extendEarlier(1);
    window->trim(screen().last().page.cursors.front(), screen().last().page.cursors.front());
    loop().runWaiting();
    EXPECT_FALSE(screen().last().error);
    EXPECT_LE(screen().deliveries(), 2U);
}

TEST_F(LifeOfAWindow, is_asked_and_ended_by_any_thread_while_others_write) {
    addSequences({1, 2, 3, 4, 5});
    std::atomic<bool> isOver = false;
    std::thread writer([&] {
        for (ZAVSequence seq = 6; !isOver; ++seq) {
            addSequences({seq});
        }
    });
    std::vector<std::thread> users;
    for (int user = 0; user < 3; ++user) {
        users.emplace_back([&] {
            for (int round = 0; round < 15; ++round) {
                const auto window = ZAVTimelineWindow::open(timeline(), [](const ZAVTimelineDelivery&) {},
                                                            {.count = 3, .coalescing = 1ms});
                ASSERT_NE(window, nullptr);
                window->extendEarlier(2);
                window->trim(at(2), at(4));
                std::this_thread::sleep_for(2ms);
            }
        });
    }
    std::atomic<bool> isLoopOver = false;
    std::thread ofLoop([&] {
        while (!isLoopOver) {
            loop().runWaiting();
        }
    });
    for (std::thread& user : users) {
        user.join();
    }
    isOver = true;
    writer.join();
    isLoopOver = true;
    ofLoop.join();
}

}  // namespace
}  // namespace zav::test
