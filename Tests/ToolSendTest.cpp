// The way of the user's own events: sent, in the outbox, posted.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Support/Tool.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Words = std::vector<std::string>;

/// A message to be sent: `eventJSON` with a text.
json messageToSend(int number, const json& changes = json::object()) {
    json event = eventJSON(number, {{"type", 4}, {"content", {{{"text", "hi"}}}}});
    event.merge_patch(changes);
    return event;
}

/// A store that the user ada sends from.
class SendersStore : public ToolStore {
public:
    SendersStore() { EXPECT_EQ(run("init").status, 0); }

    [[nodiscard]] ToolRun send(Words options, const std::string& input = "") const {
        options.insert(options.end(), {"--user", "ada"});
        ToolCircumstances circumstances;
        circumstances.input = input;
        return run("send", options, circumstances);
    }

    /// What `send` says of it on its way to the store.
    void expectSent(const Words& options, const std::string& out, const std::string& input = "") const {
        const ToolRun sent = send(options, input);
        EXPECT_EQ(sent.status, 0) << sent.err;
        EXPECT_EQ(sent.err, "");
        EXPECT_EQ(sent.out, out);
    }

    /// One field of what waits for the service, in its order.
    [[nodiscard]] std::vector<json> outbox(const std::string& field, const Words& options = {}) const {
        const ToolRun written = run("outbox", options);
        EXPECT_EQ(written.status, 0) << written.err;
        return fieldOfLines(written.out, field);
    }

    [[nodiscard]] Words storedEvents() const {
        return execute(
            "SELECT stream_database_identifier, hex(substr(client_id, -1)), type, creator_id, client_seq,"
            " preceding_seq, IFNULL(seq, 'waits') FROM events ORDER BY database_identifier");
    }
};

const Words intoStream = {"--stream", uuidText(0xAA)};

Words intoStreamWith(const Words& more) {
    Words words = intoStream;
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

TEST(ToolSend, ATextIsAMessageOfTheUsers) {
    const SendersStore store;
    store.importWell(lines({eventJSON(9, {{"seq", 5}})}));
    store.execute("UPDATE streams SET seq = 5");
    store.expectSent(intoStreamWith({"--text", "See you", "--client-id", uuidText(1)}),
                     "new, row 2 of stream 1\n");
    EXPECT_EQ(store.storedEvents()[1], "1|01|4|ada|1|5|waits");
    const auto waiting = store.run("outbox");
    EXPECT_EQ(fieldOfLines(waiting.out, "content"),
              std::vector<json>{json::parse(
                  R"([{"event_client_id": "11111111-1111-1111-1111-111111111101",
                       "event_database_identifier": 2, "index": 0, "media_type": "text/plain", "purged": false,
                       "size": 7, "stream_id": "11111111-1111-1111-1111-1111111111aa", "text": "See you",
                       "transfer_status": 4}])")});
    EXPECT_EQ(fieldOfLines(waiting.out, "seq"), std::vector<json>{nullptr});
    store.expectSent(intoStreamWith({"--text", "See you", "--client-id", uuidText(1)}),
                     "known, row 2 of stream 1\n");
    EXPECT_EQ(store.storedEvents().size(), 2U) << "what was sent before is not stored again";
}

TEST(ToolSend, TextsWithoutAClientIDAreMessagesOfTheirOwn) {
    const SendersStore store;
    for (const char* const row : {"1", "2"}) {
        store.expectSent(intoStreamWith({"--text", "hi"}), std::string("new, row ") + row + " of stream 1\n");
    }
    EXPECT_EQ(store.execute("SELECT COUNT(DISTINCT client_id) FROM events"), Words{"2"});
}

TEST(ToolSend, LinesAreSentInTheirOrderFromAFileOrStandardInput) {
    const SendersStore store;
    const std::string sent = lines({messageToSend(2), messageToSend(1, {{"stream_id", uuidText(0xBB)}})}) +
                             " \n" + lines({messageToSend(3, {{"creator_id", "ada"}})});
    const std::string told =
        "line 1: new, row 1 of stream 1\nline 2: new, row 2 of stream 2\nline 4: new, row 3 of stream 1\n";
    store.expectSent({store.write("sent.jsonl", sent)}, told);
    EXPECT_EQ(store.storedEvents(),
              (Words{"1|02|4|ada|1|0|waits", "2|01|4|ada|1|0|waits", "1|03|4|ada|2|0|waits"}));
    const SendersStore other;
    other.expectSent({}, told, sent);
    EXPECT_EQ(other.storedEvents(), store.storedEvents());
}

TEST(ToolSend, WhatBecameOfEachIsToldInJSONToo) {
    const SendersStore store;
    const ToolRun file = store.send({"--json"}, lines({messageToSend(1), messageToSend(1)}));
    const json told = {{"line", 1},
                       {"outcome", "new"},
                       {"database_identifier", 1},
                       {"stream_database_identifier", 1},
                       {"client_id", uuidText(1)}};
    json again = told;
    again.update({{"line", 2}, {"outcome", "known"}});
    EXPECT_EQ(parsedLines(file.out), (std::vector<json>{told, again})) << file.err;
    const ToolRun text = store.send(intoStreamWith({"--text", "hi", "--client-id", uuidText(2), "--json"}));
    json second = told;
    second.erase("line");
    second.update({{"database_identifier", 2}, {"client_id", uuidText(2)}});
    EXPECT_EQ(parsedLines(text.out), std::vector<json>{second}) << text.err;
}

TEST(ToolSend, ALineThatCannotBeSentEndsItAndThoseBeforeAreStored) {
    const std::vector<std::pair<json, std::string>> mistakes{
        {messageToSend(2, {{"seq", 7}}), "it has a sequence, which the service gives to what is sent"},
        {messageToSend(2, {{"creator_id", "eve"}}), "its author is not the user"},
        {messageToSend(2, {{"stream_id", nullptr}}), "it names no stream"},
        {messageToSend(2, {{"type", nullptr}}), "type is missing"},
        {messageToSend(2, {{"content", {{{"file_path", "../secret"}}}}}),
         "content[0].file_path leads out of the cache directory"},
        {messageToSend(2, {{"transient_metadata", {{"key", {{"base64", "/w=="}}}}}}),
         "transient_metadata.key is not text, which alone is stored"},
    };
    for (const auto& [line, reason] : mistakes) {
        SCOPED_TRACE(reason);
        const SendersStore store;
        const std::string file =
            store.write("sent.jsonl", lines({messageToSend(1)}) + "\n" + lines({line, messageToSend(3)}));
        const ToolRun sent = store.send({file});
        EXPECT_EQ(sent.status, 1);
        EXPECT_EQ(sent.out, "line 1: new, row 1 of stream 1\n");
        EXPECT_EQ(sent.err,
                  "zavevents: " + file + ":3: " + reason + "\n1 events of the lines before are stored\n");
        EXPECT_EQ(store.storedEvents(), Words{"1|01|4|ada|1|0|waits"});
    }
}

TEST(ToolSend, TheCommandLineMayNameTheStream) {
    const SendersStore store;
    const std::string unnamed = lines({messageToSend(1, {{"stream_id", nullptr}})});
    store.expectSent(intoStream, "line 1: new, row 1 of stream 1\n", unnamed);
    store.expectSent({"--stream-row", "1"}, "line 1: known, row 1 of stream 1\n", unnamed);
    EXPECT_EQ(store.outbox("stream_id"), std::vector<json>{uuidText(0xAA)});
    store.expectSent({"--stream-row", "1"}, "line 1: new, row 2 of stream 1\n", lines({messageToSend(2)}));

    const std::string elsewhere = lines({messageToSend(3, {{"stream_id", uuidText(0xBB)}})});
    for (const Words& place : std::vector<Words>{intoStream, {"--stream-row", "1"}, {"--new-stream"}}) {
        EXPECT_EQ(store.send(place, elsewhere).err,
                  "zavevents: standard input:1: it is of another stream\n"
                  "0 events of the lines before are stored\n")
            << place.front();
    }
    EXPECT_EQ(store.send({"--stream-row", "2", "--text", "hi"}).err,
              "zavevents: there is no stream in row 2\n");
    EXPECT_EQ(store.send({"--text", "hi"}).err, "zavevents: it names no stream\n");
    EXPECT_EQ(store.execute("SELECT COUNT(*) FROM streams"), Words{"1"});
}

TEST(ToolSend, WhatDoesNotGoTogetherIsAMistakeOfTheCommandLine) {
    const SendersStore store;
    for (const Words& options :
         std::vector<Words>{{"--stream", uuidText(0xAA), "--stream-row", "1", "--text", "hi"},
                            {"--stream", uuidText(0xAA), "--new-stream", "--text", "hi"},
                            {"--stream-row", "1", "--new-stream", "--text", "hi"},
                            {"/dev/null", "--text", "hi"},
                            {"/dev/null", "--client-id", uuidText(1)},
                            {"--text", ""}}) {
        EXPECT_EQ(store.send(options).status, 2) << options.front();
    }
    EXPECT_EQ(store.run("send", {"--stream", uuidText(0xAA), "--text", "hi"}).status, 2)
        << "a user is needed";
    EXPECT_EQ(store.storedEvents(), Words{});
}

TEST(ToolSend, AStreamIsBegunOfflineAndNamedWhenTheServiceKnowsIt) {
    const SendersStore store;
    store.expectSent(
        {"--new-stream"}, "line 1: new, row 1 of stream 1\nline 2: new, row 2 of stream 1\n",
        lines({messageToSend(1, {{"stream_id", nullptr}}), messageToSend(2, {{"stream_id", nullptr}})}));
    store.expectSent({"--stream-row", "1", "--text", "hi", "--client-id", uuidText(3)},
                     "new, row 3 of stream 1\n");
    EXPECT_EQ(store.outbox("client_id"), std::vector<json>{}) << "the service does not know the stream";
    const Words named = {"--stream-row", "1", "--stream", uuidText(0xAA)};
    EXPECT_EQ(store.run("stream-posted", named).out, "stream 1 has its UUID\n");
    EXPECT_EQ(store.run("stream-posted", named).out, "stream 1 has its UUID\n") << "it may be told twice";
    EXPECT_EQ(store.outbox("client_id"), (std::vector<json>{uuidText(1), uuidText(2), uuidText(3)}));
}

TEST(ToolSend, WhatWasBegunOfflineMovesToTheStreamThatItIs) {
    const SendersStore store;
    store.expectSent(intoStreamWith({"--text", "hi", "--client-id", uuidText(1)}),
                     "new, row 1 of stream 1\n");
    store.expectSent({"--new-stream", "--text", "hi", "--client-id", uuidText(2)},
                     "new, row 2 of stream 2\n");
    EXPECT_EQ(store.run("stream-posted", {"--stream-row", "2", "--stream", uuidText(0xAA)}).out,
              "what waited in stream 2 waits in stream 1, which had the UUID before\n");
    EXPECT_EQ(store.outbox("client_seq"), (std::vector<json>{1, 2}));
    EXPECT_EQ(store.outbox("stream_database_identifier"), (std::vector<json>{1, 1}));
}

TEST(ToolStreamPosted, AStreamKeepsTheUUIDThatItHas) {
    const SendersStore store;
    store.expectSent(intoStreamWith({"--text", "hi"}), "new, row 1 of stream 1\n");
    EXPECT_EQ(store.run("stream-posted", {"--stream-row", "1", "--stream", uuidText(0xBB)}).err,
              "zavevents: the stream in row 1 has a UUID already: " + uuidText(0xAA) + "\n");
    EXPECT_EQ(store.run("stream-posted", {"--stream-row", "2", "--stream", uuidText(0xBB)}).err,
              "zavevents: there is no stream in row 2\n");
    EXPECT_EQ(store.outbox("stream_id"), std::vector<json>{uuidText(0xAA)});
}

TEST(ToolOutbox, HoldsBackWhatFollowsAnUploadWhenItIsToldTo) {
    const SendersStore store;
    fs::create_directories(store.file("cache/pictures"));
    const json picture = messageToSend(
        2, {{"content", {{{"media_type", "image/png"}, {"size", 3}, {"file_path", "pictures/2"}}}}});
    const Words withCache = {"--cache", store.file("cache")};
    const ToolRun missing = store.send(withCache, lines({picture}));
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(
        missing.err.find("the file of a part of its content is not there: " + store.file("cache/pictures/2")),
        std::string::npos)
        << missing.err;
    std::ofstream(store.file("cache/pictures/2")) << "png";
    store.expectSent(withCache,
                     "line 1: new, row 1 of stream 1\nline 2: new, row 2 of stream 1\n"
                     "line 3: new, row 3 of stream 1\nline 4: new, row 4 of stream 2\n",
                     lines({messageToSend(1), picture, messageToSend(3),
                            messageToSend(4, {{"stream_id", uuidText(0xBB)}})}));
    EXPECT_EQ(store.execute("SELECT file_path, transfer_status FROM event_content_parts"
                            " WHERE event_database_identifier = 2"),
              Words{"pictures/2|0"});
    EXPECT_EQ(store.outbox("client_id"), (std::vector<json>{uuidText(1), uuidText(3), uuidText(4)}));
    EXPECT_EQ(store.outbox("client_id", {"--hold-back"}), (std::vector<json>{uuidText(1), uuidText(4)}));
}

TEST(ToolOutbox, ReadsNothingThatTheTraceDoesNotTell) {
    const SendersStore store;
    EXPECT_NE(runTool({"--trace", "outbox", store.path()}).err.find("SELECT"), std::string::npos);
}

}  // namespace
}  // namespace zav::test
