#include <ZAVEventRepository/ZAVTimeline.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <compare>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Model/Records.h"
#include "Store/TimelineFixture.h"
#include "Support/StatementTrace.h"

namespace zav::test {
namespace {

class TimelineOfAStream : public TimelineStore {
protected:
    [[nodiscard]] ZAVTimeline timeline(const ZAVTimelineOptions& options = {}) {
        return {store(), room(), options};
    }

    /// Stores sequenced events whose texts are their sequences.
    void addSequences(const std::vector<ZAVSequence>& sequences) {
        for (const ZAVSequence seq : sequences) {
            add(seq, std::to_string(seq));
        }
    }

    [[nodiscard]] ZAVTimelineCursor at(ZAVSequence seq) {
        return ZAVTimelineCursor::atSequence(streamOf(room()), seq);
    }

    /// Gives the events rows that are far from one another, as where other streams' events came between them.
    void moveRowsApart() {
        execute(
            "UPDATE events SET database_identifier = database_identifier * -1000;"
            "UPDATE event_content_parts SET event_database_identifier = event_database_identifier * -1000;"
            "UPDATE keyed_values_remote SET object_database_identifier = object_database_identifier * -1000;"
            "UPDATE events SET database_identifier = -database_identifier;"
            "UPDATE event_content_parts SET event_database_identifier = -event_database_identifier;"
            "UPDATE keyed_values_remote SET object_database_identifier = -object_database_identifier;");
    }

    /// Compares all of the timeline with what the repository makes of each row.
    void expectRecordsOfRepository(std::size_t count) {
        const auto page = ZAVTimeline(store(), ZAVDatabaseIdentifier{1}).latest(count + 1);
        ASSERT_EQ(page->events.size(), count);
        store().read([&](const ZAVRepositories& repositories) {
            for (const auto& event : page->events) {
                const auto read = repositories.events.eventForDatabaseIdentifier(event->databaseIdentifier());
                EXPECT_EQ(recordOf(*event), recordOf(*read)) << "row " << event->databaseIdentifier();
            }
        });
    }
};

TEST_F(TimelineOfAStream, has_what_is_sequenced_by_sequence_and_behind_it_what_waits_by_number_and_row) {
    add(std::nullopt, "third", 9);
    add(30, "30");
    add(std::nullopt, "first", 2);
    add(std::nullopt, "unnumbered");
    add(10, "10");
    add(std::nullopt, "second", 2);
    add(20, "20");
    EXPECT_EQ(pageText(timeline().latest(100)), "10 20 30 unnumbered first second third");
}

TEST_F(TimelineOfAStream, goes_back_page_by_page_from_the_newest_events) {
    addSequences({1, 2, 3, 4, 5});
    add(std::nullopt, "waits", 1);
    const auto newest = timeline().latest(2);
    EXPECT_EQ(pageText(newest), "... 5 waits");
    const auto second = timeline().before(newest->cursors.front(), 2);
    EXPECT_EQ(pageText(second), "... 3 4 ...");
    const auto oldest = timeline().before(second->cursors.front(), 2);
    EXPECT_EQ(pageText(oldest), "1 2 ...");
    EXPECT_EQ(pageText(timeline().before(oldest->cursors.front(), 2)), " ...");
}

TEST_F(TimelineOfAStream, goes_forth_page_by_page_into_what_waits) {
    addSequences({1, 2, 3});
    add(std::nullopt, "a", 1);
    add(std::nullopt, "b", 2);
    const auto first = timeline().after(at(1), 3);
    EXPECT_EQ(pageText(first), "... 2 3 a ...");
    const auto second = timeline().after(first->cursors.back(), 3);
    EXPECT_EQ(pageText(second), "... b");
    EXPECT_EQ(pageText(timeline().after(second->cursors.back(), 3)), "... ");
}

TEST_F(TimelineOfAStream, stands_around_a_sequence_that_need_not_be_there) {
    addSequences({10, 20, 30, 40, 50});
    EXPECT_EQ(pageText(timeline().around(30, 3)), "... 20 30 40 ...");
    EXPECT_EQ(pageText(timeline().around(25, 2)), "... 20 30 ...");
    EXPECT_EQ(pageText(timeline().around(5, 2)), "10 20 ...");
    EXPECT_EQ(pageText(timeline().around(99, 2)), "... 40 50");
    EXPECT_EQ(pageText(timeline().around(50, 4)), "... 20 30 40 50");
    EXPECT_EQ(pageText(timeline().around(10, 4)), "10 20 30 40 ...");
    EXPECT_EQ(pageText(timeline().around(30, 100)), "10 20 30 40 50");
    EXPECT_EQ(pageText(timeline().around(30, 1)), "... 30 ...");
}

TEST_F(TimelineOfAStream, answers_the_events_from_one_place_to_another) {
    addSequences({1, 2, 3, 4});
    add(std::nullopt, "a", 1);
    add(std::nullopt, "b", 2);
    const auto all = timeline().latest(100);
    EXPECT_EQ(pageText(timeline().between(at(2), at(3))), "... 2 3 ...");
    EXPECT_EQ(pageText(timeline().between(at(3), all->cursors.at(4))), "... 3 4 a ...");
    EXPECT_EQ(pageText(timeline().between(all->cursors.at(5), std::nullopt)), "... b");
    EXPECT_EQ(pageText(timeline().between(std::nullopt, at(1))), "1 ...");
    EXPECT_EQ(pageText(timeline().between(std::nullopt, std::nullopt)), "1 2 3 4 a b");
    EXPECT_EQ(pageText(timeline().between(at(4), at(3))), "...  ...");
}

TEST_F(TimelineOfAStream, is_empty_for_a_stream_that_is_not_registered) {
    const auto page = timeline().latest(10);
    EXPECT_EQ(pageText(page), "");
    EXPECT_TRUE(page->missing.empty());
}

TEST_F(TimelineOfAStream, is_had_by_its_row_of_a_stream_that_the_service_does_not_know) {
    ZAVDatabaseIdentifier stream = ZAVDatabaseIdentifierNotSet;
    write([&](const ZAVRepositories& repositories) {
        stream = repositories.streams.createStreamWithoutUUID();
        return true;
    });
    const auto event = makeEvent(EventType_MESSAGE, room(), 1);
    event->set_stream_id(std::nullopt);
    event->setStreamDatabaseIdentifier(stream);
    event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{makeTextPart("offline")});
    ASSERT_TRUE(store().send(event));
    EXPECT_EQ(pageText(ZAVTimeline(store(), stream).latest(10)), "offline");
}

TEST_F(TimelineOfAStream, asks_for_none_and_for_more_events_than_there_can_be) {
    addSequences({1, 2});
    EXPECT_EQ(pageText(timeline().latest(0)), "... ");
    EXPECT_EQ(pageText(timeline().latest(std::numeric_limits<std::size_t>::max())), "1 2");
    EXPECT_EQ(pageText(timeline().around(2, std::numeric_limits<std::size_t>::max())), "1 2");
}

// Cursors

TEST_F(TimelineOfAStream, finds_the_place_of_an_event_that_was_sequenced_since) {
    addSequences({1, 2});
    const ZAVDatabaseIdentifier row = add(std::nullopt, "mine", 1);
    add(std::nullopt, "later", 2);
    const auto cursor = timeline().latest(2)->cursors.front();
    EXPECT_EQ(cursor.waitingEvent(), row);
    addSequences({4});
    execute("UPDATE events SET seq = 3 WHERE database_identifier = " + std::to_string(row));
    EXPECT_EQ(pageText(timeline().before(cursor, 10)), "1 2 ...");
    EXPECT_EQ(pageText(timeline().after(cursor, 10)), "... 4 later");
}

TEST_F(TimelineOfAStream, keeps_the_place_of_an_event_that_was_deleted) {
    addSequences({1, 2, 3});
    add(std::nullopt, "a", 1);
    const ZAVDatabaseIdentifier b = add(std::nullopt, "b", 2);
    add(std::nullopt, "c", 3);
    const auto page = timeline().latest(100);
    execute("DELETE FROM events WHERE seq = 2 OR database_identifier = " + std::to_string(b));
    EXPECT_EQ(pageText(timeline().before(page->cursors.at(1), 10)), "1 ...");
    EXPECT_EQ(pageText(timeline().after(page->cursors.at(1), 10)), "... 3 a c");
    EXPECT_EQ(pageText(timeline().before(page->cursors.at(4), 2)), "... 3 a ...");
    EXPECT_EQ(pageText(timeline().after(page->cursors.at(4), 2)), "... c");
}

TEST_F(TimelineOfAStream, refuses_the_cursor_of_another_stream) {
    addSequences({1, 2});
    const auto other = ZAVTimelineCursor::atSequence(streamOf(uuidNumber(2)), 1);
    ZAVError error;
    EXPECT_FALSE(timeline().before(other, 10, &error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 15");
    EXPECT_EQ(error.message(), "the cursor " + other.text() + " is of another stream");
    EXPECT_FALSE(timeline().after(other, 10, &error));
    EXPECT_FALSE(timeline().between(at(1), other, &error));
}

// What is asked for

TEST_F(TimelineOfAStream, passes_over_what_is_not_asked_for_and_does_not_count_it) {
    add(1, "1");
    add(2, "joined", std::nullopt, EventType_MEMBER_ADDED);
    add(3, "3");
    add(4, "gone", std::nullopt, EventType_TOMBSTONE);
    add(5, "read", std::nullopt, EventType_MESSAGE_READ);
    add(6, "6");
    add(std::nullopt, "sent", 1);
    add(std::nullopt, "seen", 2, EventType_MESSAGE_READ);
    const auto messages = timeline({.types = {EventType_MESSAGE}, .tombstones = false});
    EXPECT_EQ(pageText(messages.latest(3)), "... 3 6 sent");
    EXPECT_EQ(pageText(messages.around(4, 2)), "... 3 6 ...");
    EXPECT_EQ(pageText(messages.after(at(3), 100)), "... 6 sent");
    EXPECT_EQ(pageText(timeline({.types = {EventType_MESSAGE}}).latest(4)), "... 3 gone 6 sent");
    EXPECT_EQ(pageText(timeline({.tombstones = false}).latest(100)), "1 joined 3 read 6 sent seen");
}

TEST_F(TimelineOfAStream, has_events_of_types_without_a_name_when_all_are_asked_for) {
    add(1, "1", std::nullopt, static_cast<ZAVTEventType>(1000));
    add(2, "2", std::nullopt, static_cast<ZAVTEventType>(-7));
    EXPECT_EQ(pageText(timeline().latest(10)), "1 2");
    EXPECT_EQ(pageText(timeline({.tombstones = false}).latest(10)), "1 2");
    EXPECT_EQ(pageText(timeline({.types = {EventType_MESSAGE}}).latest(10)), "");
}

TEST_F(TimelineOfAStream, cannot_ask_for_a_type_beyond_62) {
    ZAVError error;
    EXPECT_FALSE(timeline({.types = {static_cast<ZAVTEventType>(63)}}).latest(1, &error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 4");
    EXPECT_EQ(error.message(), "the option types has 63, but a timeline can ask for 0 to 62");
}

// Gaps

TEST_F(TimelineOfAStream, tells_the_sequences_that_are_missing_once_over_all_pages) {
    addSequences({3, 4, 7, 8, 10, 15});
    write([&](const ZAVRepositories& repositories) {
        return repositories.streams.setSeq(20, repositories.streams.streamDatabaseIdentifierForUUID(room()));
    });
    add(std::nullopt, "waits", 1);
    EXPECT_EQ(gapsText(timeline().latest(100)), "5-6 9-9 11-14 16-20");
    const auto newest = timeline().latest(2);
    EXPECT_EQ(gapsText(newest), "11-14 16-20");
    const auto middle = timeline().before(newest->cursors.front(), 3);
    EXPECT_EQ(textsOf(middle), "7 8 10");
    EXPECT_EQ(gapsText(middle), "5-6 9-9");
    EXPECT_EQ(gapsText(timeline().before(middle->cursors.front(), 3)), "");
}

TEST_F(TimelineOfAStream, takes_no_sequence_for_missing_because_its_event_is_not_asked_for) {
    add(1, "1");
    add(2, "read", std::nullopt, EventType_MESSAGE_READ);
    add(5, "5");
    add(6, "read", std::nullopt, EventType_MESSAGE_READ);
    add(8, "read", std::nullopt, EventType_MESSAGE_READ);
    const auto messages = timeline({.types = {EventType_MESSAGE}});
    EXPECT_EQ(gapsText(messages.latest(1)), "3-4 7-7");
    EXPECT_EQ(gapsText(messages.before(at(5), 1)), "");
}

// Records

TEST_F(TimelineOfAStream, hands_out_the_records_that_the_repository_makes_also_of_odd_rows) {
    addSequences({1, 2, 3, 4, 5, 6});
    add(std::nullopt, "waits", 1);
    add(std::nullopt, "waits too");
    execute(
        "DELETE FROM event_content_parts WHERE event_database_identifier = 2;"
        "UPDATE events SET creator_id = NULL, member_id = 'carl', target_seq = 4, timestamp = 'soon',"
        " client_id = 'short', creator_name = 'C', subtype = 300, preceding_seq = 99999999999"
        " WHERE database_identifier = 3;"
        "UPDATE events SET type = 'odd', client_seq = 'x7' WHERE database_identifier = 4;"
        "UPDATE events SET client_seq = 'y' WHERE database_identifier = 8;"
        "UPDATE streams SET stream_id = X'00';"
        "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, type, value, url,"
        " size, transfer_status, file_path, last_accessed, purged, access_expiration) VALUES"
        " (9, 3, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL),"
        " (4, 3, 'image/png', NULL, 'http://example.org/a b', 'big', 7, 'a/b c', 1.5, 1, 1e9),"
        " (2, 3, 'image/png', X'01', 'http://example.org/a', 12, 2, 'a/b.png', NULL, 0, 0),"
        " (1, 8, 'text/plain', 'text', NULL, 4, 4, NULL, NULL, NULL, NULL);"
        "INSERT INTO keyed_values_remote VALUES (3, 'event', 0, 'text', 'value', NULL),"
        " (3, 'event', 0, 'bytes', X'ff00', 1.0), (3, 'event', 0, 'number', 17, NULL),"
        " (3, 'event', 1, 'not transient', 'x', NULL), (3, 'stream', 0, 'not of an event', 'x', NULL),"
        " (8, 'event', 0, 'of a waiting one', 'w', NULL)");
    expectRecordsOfRepository(8);
    moveRowsApart();
    expectRecordsOfRepository(8);
}

TEST_F(TimelineOfAStream, leaves_what_belongs_to_rows_of_others_that_stand_between_its_own) {
    addSequences({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    execute(
        "INSERT INTO keyed_values_remote SELECT database_identifier, 'event', 0, 'row', database_identifier,"
        " NULL FROM events WHERE database_identifier % 2 = 0;"
        "UPDATE events SET stream_database_identifier = 77 WHERE database_identifier = 4;"
        "DELETE FROM events WHERE database_identifier = 7");
    for (const char* rows : {"rows together", "rows apart"}) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, rows);
        EXPECT_EQ(textsOf(timeline().latest(100)), "1 2 3 5 6 8 9 10");
        expectRecordsOfRepository(8);
        moveRowsApart();
    }
}

// Statements

std::vector<std::string> statementsOf(ZAVEventStore& store, const std::function<void()>& ask) {
    std::vector<std::string> statements;
    store.read([&](const ZAVRepositories& repositories) {
        const StatementTrace trace(repositories.events.database(), StatementTrace::Text::asPrepared);
        ask();
        statements = trace.statements();
    });
    return statements;
}

TEST_F(TimelineOfAStream, takes_as_many_statements_for_a_hundred_events_as_for_two) {
    write([&](const ZAVRepositories&) {
        for (ZAVSequence seq = 1; seq <= 250; ++seq) {
            add(seq, std::to_string(seq));
        }
        return true;
    });
    add(std::nullopt, "a", 1);
    add(std::nullopt, "b", 2);
    const ZAVTimeline room = timeline();
    const auto middle = at(125);
    const auto countOf = [&](std::size_t events) {
        return statementsOf(store(),
                            [&] {
                                EXPECT_EQ(room.latest(events)->events.size(), events);
                                EXPECT_EQ(room.before(middle, events)->events.size(), events);
                                EXPECT_EQ(room.around(125, events)->events.size(), events);
                            })
            .size();
    };
    EXPECT_EQ(countOf(100), countOf(3)) << "rows together";
    moveRowsApart();
    EXPECT_EQ(countOf(100), countOf(3)) << "rows apart";
}

TEST_F(TimelineOfAStream, finds_all_of_its_rows_by_an_index) {
    addSequences({1, 2, 3});
    add(std::nullopt, "a", 1);
    const ZAVTimeline room = timeline();
    std::vector<std::string> statements;
    for (const char* rows : {"together", "apart"}) {
        const auto cursors = room.latest(100)->cursors;
        const auto ofRows = statementsOf(store(), [&] {
            static_cast<void>(room.latest(2));
            static_cast<void>(room.before(cursors.back(), 2));
            static_cast<void>(room.after(cursors.front(), 2));
            static_cast<void>(room.around(2, 2));
            static_cast<void>(room.between(cursors.front(), cursors.back()));
        });
        EXPECT_GT(ofRows.size(), 20U) << "rows " << rows;
        statements.insert(statements.end(), ofRows.begin(), ofRows.end());
        moveRowsApart();
    }
    store().read([&](const ZAVRepositories& repositories) {
        for (const std::string& statement : statements) {
            for (const std::string& step : planOf(statement, repositories.events.database())) {
                // A list of rows that a subquery found is not a table.
                EXPECT_FALSE(step.starts_with("SCAN ") && step.find("SUBQUERY") == std::string::npos &&
                             step != "SCAN CONSTANT ROW")
                    << step << " in " << statement;
            }
        }
    });
}

TEST_F(TimelineOfAStream, reads_a_page_of_sequenced_events_in_the_order_of_its_index_alone) {
    addSequences({1, 2, 3, 4, 5});
    const ZAVTimeline room = timeline();
    const auto cursor = at(4);
    for (const char* rows : {"together", "apart"}) {
        const auto statements = statementsOf(store(), [&] { static_cast<void>(room.before(cursor, 2)); });
        EXPECT_GE(statements.size(), 4U)
            << "its events, their content and metadata, and the gaps, rows " << rows;
        store().read([&](const ZAVRepositories& repositories) {
            for (const std::string& statement : statements) {
                for (const std::string& step : planOf(statement, repositories.events.database())) {
                    EXPECT_EQ(step.find("TEMP B-TREE"), std::string::npos) << step << " in " << statement;
                    EXPECT_EQ(step.find("LIST SUBQUERY"), std::string::npos) << step << " in " << statement;
                }
            }
        });
        moveRowsApart();
    }
}

TEST_F(TimelineOfAStream, reads_content_from_row_to_row_only_where_few_rows_of_others_can_stand_between) {
    addSequences({1, 2, 3, 4, 5});
    const auto rangesOfRows = [&] {
        const auto statements = statementsOf(store(), [&] { static_cast<void>(timeline().latest(5)); });
        return std::count_if(statements.begin(), statements.end(), [](const std::string& statement) {
            return statement.find("WHERE event_database_identifier BETWEEN") != std::string::npos;
        });
    };
    EXPECT_EQ(rangesOfRows(), 1) << "five rows in a row";
    execute(
        "UPDATE event_content_parts SET event_database_identifier = 6 WHERE event_database_identifier = 5;"
        "UPDATE events SET database_identifier = 6 WHERE database_identifier = 5");
    EXPECT_EQ(rangesOfRows(), 1) << "one row of another between";
    execute(
        "UPDATE event_content_parts SET event_database_identifier = 7 WHERE event_database_identifier = 6;"
        "UPDATE events SET database_identifier = 7 WHERE database_identifier = 6");
    EXPECT_EQ(rangesOfRows(), 0) << "two rows of others between";
}

TEST_F(TimelineOfAStream, shows_the_moment_of_the_work_that_it_is_read_in) {
    addSequences({1, 2});
    write([&](const ZAVRepositories&) {
        add(3, "3");
        EXPECT_EQ(pageText(timeline().latest(10)), "1 2 3") << "of the write itself";
        return true;
    });
    store().read([&](const ZAVRepositories&) {
        std::thread([&] { add(4, "4"); }).join();
        EXPECT_EQ(pageText(timeline().latest(10)), "1 2 3") << "from before the read";
    });
    EXPECT_EQ(pageText(timeline().latest(10)), "1 2 3 4");
}

TEST_F(TimelineOfAStream, says_why_it_cannot_be_read) {
    const ZAVTimeline room = timeline();
    ASSERT_TRUE(store().close(ZAVEventStore::QueuedWorks::run));
    ZAVError error;
    EXPECT_FALSE(room.latest(10, &error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 5");
    EXPECT_FALSE(room.replay([](const auto&) { return true; }, &error));
}

// Replaying

TEST_F(TimelineOfAStream, replays_its_sequenced_events_in_the_order_of_the_repository) {
    for (const ZAVSequence seq : {1, 2, 3, 4, 5, 6, 7}) {
        add(seq, std::to_string(seq), 10 - seq);
    }
    add(std::nullopt, "waits", 1);
    execute(
        "UPDATE events SET preceding_seq = (seq * 3) % 4, creator_id = CASE seq % 2 WHEN 0 THEN 'a' ELSE 'b' END");
    std::vector<EventRecord> replayed;
    ZAVError error;
    EXPECT_TRUE(timeline().replay(
        [&](const auto& event) {
            replayed.push_back(recordOf(*event));
            return true;
        },
        &error))
        << error.description();
    store().read([&](const ZAVRepositories& repositories) {
        const auto events = repositories.events.eventsFromRevivedStreamWithStreamDatabaseIdentifier(
            repositories.streams.streamDatabaseIdentifierForUUID(room()));
        ASSERT_EQ(replayed.size(), 7U);
        std::size_t position = 0;
        for (const auto& event : *events) {
            EXPECT_EQ(replayed.at(position++), recordOf(*event));
        }
    });
}

TEST_F(TimelineOfAStream, replays_no_further_than_is_wanted) {
    addSequences({1, 2, 3});
    int visited = 0;
    EXPECT_TRUE(timeline().replay([&](const auto&) { return ++visited < 2; }));
    EXPECT_EQ(visited, 2);
}

// Beside a plain list

TEST_F(TimelineOfAStream, agrees_with_a_list_of_its_events_page_by_page) {
    std::mt19937 random(20);
    struct Entry {
        bool isWaiting;
        ZAVSequence number;
        ZAVDatabaseIdentifier row;
        std::string text;
        auto operator<=>(const Entry&) const = default;
    };
    std::vector<Entry> list;
    for (ZAVSequence seq = 1; seq < 150; ++seq) {
        if (random() % 3 != 0) {
            list.push_back({false, seq, add(seq, std::to_string(seq)), std::to_string(seq)});
        }
    }
    for (int number = 0; number < 12; ++number) {
        const auto clientSeq = static_cast<ZAVSequence>(random() % 5);
        const std::string text = "w" + std::to_string(number);
        list.push_back({true, clientSeq, add(std::nullopt, text, clientSeq), text});
    }
    std::sort(list.begin(), list.end());
    const ZAVTimeline room = timeline();
    const auto cursors = room.between(std::nullopt, std::nullopt)->cursors;
    ASSERT_EQ(cursors.size(), list.size());
    const auto textsFrom = [&](std::size_t first, std::size_t last) {
        std::string texts = first > 0 ? "... " : "";
        for (std::size_t position = first; position < last; ++position) {
            texts += (position > first ? " " : "") + list.at(position).text;
        }
        return texts + (last < list.size() ? " ..." : "");
    };
    for (int step = 0; step < 300; ++step) {
        const std::size_t position = random() % list.size();
        const std::size_t count = 1 + random() % 40;
        const std::size_t first = position - std::min(position, count);
        const std::size_t last = std::min(list.size(), position + 1 + count);
        if (position > 0) {
            EXPECT_EQ(pageText(room.before(cursors.at(position), count)), textsFrom(first, position));
        }
        if (position + 1 < list.size()) {
            EXPECT_EQ(pageText(room.after(cursors.at(position), count)), textsFrom(position + 1, last));
        }
        EXPECT_EQ(pageText(room.between(cursors.at(first), cursors.at(position))),
                  textsFrom(first, position + 1));
    }
}

}  // namespace
}  // namespace zav::test
