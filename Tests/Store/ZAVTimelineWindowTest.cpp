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
#include "Support/StatementTrace.h"

namespace zav::test {
namespace {

using namespace std::chrono_literals;

class TimelineOnTheScreen : public WindowStore {};

// Where it begins

TEST_F(TimelineOnTheScreen, begins_with_the_newest_events) {
    addSequences({1, 2, 3, 4});
    add(std::nullopt, "waits", 1);
    const auto window = show({.count = 3});
    EXPECT_EQ(text(), "... 3 4 waits");
    EXPECT_EQ(screen().steps(), "+ 0, + 1, + 2");
    EXPECT_EQ(screen().last().page.cursors.front(), at(3));
    EXPECT_EQ(screen().deliveries(), 1U);
}

TEST_F(TimelineOnTheScreen, begins_around_a_sequence) {
    addSequences({10, 20, 30, 40, 50});
    const auto window = show({.count = 3, .around = ZAVSequence{30}});
    EXPECT_EQ(text(), "... 20 30 40 ...");
}

TEST_F(TimelineOnTheScreen, begins_around_the_place_of_a_cursor) {
    addSequences({1, 2, 3});
    add(std::nullopt, "a", 1);
    add(std::nullopt, "b", 2);
    const auto cursors = timeline().latest(5)->cursors;
    const auto window = show({.count = 3, .around = cursors.at(3)});
    EXPECT_EQ(text(), "... 3 a b");
    Screen other;
    const auto first =
        ZAVTimelineWindow::open(timeline(), other.observer(), {.count = 2, .around = cursors.front()});
    loop().runUntil([&] { return other.deliveries() == 1; });
    EXPECT_EQ(pageText(other.last().page), "1 2 ...");
}

TEST_F(TimelineOnTheScreen, is_told_also_when_it_is_empty) {
    const auto window = show();
    EXPECT_EQ(text(), "");
    EXPECT_EQ(screen().deliveries(), 1U);
}

TEST_F(TimelineOnTheScreen, has_what_its_timeline_asks_for) {
    add(1, "1");
    add(2, "joined", std::nullopt, EventType_MEMBER_ADDED);
    const auto window = show({}, {.types = {EventType_MESSAGE}});
    EXPECT_EQ(text(), "1");
    after([&] {
        add(3, "joined too", std::nullopt, EventType_MEMBER_ADDED);
        add(4, "4");
    });
    EXPECT_EQ(text(), "1 4");
}

// What it tells

TEST_F(TimelineOnTheScreen, follows_what_comes_at_the_newest_end) {
    addSequences({1, 2});
    const auto window = show({.count = 1});
    after([&] { addSequences({3}); });
    EXPECT_EQ(text(), "... 2 3");
    EXPECT_EQ(screen().steps(), "+ 1");
    after([&] { add(std::nullopt, "mine", 1); });
    EXPECT_EQ(text(), "... 2 3 mine");
}

TEST_F(TimelineOnTheScreen, takes_in_what_comes_late_between_its_events) {
    addSequences({1, 2, 5});
    const auto window = show();
    EXPECT_EQ(screen().last().page.missing, (std::vector<ZAVSequenceGap>{{3, 4}}));
    after([&] { addSequences({3}); });
    EXPECT_EQ(text(), "1 2 3 5");
    EXPECT_EQ(screen().steps(), "+ 2");
    EXPECT_EQ(screen().last().page.missing, (std::vector<ZAVSequenceGap>{{4, 4}}));
}

TEST_F(TimelineOnTheScreen, only_says_that_there_is_more_when_something_comes_before_it_or_behind_its_end) {
    addSequences({10, 20, 30});
    const auto window = show({.count = 2, .around = ZAVSequence{10}});
    EXPECT_EQ(text(), "10 20 ...");
    after([&] { addSequences({5}); });
    EXPECT_EQ(text(), "... 10 20 ...");
    EXPECT_EQ(screen().steps(), "");
    addSequences({40});
    after([&] { add(15, "15"); });
    EXPECT_EQ(text(), "... 10 15 20 ...");
}

TEST_F(TimelineOnTheScreen, has_an_event_move_that_gets_its_sequence) {
    addSequences({1});
    add(std::nullopt, "a", 1);
    const ZAVDatabaseIdentifier second = add(std::nullopt, "b", 2);
    const auto window = show();
    EXPECT_EQ(text(), "1 a b");
    after(
        [&] { execute("UPDATE events SET seq = 2 WHERE database_identifier = " + std::to_string(second)); });
    EXPECT_EQ(text(), "1 b a");
    EXPECT_EQ(screen().steps().substr(screen().steps().find('~')), "~ 1");
    EXPECT_EQ(screen().last().differences.size(), 2U) << screen().steps();
}

TEST_F(TimelineOnTheScreen, goes_from_its_first_event_wherever_that_comes_to_stand) {
    addSequences({1, 2});
    const ZAVDatabaseIdentifier first = add(std::nullopt, "a", 1);
    add(std::nullopt, "b", 2);
    const auto window = show({.count = 2});
    EXPECT_EQ(text(), "... a b");
    after([&] { execute("UPDATE events SET seq = 3 WHERE database_identifier = " + std::to_string(first)); });
    EXPECT_EQ(text(), "... a b");
    EXPECT_EQ(screen().steps(), "~ 0");
    after([&] { addSequences({5}); });
    EXPECT_EQ(text(), "... a 5 b");
}

TEST_F(TimelineOnTheScreen, has_deleted_events_be_removed) {
    addSequences({1, 2, 3, 4});
    const auto window = show();
    after([&] { execute("DELETE FROM events WHERE seq = 1 OR seq = 3"); });
    EXPECT_EQ(text(), "2 4");
    EXPECT_EQ(screen().steps(), "- 2, - 0");
}

TEST_F(TimelineOnTheScreen, begins_anew_when_nothing_is_left_in_it) {
    addSequences({1, 2, 3});
    const auto window = show({.count = 1, .around = ZAVSequence{2}});
    EXPECT_EQ(text(), "... 2 ...");
    after([&] { execute("DELETE FROM events WHERE seq = 2"); });
    EXPECT_EQ(text(), "... 3") << "with the newest";
    EXPECT_EQ(screen().steps(), "- 0, + 0");
    after([&] { EXPECT_EQ(store().deleteStream(at(1).stream()), true); });
    EXPECT_EQ(text(), "");
    after([&] { addSequences({1}); });
    EXPECT_EQ(text(), "1") << "though the stream has another row";
}

TEST_F(TimelineOnTheScreen, keeps_the_records_of_events_that_have_not_changed) {
    addSequences({1, 2});
    const auto window = show();
    const auto before = screen().last().page.events;
    after([&] { execute("UPDATE events SET creator_name = 'B' WHERE seq = 2"); });
    EXPECT_EQ(screen().last().page.events.at(0), before.at(0));
    EXPECT_NE(screen().last().page.events.at(1), before.at(1));
    EXPECT_FALSE(before.at(1)->creator_name()) << "the former record stays as it was";
}

TEST_F(TimelineOnTheScreen, does_not_depend_on_what_is_done_to_its_records) {
    addSequences({1});
    const auto window = show();
    screen().last().page.events.front()->set_creator_name("B");
    after([&] { execute("UPDATE events SET creator_name = 'B' WHERE seq = 1"); });
    EXPECT_EQ(screen().steps(), "~ 0");
}

/// What is done to each column of events and parts that is read.
class ChangedColumn : public TimelineOnTheScreen, public testing::WithParamInterface<const char*> {};

TEST_P(ChangedColumn, is_a_change_of_the_event) {
    add(1, "1");
    add(2, "2");
    execute(
        "UPDATE event_content_parts SET url = 'http://example.org/a', value = NULL"
        " WHERE event_database_identifier = 2");
    const ZAVTimeline byRow(store(), streamOf(room()));
    const auto window = ZAVTimelineWindow::open(byRow, screen().observer());
    awaitDelivery(1);
    after([&] { execute(GetParam()); });
    EXPECT_NE(screen().steps().find('~'), std::string::npos) << screen().steps();
    EXPECT_EQ(PageRecord(screen().last().page), PageRecord(byRow.latest(10).value()));
}

INSTANTIATE_TEST_SUITE_P(
    OfItsTables, ChangedColumn,
    testing::Values(
        "UPDATE events SET type = 5 WHERE seq = 1", "UPDATE events SET creator_id = NULL WHERE seq = 1",
        "UPDATE events SET seq = 7 WHERE seq = 1", "UPDATE events SET timestamp = 7 WHERE seq = 1",
        "UPDATE events SET preceding_seq = 7 WHERE seq = 1", "UPDATE events SET client_seq = 7 WHERE seq = 1",
        "UPDATE events SET subtype = 7 WHERE seq = 1", "UPDATE events SET member_id = 'm' WHERE seq = 1",
        "UPDATE events SET target_seq = 0 WHERE seq = 1", "UPDATE events SET client_id = X'01' WHERE seq = 1",
        "UPDATE events SET creator_name = '' WHERE seq = 1", "UPDATE streams SET stream_id = NULL",
        "UPDATE event_content_parts SET event_content_part_id = 7 WHERE event_database_identifier = 1",
        "UPDATE event_content_parts SET type = 'a/b' WHERE event_database_identifier = 1",
        "UPDATE event_content_parts SET value = 'x' WHERE event_database_identifier = 1",
        "UPDATE event_content_parts SET access_expiration = 7 WHERE event_database_identifier = 1",
        "UPDATE event_content_parts SET url = 'http://b' WHERE event_database_identifier = 2",
        "UPDATE event_content_parts SET size = 7 WHERE event_database_identifier = 1",
        "UPDATE event_content_parts SET transfer_status = 1 WHERE event_database_identifier = 1",
        "UPDATE event_content_parts SET file_path = 'f' WHERE event_database_identifier = 1",
        "UPDATE event_content_parts SET last_accessed = 0 WHERE event_database_identifier = 1",
        "UPDATE event_content_parts SET purged = 1 WHERE event_database_identifier = 1",
        "DELETE FROM event_content_parts WHERE event_database_identifier = 1",
        "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier) VALUES (1, 1)"));

TEST_F(TimelineOnTheScreen, has_an_event_change_with_its_metadata) {
    const ZAVDatabaseIdentifier row = add(1, "1");
    const auto window = show();
    const auto set = [&](const ZAVDictionaryValue& value) {
        write([&](const ZAVRepositories& repositories) {
            return repositories.keyedValues.setKeyedValuesWithDictionary(
                {{"key", value}}, std::nullopt,
                ZAVKeyedValuesContext::contextWithTable(ZAVKeyedValuesTableRemote, "event", row,
                                                        ZAVKeyedValuesKeyTypeTransient));
        });
    };
    for (const char* const value : {"one", "two"}) {
        after([&] { set(std::string(value)); });
        EXPECT_EQ(screen().steps(), "~ 0");
        EXPECT_EQ(*screen().last().page.events.front()->transient_metadata()->find("key"),
                  ZAVDictionaryValue(ZAVData::fromText(value)));
    }
}

}  // namespace
}  // namespace zav::test
