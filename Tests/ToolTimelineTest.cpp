// Pages of a timeline, and the list of conversations, from the command line.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Support/Tool.h"

namespace zav::test {
namespace {

using nlohmann::json;
using Words = std::vector<std::string>;

const std::string room = uuidText(0xAA);

/// A message of ada's with a sequence of its own.
json sequenced(int seq, const json& changes = json::object()) {
    json event = eventJSON(seq, {{"type", 4},
                                 {"seq", seq},
                                 {"creator_id", "ada"},
                                 {"server_timestamp", 1000 + seq},
                                 {"content", {{{"text", "hi"}}}}});
    event.merge_patch(changes);
    return event;
}

json waiting(int number, int clientSeq) {
    return sequenced(number, {{"seq", nullptr}, {"client_seq", clientSeq}, {"server_timestamp", nullptr}});
}

/// A room with the sequences 1, 2, 4 and 5, and two messages that wait.
class ToolTimeline : public testing::Test {
protected:
    void SetUp() override {
        store_.importWell(
            lines({sequenced(4), sequenced(1), waiting(21, 8), sequenced(5), sequenced(2), waiting(20, 7)}));
    }

    /// What a selection of the room's events is written as.
    [[nodiscard]] std::vector<json> page(const Words& selection) const {
        Words words = {"--stream", room};
        words.insert(words.end(), selection.begin(), selection.end());
        return parsedLines(store_.events(words));
    }

    /// The last bytes of their `client_id`, in the order in which they are written.
    [[nodiscard]] Words clients(const Words& selection) const {
        Words ends;
        for (const json& event : page(selection)) {
            ends.push_back(event.at("client_id").get<std::string>().substr(34));
        }
        return ends;
    }

    [[nodiscard]] std::string cursorOfNewest(int number) const {
        return page({"--last", std::to_string(number)}).front().at("cursor");
    }

    ToolStore store_;
};

TEST_F(ToolTimeline, EndsWithWhatWaits) {
    EXPECT_EQ(clients({"--last", "4"}), (Words{"04", "05", "14", "15"}));
    EXPECT_EQ(clients({"--last", "100"}), (Words{"01", "02", "04", "05", "14", "15"}));
}

TEST_F(ToolTimeline, GoesOnBeforeAndBehindACursor) {
    EXPECT_EQ(clients({"--before", cursorOfNewest(3), "--limit", "2"}), (Words{"02", "04"}));
    EXPECT_EQ(clients({"--before", cursorOfNewest(6)}), Words{});
    EXPECT_EQ(clients({"--after", cursorOfNewest(4), "--limit", "2"}), (Words{"05", "14"}));
    EXPECT_EQ(clients({"--after", cursorOfNewest(2)}), Words{"15"});
}

TEST_F(ToolTimeline, ACursorStandsAtTheSequenceThatItsEventWasGiven) {
    const std::string cursor = cursorOfNewest(2);
    const auto row = page({"--after", cursor, "--limit", "1"}).front().at("database_identifier").get<int>();
    const auto first = page({"--last", "2"}).front().at("database_identifier").get<int>();
    ASSERT_NE(row, first);
    EXPECT_EQ(store_
                  .run("sequence",
                       {"--id", std::to_string(first), "--seq", "6", "--creator", "ada", "--timestamp", "9"})
                  .status,
              0);
    EXPECT_EQ(clients({"--before", cursor, "--limit", "1"}), Words{"05"});
    EXPECT_EQ(clients({"--after", cursor}), Words{"15"});
}

TEST_F(ToolTimeline, WritesTheEventsAsAllAreWrittenWithTheirCursors) {
    const std::vector<json> all = parsedLines(store_.events());
    for (json event : page({"--last", "100"})) {
        EXPECT_TRUE(event.at("cursor").is_string());
        event.erase("cursor");
        EXPECT_EQ(std::count(all.begin(), all.end(), event), 1) << event;
    }
}

TEST_F(ToolTimeline, KeepsAnExpirationThatIsNoWholeSecond) {
    store_.importWell(lines({sequenced(9, {{"content",
                                            {{{"external_url", "https://content.example.com/9"},
                                              {"transfer_status", 3},
                                              {"external_content_url_expiration", 12.5}}}}})}));
    const json written =
        page({"--after", page({"--before", cursorOfNewest(2), "--limit", "2"})[0].at("cursor"), "--limit",
              "1"})[0];
    EXPECT_EQ(written.at("content")[0].at("external_content_url_expiration"), 12.5) << written;
}

TEST_F(ToolTimeline, OfAStreamThatIsNotRegisteredIsEmpty) {
    EXPECT_EQ(store_.events({"--stream", uuidText(0xBB), "--last", "5"}), "");
}

TEST_F(ToolTimeline, RefusesTheCursorOfAnotherStream) {
    store_.importWell(lines({sequenced(1, {{"stream_id", uuidText(0xBB)}})}));
    const ToolRun refused = store_.run("events", {"--stream", uuidText(0xBB), "--before", cursorOfNewest(1)});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_NE(refused.err.find("cannot read the events: "), std::string::npos) << refused.err;
}

TEST_F(ToolTimeline, RefusesWhatDoesNotGoTogether) {
    std::string damaged = cursorOfNewest(1);
    damaged.back() = damaged.back() == '0' ? '1' : '0';
    for (const Words& options : std::vector<Words>{{"--last", "3"},
                                                   {"--before", cursorOfNewest(1)},
                                                   {"--stream", room},
                                                   {"--stream", room, "--last", "0"},
                                                   {"--stream", room, "--last", "3", "--limit", "2"},
                                                   {"--stream", room, "--last", "3", "--all"},
                                                   {"--stream", room, "--before", damaged},
                                                   {"--stream", room, "--after", "3"},
                                                   {"--limit", "3"}}) {
        EXPECT_EQ(store_.run("events", options).status, 2) << options.back();
    }
    EXPECT_EQ(store_.run("events", {"--stream", room, "--after", damaged}).err,
              "zavevents events: --after: '" + damaged +
                  "' is not the cursor of an event; see 'zavevents events --help'\n");
}

/// A room of three members, one whose newest event is older, and one that has no events.
class ToolConversations : public testing::Test {
protected:
    void SetUp() override {
        store_.importWell(lines({sequenced(1), sequenced(2), sequenced(3, {{"creator_id", "bruno"}}),
                                 sequenced(1, {{"stream_id", uuidText(0xBB)}, {"server_timestamp", 500}})}));
        EXPECT_EQ(store_.run("conversation", {"--stream", room, "--member", "ada", "bruno", "chloe"}).status,
                  0);
        EXPECT_EQ(store_.run("conversation", {"--stream", uuidText(0xCC)}).status, 0);
        EXPECT_EQ(store_.run("participant-seq", {"--stream", room, "--member", "bruno", "--seq", "1"}).status,
                  0);
    }

    [[nodiscard]] std::vector<json> conversations(const Words& options = {}) const {
        const ToolRun written = store_.run("conversations", options);
        EXPECT_EQ(written.status, 0) << written.err;
        EXPECT_EQ(written.err, "");
        return parsedLines(written.out);
    }

    ToolStore store_;
};

TEST_F(ToolConversations, ComeWithTheNewestLastEventFirst) {
    const auto written = conversations();
    ASSERT_EQ(written.size(), 2U);
    EXPECT_EQ(written[0].at("stream_id"), room);
    EXPECT_EQ(written[0].at("stream_database_identifier"), 1);
    EXPECT_EQ(written[0].at("waiting"), 0);
    EXPECT_FALSE(written[0].contains("unread")) << "nobody was named who may have read them";
    EXPECT_EQ(written[1].at("stream_id"), uuidText(0xBB));
    EXPECT_EQ(written[1].at("last_event").at("server_timestamp"), 500);
    json last = parsedLines(store_.events({"--stream", room, "--last", "1"})).front();
    last.erase("cursor");
    EXPECT_EQ(written[0].at("last_event"), last);
}

TEST_F(ToolConversations, TellWhatAMemberHasNotRead) {
    EXPECT_EQ(conversations({"--member", "bruno"})[0].at("unread"), 1) << "one's own message is read";
    EXPECT_EQ(conversations({"--member", "chloe"})[0].at("unread"), 3);
    EXPECT_EQ(conversations({"--member", "chloe", "--unread-cap", "2"})[0].at("unread"), 2);
    EXPECT_FALSE(conversations({"--member", "dan"})[0].contains("unread"));
}

TEST_F(ToolConversations, TellHowManyEventsWait) {
    store_.importWell(lines({waiting(20, 1), waiting(21, 2)}));
    const auto written = conversations();
    EXPECT_EQ(written[0].at("waiting"), 2);
    EXPECT_EQ(written[0].at("last_event").at("client_id"), uuidText(21));
    EXPECT_FALSE(written[0].at("last_event").contains("seq"));
}

TEST_F(ToolConversations, AreWrittenPageByPage) {
    const auto first = conversations({"--limit", "1"});
    ASSERT_EQ(first.size(), 1U);
    const auto second = conversations({"--after", first[0].at("cursor"), "--limit", "1"});
    ASSERT_EQ(second.size(), 1U);
    EXPECT_EQ(second[0].at("stream_id"), uuidText(0xBB));
    EXPECT_EQ(conversations({"--after", second[0].at("cursor")}).size(), 0U);
    EXPECT_EQ(store_.run("conversations", {"--after", "elsewhere"}).status, 2);
}

}  // namespace
}  // namespace zav::test
