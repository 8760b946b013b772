// What the service sends: received, missing, deleted with its stream.

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

/// A store that receives for the user ada.
class ReceiversStore : public ToolStore {
public:
    ReceiversStore() { EXPECT_EQ(run("init").status, 0); }

    [[nodiscard]] std::string cache() const { return file("cache"); }

    [[nodiscard]] ToolRun receive(const std::vector<json>& events, const Words& more = {}) const {
        Words options{write("received.jsonl", lines(events)),
                      "--stream",
                      uuidText(0xAA),
                      "--user",
                      "ada",
                      "--cache",
                      cache()};
        options.insert(options.end(), more.begin(), more.end());
        return run("receive", options);
    }

    void expectReceived(const std::vector<json>& events, const std::string& out,
                        const Words& more = {}) const {
        const ToolRun received = receive(events, more);
        EXPECT_EQ(received.status, 0) << received.err;
        EXPECT_EQ(received.err, "");
        EXPECT_EQ(received.out, out);
    }

    [[nodiscard]] Words storedEvents() const {
        return execute(
            "SELECT type, IFNULL(seq, 'waits'), IFNULL(creator_id, '-') FROM events"
            " ORDER BY database_identifier");
    }
};

/// A message that the service has sequenced.
json sequenced(int number, int seq, const json& changes = json::object()) {
    json event = eventJSON(
        number, {{"type", 4}, {"seq", seq}, {"creator_id", "bob"}, {"content", {{{"text", "hi"}}}}});
    event.merge_patch(changes);
    return event;
}

TEST(ToolReceive, TellsOfEachLineWhatBecameOfItsEvent) {
    const ReceiversStore store;
    store.importWell(lines({eventJSON(1, {{"type", 4}})}));
    const std::vector<json> events{
        sequenced(1, 1, {{"creator_id", "ada"}}),
        sequenced(2, 2, {{"stream_id", nullptr}}),
        sequenced(3, 3),
        sequenced(4, 4, {{"type", 9}, {"target_seq", 3}, {"content", nullptr}}),
    };
    store.expectReceived(events,
                         "line 1: own, row 1\nline 2: new, row 2\nline 3: new, row 3\nline 4: new, row 4\n");
    EXPECT_EQ(store.storedEvents(), (Words{"4|1|ada", "4|2|bob", "10|3|bob", "9|4|bob"}));
    EXPECT_EQ(store.execute("SELECT seq FROM streams"), Words{"4"}) << "the stream has come so far";
    store.expectReceived(
        events,
        "line 1: known, row 1\nline 2: known, row 2\nline 3: tombstone, row 3\nline 4: known, row 4\n");
    store.expectReceived({sequenced(2, 2, {{"creator_name", "Bob"}})}, "line 1: changed, row 2\n");
    EXPECT_EQ(store.storedEvents(), (Words{"4|1|ada", "4|2|bob", "10|3|bob", "9|4|bob"}));
}

TEST(ToolReceive, WhatIsNotStoredIsToldAndAFailureAndCostsTheOthersNothing) {
    const ReceiversStore store;
    store.expectReceived({sequenced(1, 1)}, "line 1: new, row 1\n");
    const std::vector<json> events{sequenced(2, 2), sequenced(3, 1), eventJSON(4, {{"type", 4}}),
                                   sequenced(5, 5, {{"stream_id", uuidText(0xBB)}})};
    const std::string conflict = "at the sequence 1 stands another event: its client_id is " + uuidText(1) +
                                 ", that of this one " + uuidText(3);
    const ToolRun received = store.receive(events);
    EXPECT_EQ(received.status, 1);
    EXPECT_EQ(received.out,
              "line 1: new, row 2\nline 2: conflict, row 1: " + conflict +
                  "\nline 3: refused: it has no sequence, which the service gives to what it sends\n"
                  "line 4: refused: it is of another stream\n");
    EXPECT_EQ(received.err, "zavevents: 3 of 4 events are not stored\n");
    EXPECT_EQ(store.storedEvents(), (Words{"4|1|bob", "4|2|bob"}));
    EXPECT_EQ(parsedLines(store.receive(events, {"--json"}).out),
              (std::vector<json>{
                  {{"line", 1}, {"outcome", "known"}, {"database_identifier", 2}},
                  {{"line", 2}, {"outcome", "conflict"}, {"database_identifier", 1}, {"reason", conflict}},
                  {{"line", 3},
                   {"outcome", "refused"},
                   {"reason", "it has no sequence, which the service gives to what it sends"}},
                  {{"line", 4}, {"outcome", "refused"}, {"reason", "it is of another stream"}}}));
}

TEST(ToolReceive, AllOfThemOrNoneAreStoredWhenItIsAskedFor) {
    const ReceiversStore store;
    const std::vector<json> events{sequenced(1, 1), eventJSON(2, {{"type", 4}}), sequenced(3, 3)};
    const ToolRun refused = store.receive(events, {"--all-or-none"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.err, "zavevents: " + store.file("received.jsonl") +
                               ":2: it has no sequence, which the service gives to what it sends\n"
                               "none of the events is stored\n");
    EXPECT_EQ(store.storedEvents(), Words{});
    EXPECT_EQ(store.execute("SELECT COUNT(*) FROM streams"), Words{"0"});
    store.expectReceived({events[0], events[2]}, "line 1: new, row 1\nline 2: new, row 2\n",
                         {"--all-or-none"});
}

TEST(ToolReceive, ALineThatIsNoEventKeepsAllOfThemFromTheStore) {
    const ReceiversStore store;
    const std::vector<std::pair<json, std::string>> mistakes{
        {sequenced(2, 2, {{"type", 0}}), "type is 0"},
        {sequenced(2, 2, {{"seq", "two"}}), "seq is not a whole number"},
        {sequenced(2, 2, {{"content", {{{"external_url", "https://content.example/2"}}}}}),
         "content[0] has an external_url and no transfer_status: --app-id and --user must say for whom to "
         "download it"},
    };
    for (const auto& [line, reason] : mistakes) {
        const ToolRun received = store.receive({sequenced(1, 1), line});
        EXPECT_EQ(received.status, 1);
        EXPECT_EQ(received.out, "");
        EXPECT_EQ(received.err, "zavevents: " + store.file("received.jsonl") + ":2: " + reason + "\n");
    }
    EXPECT_EQ(store.storedEvents(), Words{});
}

TEST(ToolReceive, RemovesTheFilesOfWhatWasDeletedAndNoOthers) {
    const ReceiversStore store;
    fs::create_directories(store.cache());
    for (const std::string name : {"1", "2"}) {
        std::ofstream(store.cache() + "/" + name) << "content";
    }
    const auto part = [](const std::string& file) {
        return json{
            {"content", {{{"media_type", "image/png"}, {"transfer_status", 4}, {"file_path", file}}}}};
    };
    store.importWell(lines({sequenced(1, 1, part("1")), sequenced(2, 2, part("2"))}));
    store.expectReceived({sequenced(3, 3, {{"type", 9}, {"target_seq", 1}, {"content", nullptr}})},
                         "line 1: new, row 3\n");
    EXPECT_FALSE(fs::exists(store.cache() + "/1"));
    EXPECT_TRUE(fs::exists(store.cache() + "/2"));
}

TEST(ToolReceive, PreparesDownloadsForTheUser) {
    const ReceiversStore store;
    const auto picture = [](const std::string& url) {
        return sequenced(1, 1, {{"content", {{{"media_type", "image/png"}, {"external_url", url}}}}});
    };
    const Words forApplication = {"--app-id", uuidText(0x22)};
    store.expectReceived({picture("https://content.example/1")}, "line 1: new, row 1\n", forApplication);
    EXPECT_EQ(store.execute("SELECT url, transfer_status, file_path FROM event_content_parts"),
              Words{"https://content.example/1|2|" + uuidText(0x22) + "/ada/" + uuidText(1) + "/part-0"});
    store.expectReceived({picture("https://content.example/2")}, "line 1: changed, row 1\n", forApplication);
    EXPECT_EQ(store.execute("SELECT url FROM event_content_parts"), Words{"https://content.example/2"});
}

TEST(ToolReceive, RecordsChangesWhenItIsAskedFor) {
    const ReceiversStore store;
    store.expectReceived({sequenced(1, 1)}, "line 1: new, row 1\n");
    EXPECT_EQ(store.stats().at("unprocessed"), 0);
    store.expectReceived({sequenced(1, 1), sequenced(2, 2)}, "line 1: known, row 1\nline 2: new, row 2\n",
                         {"--record-changes"});
    EXPECT_EQ(fieldOfLines(store.events({"--unprocessed"}), "seq"), std::vector<json>{2});
}

TEST(ToolMissing, AreTheSequencesBetweenAndBehindThoseThatAreStored) {
    const ReceiversStore store;
    EXPECT_EQ(store.receive({sequenced(1, 1), sequenced(3, 3), sequenced(9, 9)}).status, 0);
    store.execute("UPDATE streams SET seq = 12");
    const Words ofStream = {"--stream", uuidText(0xAA)};
    EXPECT_EQ(store.run("missing", ofStream).out, "10 to 12\n4 to 8\n2\n");
    EXPECT_EQ(store.run("missing", {"--stream", uuidText(0xAA), "--limit", "2"}).out, "10 to 12\n4 to 8\n");
    const ToolRun told = store.run("missing", {"--stream", uuidText(0xAA), "--json"});
    EXPECT_EQ(told.out, R"({"gaps":[{"first":10,"last":12},{"first":4,"last":8},{"first":2,"last":2}]})"
                        "\n");
    store.execute("DELETE FROM events; UPDATE streams SET seq = NULL");
    EXPECT_EQ(store.run("missing", ofStream).out, "");
    EXPECT_EQ(store.run("missing", {"--stream", uuidText(0xAA), "--json"}).out, "{\"gaps\":[]}\n");
    const ToolRun unknown = store.run("missing", {"--stream", uuidText(0xBB)});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.err, "zavevents: there is no stream " + uuidText(0xBB) + "\n");
}

TEST(ToolDeleteStream, TakesItsEventsAndTheirFilesAndNoOthers) {
    const ReceiversStore store;
    fs::create_directories(store.cache());
    const auto inStream = [&](int number, int stream) {
        std::ofstream(store.cache() + "/" + std::to_string(number)) << "content";
        return sequenced(number, number,
                         {{"stream_id", uuidText(stream)},
                          {"transient_metadata", {{"key", "value"}}},
                          {"content", {{{"transfer_status", 4}, {"file_path", std::to_string(number)}}}}});
    };
    store.importWell(lines({inStream(1, 0xAA), inStream(2, 0xBB), inStream(3, 0xAA)}), {"--record-changes"});
    store.execute("INSERT INTO messages (event_database_identifier) VALUES (1), (2)");
    const Words words = {"--stream-row", "1", "--cache", store.cache()};
    const ToolRun run = store.run("delete-stream", words);
    EXPECT_EQ(run.out, "1 stream deleted with all that belongs to it\n") << run.err;
    for (const char* const table :
         {"streams", "events", "event_content_parts", "messages", "synced_changes", "keyed_values_remote"}) {
        EXPECT_EQ(store.execute(std::string("SELECT COUNT(*) FROM ") + table), Words{"1"}) << table;
    }
    EXPECT_FALSE(fs::exists(store.cache() + "/1"));
    EXPECT_TRUE(fs::exists(store.cache() + "/2"));
    EXPECT_FALSE(fs::exists(store.cache() + "/3"));
    EXPECT_EQ(store.run("delete-stream", words).out, "0 stream deleted with all that belongs to it\n");
    EXPECT_EQ(store.run("delete-stream", {"--stream-row", "1"}).status, 2) << "files are below a directory";
}

}  // namespace
}  // namespace zav::test
