#include <ZAVEventRepository/ZAVConversationList.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Model/Records.h"
#include "Store/EventStoreFixture.h"
#include "Support/StatementTrace.h"

namespace zav::test {
namespace {

class ListOfConversations : public EventStore {
protected:
    ListOfConversations() : ada_(open(optionsOfAda())) {}

    [[nodiscard]] ZAVEventStore& ada() { return *ada_; }

    void write(const ZAVEventStore::WritingWork& work) {
        ZAVError error;
        EXPECT_TRUE(ada().write(work, &error)) << error.description();
    }

    void execute(const std::string& sql) {
        write([&](const ZAVRepositories& repositories) {
            return repositories.events.database().executeStatements(sql);
        });
    }

    /// An event of a stream, which is called by its number.
    std::shared_ptr<ZAVEvent> event(int stream, const std::string& text) {
        auto event = makeEvent(EventType_MESSAGE, uuidNumber(stream), ++made_);
        event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{makeTextPart(text)});
        return event;
    }

    /// Receives a message.
    ZAVDatabaseIdentifier receive(int stream, ZAVSequence seq, std::int64_t time, const std::string& text,
                                  const std::string& author = "bruno") {
        const auto message = event(stream, text);
        message->set_seq(seq);
        message->set_creator_id(author);
        message->set_server_timestamp(time);
        ZAVReceiveOptions options;
        options.preparesDownloads = false;
        ZAVError error;
        EXPECT_TRUE(ada().receive(uuidNumber(stream), std::vector{message}, options, &error))
            << error.description();
        return message->databaseIdentifier();
    }

    ZAVDatabaseIdentifier send(int stream, const std::string& text) {
        const auto message = event(stream, text);
        ZAVError error;
        EXPECT_TRUE(ada().send(message, &error)) << error.description();
        return message->databaseIdentifier();
    }

    [[nodiscard]] std::shared_ptr<ZAVEvent> eventIn(ZAVDatabaseIdentifier row) {
        std::shared_ptr<ZAVEvent> event;
        ada().read([&](const ZAVRepositories& repositories) {
            event = repositories.events.eventForDatabaseIdentifier(row);
        });
        return event;
    }

    [[nodiscard]] ZAVDatabaseIdentifier rowOf(int stream) {
        ZAVDatabaseIdentifier row = ZAVDatabaseIdentifierNotSet;
        ada().read([&](const ZAVRepositories& repositories) {
            row = repositories.streams.streamDatabaseIdentifierForUUID(uuidNumber(stream));
        });
        return row;
    }

    void joinConversation(int stream, const std::string& member, const std::string& seq) {
        execute(
            "INSERT INTO conversations (stream_id) SELECT stream_id FROM streams WHERE database_identifier = " +
            std::to_string(rowOf(stream)) +
            "; INSERT INTO conversation_participants (conversation_database_identifier, member_id, seq)"
            " SELECT MAX(database_identifier), '" +
            member + "', " + seq + " FROM conversations");
    }

    /// The texts of the last events, "-" for none, and "..." when there are more.
    static std::string textsOf(const std::optional<ZAVConversationPage>& page, const ZAVError& error = {}) {
        if (!page) {
            return "no page: " + error.description();
        }
        std::string texts;
        for (const auto& conversation : page->conversations) {
            texts += texts.empty() ? "" : " ";
            texts += conversation.lastEvent == nullptr
                         ? "-"
                         : std::string(conversation.lastEvent->contentParts().front()->body()->asText());
        }
        return texts + (page->hasMore ? " ..." : "");
    }

    [[nodiscard]] std::string list(std::size_t count = 100) {
        ZAVError error;
        return textsOf(ZAVConversationList(ada()).first(count, &error), error);
    }

private:
    static ZAVEventStoreOptions optionsOfAda() {
        ZAVEventStoreOptions options;
        options.userID = "ada";
        return options;
    }

    std::unique_ptr<ZAVEventStore> ada_;
    int made_ = 0;
};

TEST_F(ListOfConversations, has_the_newest_last_event_first_and_of_equal_times_the_later_stream) {
    receive(1, 1, 500, "one");
    receive(2, 1, 900, "two");
    receive(3, 1, 500, "three");
    receive(1, 2, 700, "one-again");
    EXPECT_EQ(list(), "two one-again three");
    receive(4, 9, 500, "four");
    EXPECT_EQ(list(), "two one-again four three");
}

TEST_F(ListOfConversations, is_empty_in_an_empty_store) {
    EXPECT_EQ(list(), "");
    EXPECT_EQ(list(0), "");
}

TEST_F(ListOfConversations, takes_the_greatest_sequence_for_the_last_event_and_not_what_came_last) {
    receive(1, 5, 100, "fifth");
    receive(1, 3, 800, "third");
    receive(2, 1, 200, "two");
    EXPECT_EQ(list(), "two fifth");
}

TEST_F(ListOfConversations, has_a_stream_in_which_something_waits_on_top) {
    receive(1, 1, 900, "one");
    receive(2, 1, 500, "two");
    send(2, "mine");
    EXPECT_EQ(list(), "mine one");
    const auto page = ZAVConversationList(ada()).first(10);
    EXPECT_EQ(page->conversations.at(0).waiting, 1U);
    EXPECT_EQ(page->conversations.at(1).waiting, 0U);
}

TEST_F(ListOfConversations, reckons_with_the_time_that_an_application_gave_to_an_event_that_waits) {
    receive(1, 1, 900, "one");
    send(2, "mine");
    execute("UPDATE events SET timestamp = 300 WHERE seq IS NULL");
    EXPECT_EQ(list(), "one mine");
}

TEST_F(ListOfConversations, ends_with_the_streams_that_have_no_events) {
    write([](const ZAVRepositories& repositories) {
        return repositories.streams.findOrCreateStreamWithUUID(uuidNumber(7)) !=
                   ZAVDatabaseIdentifierNotSet &&
               repositories.streams.createStreamWithoutUUID() != ZAVDatabaseIdentifierNotSet;
    });
    receive(1, 1, -900, "before-the-epoch");
    const auto page = ZAVConversationList(ada()).first(10);
    EXPECT_EQ(textsOf(page), "before-the-epoch - -");
    EXPECT_EQ(page->conversations.at(0).streamUUID, uuidNumber(1));
    EXPECT_EQ(page->conversations.at(1).streamUUID, std::nullopt);
    EXPECT_EQ(page->conversations.at(2).streamUUID, uuidNumber(7));
}

TEST_F(ListOfConversations, is_read_page_by_page) {
    for (int stream = 1; stream <= 5; ++stream) {
        receive(stream, 1, 100 * stream, std::to_string(stream));
    }
    const ZAVConversationList conversations(ada());
    const auto first = conversations.first(2);
    EXPECT_EQ(textsOf(first), "5 4 ...");
    const auto second = conversations.after(first->conversations.back().cursor, 2);
    EXPECT_EQ(textsOf(second), "3 2 ...");
    const auto third = conversations.after(second->conversations.back().cursor, 2);
    EXPECT_EQ(textsOf(third), "1");
    EXPECT_EQ(textsOf(conversations.after(third->conversations.back().cursor, 2)), "");
}

TEST_F(ListOfConversations, has_cursors_that_are_the_same_when_their_text_is_read) {
    const ZAVConversationCursor cursor(-7, std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(ZAVConversationCursor::fromText(cursor.text()), cursor);
    ZAVError error;
    EXPECT_FALSE(ZAVConversationCursor::fromText(cursor.text() + "0", &error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 15");
    EXPECT_EQ(error.message(), "this is not the cursor of a conversation: " + cursor.text() + "0");
}

TEST_F(ListOfConversations, hands_out_the_records_that_the_repository_makes) {
    receive(1, 1, 500, "one");
    const auto row = send(2, "mine");
    execute("INSERT INTO keyed_values_remote VALUES (" + std::to_string(row) +
            ", 'event', 0, 'key', 'value', NULL)");
    const auto page = ZAVConversationList(ada()).first(10);
    ASSERT_EQ(page->conversations.size(), 2U);
    ada().read([&](const ZAVRepositories& repositories) {
        for (const auto& conversation : page->conversations) {
            const auto& last = *conversation.lastEvent;
            EXPECT_EQ(recordOf(last),
                      recordOf(*repositories.events.eventForDatabaseIdentifier(last.databaseIdentifier())));
        }
    });
}

// Unread messages

TEST_F(ListOfConversations, counts_the_messages_of_others_above_a_participants_sequence) {
    for (const ZAVSequence seq : {1, 2, 3, 4}) {
        receive(1, seq, 100, "theirs");
    }
    receive(1, 5, 100, "my-own", "ada");
    receive(1, 6, 100, "theirs");
    execute("UPDATE events SET type = 10 WHERE seq = 4; UPDATE events SET creator_id = NULL WHERE seq = 6");
    send(1, "waits");
    joinConversation(1, "ada", "2");
    receive(2, 1, 90, "not-a-member");
    joinConversation(2, "carl", "NULL");
    receive(3, 1, 80, "nothing-read-yet");
    joinConversation(3, "ada", "NULL");
    const auto page = ZAVConversationList(ada(), {.participant = "ada"}).first(10);
    EXPECT_EQ(page->conversations.at(0).unread, 2U) << "3 and 6";
    EXPECT_EQ(page->conversations.at(1).unread, std::nullopt);
    EXPECT_EQ(page->conversations.at(2).unread, 1U);
    EXPECT_EQ(ZAVConversationList(ada()).first(10)->conversations.at(0).unread, std::nullopt);
}

TEST_F(ListOfConversations, counts_unread_messages_up_to_a_cap_of_a_hundred_or_another) {
    write([&](const ZAVRepositories&) {
        for (ZAVSequence seq = 1; seq <= 130; ++seq) {
            receive(1, seq, 100, "theirs");
        }
        return true;
    });
    joinConversation(1, "ada", "0");
    EXPECT_EQ(ZAVConversationList(ada(), {.participant = "ada"}).first(1)->conversations.at(0).unread, 100U);
    EXPECT_EQ(ZAVConversationList(ada(), {.participant = "ada", .unreadCap = 1000})
                  .first(1)
                  ->conversations.at(0)
                  .unread,
              130U);
}

// How it stays right

TEST_F(ListOfConversations, follows_all_that_the_store_does_itself) {
    receive(1, 1, 100, "one");
    receive(2, 1, 200, "two");
    ASSERT_EQ(list(), "two one") << "what is kept is kept from here on";
    const auto mine = send(1, "mine");
    EXPECT_EQ(list(), "mine two");
    ada().recordPosted(uuidNumber(1), *ZAVUUIDFromData(eventIn(mine)->client_id()), 2, "ada", 150);
    EXPECT_EQ(list(), "two mine");
    receive(1, 3, 300, "three");
    EXPECT_EQ(list(), "three two");
    const auto newest = receive(1, 4, 400, "four");
    ada().deleteEvents(std::vector{newest});
    EXPECT_EQ(list(), "three two");
    ada().deleteStream(rowOf(1));
    EXPECT_EQ(list(), "two");
}

TEST_F(ListOfConversations, knows_ones_own_event_when_the_service_sends_it_back) {
    receive(1, 1, 100, "one");
    receive(2, 1, 500, "two");
    const auto row = send(1, "mine");
    ASSERT_EQ(list(), "mine two");
    const auto echo = eventIn(row);
    echo->set_seq(2);
    echo->set_server_timestamp(300);
    ZAVReceiveOptions options;
    options.preparesDownloads = false;
    ASSERT_TRUE(ada().receive(uuidNumber(1), std::vector{echo}, options));
    EXPECT_EQ(list(), "two mine");
}

TEST_F(ListOfConversations, follows_the_events_of_a_stream_that_was_begun_offline) {
    receive(1, 1, 100, "one");
    receive(2, 1, 900, "two");
    ZAVDatabaseIdentifier offline = ZAVDatabaseIdentifierNotSet;
    write([&](const ZAVRepositories& repositories) {
        offline = repositories.streams.createStreamWithoutUUID();
        return true;
    });
    const auto first = event(1, "offline");
    first->set_stream_id(std::nullopt);
    first->setStreamDatabaseIdentifier(offline);
    ASSERT_TRUE(ada().send(first));
    ASSERT_EQ(list(), "offline two one");
    ASSERT_EQ(ada().streamPosted(offline, uuidNumber(1)), rowOf(1));
    EXPECT_EQ(list(), "offline two");
}

TEST_F(ListOfConversations, sees_what_others_store_in_new_rows_also_within_a_work) {
    receive(1, 1, 100, "one");
    receive(2, 1, 200, "two");
    ASSERT_EQ(list(), "two one");
    const auto other = openHandle(path());
    run(*other,
        "INSERT INTO events (type, client_id, seq, timestamp, stream_database_identifier) VALUES"
        " (4, X'01', 2, 300, 1); INSERT INTO event_content_parts (event_content_part_id,"
        " event_database_identifier, type, value) SELECT 0, MAX(database_identifier), 'text/plain',"
        " CAST('others' AS BLOB) FROM events");
    EXPECT_EQ(list(), "others two");
    ada().read([&](const ZAVRepositories&) { EXPECT_EQ(list(), "others two"); });
}

TEST_F(ListOfConversations, looks_at_many_new_rows_once_and_for_all) {
    receive(1, 1, 100, "one");
    ASSERT_EQ(list(), "one");
    write([&](const ZAVRepositories&) {
        for (int stream = 2; stream <= 250; ++stream) {
            receive(stream, 1, 1000 + stream, std::to_string(stream));
        }
        return true;
    });
    EXPECT_EQ(list(3), "250 249 248 ...");
    std::string kept;
    ada().read([&](const ZAVRepositories& repositories) {
        kept = scalar(repositories.events.database(), "SELECT COUNT(*) FROM stream_recency");
    });
    EXPECT_EQ(kept, "250");
}

TEST_F(ListOfConversations, puts_right_what_was_changed_past_the_store_when_it_comes_to_it) {
    receive(1, 1, 100, "one");
    receive(2, 1, 200, "two");
    receive(3, 1, 300, "three");
    ASSERT_EQ(list(), "three two one");
    execute("UPDATE events SET timestamp = 50 WHERE stream_database_identifier = 3");
    EXPECT_EQ(list(), "two one three");
    execute("DELETE FROM streams WHERE database_identifier = 2");
    EXPECT_EQ(list(2), "one three");
}

TEST_F(ListOfConversations, may_be_repaired_when_something_was_changed_past_the_store) {
    receive(1, 1, 100, "one");
    receive(2, 1, 200, "two");
    ASSERT_EQ(list(), "two one");
    execute("UPDATE events SET timestamp = 900 WHERE stream_database_identifier = 1");
    EXPECT_EQ(textsOf(ZAVConversationList(ada()).first(1)), "two ...") << "too low, as is documented";
    EXPECT_TRUE(ZAVConversationList(ada()).repair());
    EXPECT_EQ(list(), "one two");
}

TEST_F(ListOfConversations, keeps_nothing_before_somebody_asks_for_it) {
    receive(1, 1, 100, "one");
    send(1, "mine");
    ada().read([](const ZAVRepositories& repositories) {
        EXPECT_EQ(scalar(repositories.events.database(), "SELECT COUNT(*) FROM stream_recency"), "0");
    });
}

TEST_F(ListOfConversations, is_had_within_a_write_and_not_kept_when_that_is_taken_back) {
    receive(1, 1, 100, "one");
    ada().write([&](const ZAVRepositories&) {
        receive(2, 1, 200, "two");
        EXPECT_EQ(list(), "two one");
        return false;
    });
    EXPECT_EQ(list(), "one");
}

TEST_F(ListOfConversations, says_why_it_cannot_be_read) {
    const ZAVConversationList conversations(ada());
    ASSERT_TRUE(ada().close(ZAVEventStore::QueuedWorks::run));
    ZAVError error;
    EXPECT_FALSE(conversations.first(10, &error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 5");
    EXPECT_FALSE(conversations.repair(&error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 5");
}

// Statements

TEST_F(ListOfConversations, takes_as_many_statements_for_fifty_as_for_two_and_finds_its_rows_by_an_index) {
    write([&](const ZAVRepositories&) {
        for (int stream = 1; stream <= 60; ++stream) {
            receive(stream, 1, stream, std::to_string(stream));
        }
        return true;
    });
    joinConversation(60, "ada", "0");
    ASSERT_EQ(list(1), "60 ...");
    const auto statementsFor = [&](std::size_t count) {
        std::vector<std::string> statements;
        ada().read([&](const ZAVRepositories& repositories) {
            const StatementTrace trace(repositories.events.database(), StatementTrace::Text::asPrepared);
            EXPECT_EQ(ZAVConversationList(ada(), {.participant = "ada"}).first(count)->conversations.size(),
                      count);
            statements = trace.statements();
        });
        return statements;
    };
    const auto statements = statementsFor(50);
    EXPECT_EQ(statements.size(), statementsFor(2).size());
    ada().read([&](const ZAVRepositories& repositories) {
        for (const std::string& statement : statements) {
            for (const std::string& step : planOf(statement, repositories.events.database())) {
                for (const char* const table : {"events", "streams", "event_content_parts", "conversations",
                                                "conversation_participants", "keyed_values_remote"}) {
                    EXPECT_NE(step, std::string("SCAN ") + table) << "in " << statement;
                    EXPECT_NE(step, std::string("SCAN TABLE ") + table) << "in " << statement;
                }
            }
        }
    });
}

}  // namespace
}  // namespace zav::test
