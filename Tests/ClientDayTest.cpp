#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Support/SchemaVersion.h"
#include "Support/Tool.h"

namespace zav::test {
namespace {

using nlohmann::json;
using Options = std::vector<std::string>;
using Names = std::vector<std::string>;
namespace fs = std::filesystem;

const std::string appID = "0f0e0d0c-0b0a-0908-0706-050403020100";
const std::string conversation = uuidText(0xAA);
constexpr std::int64_t farAway = 4000000000;

/// A message of the conversation.
json messageJSON(int number, const std::vector<json>& parts, const json& changes) {
    json event = eventJSON(number, {{"type", 4}, {"creator_id", "bob"}, {"content", parts}});
    event.merge_patch(changes);
    return event;
}

json photo(const std::string& name, int size) {
    return {{"media_type", "image/jpeg"}, {"size", size}, {"external_url", "https://content.test/" + name}};
}

/// A client with a store and a cache directory, which does everything by commands.
class Client {
public:
    Client() { fs::create_directory(cache()); }

    [[nodiscard]] const ToolStore& store() const { return store_; }
    [[nodiscard]] std::string cache() const { return store_.file("cache"); }

    /// Runs a command that is expected to succeed; returns what it writes.
    std::string does(const std::string& command, const Options& options = {}) const {
        ToolRun run = store_.run(command, options);
        EXPECT_EQ(run.status, 0) << command << ": " << run.err;
        EXPECT_EQ(run.err, "") << command << " has nothing to complain about";
        return std::move(run.out);
    }

    /// The rows of the events that a selection gives.
    [[nodiscard]] Names events(const Options& selection) const {
        Names rows;
        for (const json& row : fieldOfLines(does("events", selection), "database_identifier")) {
            rows.push_back(row.dump());
        }
        return rows;
    }

    /// The parts that a selection gives, as "event.index".
    [[nodiscard]] Names parts(const Options& selection) const {
        Names names;
        for (const json& part : parsedLines(does("parts", selection))) {
            names.push_back(part.at("event_database_identifier").dump() + "." + part.at("index").dump());
        }
        return names;
    }

    [[nodiscard]] json part(const std::string& event, const std::string& index) const {
        return json::parse(does("parts", {"--event", event, "--index", index}));
    }

    void transfer(const std::string& event, const std::string& index, const Options& changes) const {
        Options options{"--event", event, "--index", index};
        options.insert(options.end(), changes.begin(), changes.end());
        EXPECT_EQ(does("transfer", options), "1 part updated\n");
    }

    /// Keeps the content of a part in the file that the store has assigned to it; returns the file's path.
    std::string keepFile(const std::string& event, const std::string& index, std::size_t size) const {
        const fs::path file = fs::path(cache()) / part(event, index).at("file_path").get<std::string>();
        fs::create_directories(file.parent_path());
        return store_.write(fs::relative(file, fs::path(store_.path()).parent_path()).string(),
                            std::string(size, 'x'));
    }

private:
    ToolStore store_;
};

TEST(ClientDay, EveryOperationServesAClientFromTheFirstMessageToTheCleanUp) {
    const Client client;
    const ToolStore& store = client.store();

    // In the morning a conversation is received: Ada joins (row 1), Bob sends photos (2) and a word (3).
    client.does("init");
    store.importWell(
        lines({eventJSON(1, {{"seq", 1}, {"creator_id", "bob"}, {"member_id", "ada"}}),
               messageJSON(2, {photo("1", 3000), photo("2", 2000)}, {{"seq", 2}, {"preceding_seq", 1}}),
               messageJSON(3, {{{"media_type", "text/plain"}, {"text", "look!"}}},
                           {{"seq", 3}, {"preceding_seq", 2}, {"transient_metadata", {{"mood", "glad"}}}})}),
        {"--app-id", appID, "--user", "ada", "--record-changes"});
    EXPECT_EQ(client.events({"--all"}), (Names{"1", "2", "3"}));
    EXPECT_EQ(client.events({"--posted"}), (Names{"1", "2", "3"}));
    EXPECT_EQ(client.events({"--unprocessed"}), (Names{"1", "2", "3"}))
        << "what is new waits to be processed";
    EXPECT_EQ(client.does("processed", {"--id", "1", "2"}), "2 events processed\n");
    EXPECT_EQ(client.events({"--unprocessed"}), (Names{"3"}));
    EXPECT_EQ(client.part("2", "1").at("transfer_status"), 2) << "a received photo is ready for download";
    EXPECT_EQ(client.part("2", "1").at("file_path"), appID + "/ada/" + uuidText(2) + "/part-1");

    // The photos' URLs carry no expiration yet: each is asked for anew, then downloaded.
    EXPECT_EQ(client.parts({"--expired-downloads"}), (Names{"2.0", "2.1"}));
    EXPECT_EQ(client.parts({"--expired-downloads", "--no-mime", "--max-size", "2000"}), (Names{"2.1"}));
    EXPECT_EQ(client.parts({"--expired-downloads", "--mime", "image/jpeg", "--limit", "5"}),
              (Names{"2.0", "2.1"}));
    for (const std::string index : {"0", "1"}) {
        client.transfer("2", index,
                        {"--status", "3", "--url", "https://content.test/fresh-" + index, "--expires",
                         std::to_string(farAway)});
    }
    EXPECT_EQ(client.parts({"--expired-downloads"}), Names{});
    EXPECT_EQ(client.parts({"--incomplete-downloads"}), (Names{"2.0", "2.1"}));
    client.transfer("2", "1", {"--expires", "1000"});
    EXPECT_EQ(client.parts({"--incomplete-downloads"}), (Names{"2.0"}));
    EXPECT_EQ(client.parts({"--expired-downloads", "--no-mime"}), (Names{"2.1"}))
        << "a download whose URL has expired on the way needs another";
    client.transfer("2", "1", {"--expires", std::to_string(farAway)});
    const std::string firstPhoto = client.keepFile("2", "0", 3000);
    const std::string secondPhoto = client.keepFile("2", "1", 2000);
    client.transfer("2", "0", {"--status", "4", "--accessed", "1700000000"});
    client.transfer("2", "1", {"--status", "4", "--accessed", "1700009000"});
    EXPECT_EQ(client.parts({"--incomplete-downloads"}), Names{});

    // Offline, Ada answers with a photo (row 4) and opens a conversation that the service does not know (5).
    store.importWell(lines(
        {messageJSON(4,
                     {{{"media_type", "image/jpeg"},
                       {"size", 1000},
                       {"transfer_status", 0},
                       {"file_path", "outgoing/photo"}},
                      {{"media_type", "text/plain"}, {"text", "mine"}}},
                     {{"creator_id", "ada"}, {"preceding_seq", 3}}),
         eventJSON(5, {{"stream_id", nullptr}, {"stream_database_identifier", 9}, {"creator_id", "ada"}})}));
    EXPECT_EQ(client.events({"--unpublishable"}), (Names{"5"})) << "its stream has no identity yet";
    EXPECT_EQ(client.events({"--publishable"}), Names{}) << "the photo is not uploaded yet";
    const std::string ownPhoto = client.keepFile("4", "0", 1000);

    // Online again: the photo gets a URL, is uploaded, and then the message can go.
    EXPECT_EQ(client.parts({"--unassigned-urls"}), (Names{"4.0"}));
    client.transfer("4", "0", {"--status", "1"});
    EXPECT_EQ(client.parts({"--unassigned-urls"}), (Names{"4.0"})) << "still without a URL";
    client.transfer("4", "0", {"--url", "https://content.test/mine"});
    EXPECT_EQ(client.parts({"--unassigned-urls"}), Names{});
    EXPECT_EQ(client.parts({"--incomplete-uploads", "--limit", "3"}), (Names{"4.0"}));
    EXPECT_EQ(client.events({"--publishable"}), Names{}) << "the upload is in flight";
    client.transfer("4", "0", {"--status", "4", "--accessed", "1700005000"});
    EXPECT_EQ(client.parts({"--incomplete-uploads"}), Names{});
    EXPECT_EQ(client.events({"--publishable"}), (Names{"4"})) << "every part is at the service";

    // The service sequences the message; what mirrors the sequence follows.
    EXPECT_EQ(client.does("sequence",
                          {"--id", "4", "--seq", "4", "--creator", "ada", "--timestamp", "1760000492000"}),
              "1 event sequenced\n");
    EXPECT_EQ(client.events({"--publishable"}), Names{});
    EXPECT_EQ(client.events({"--posted"}), (Names{"1", "2", "3", "4"}));
    EXPECT_EQ(client.does("conversation", {"--stream", conversation, "--member", "ada", "bob"}),
              "conversation 1: 2 participants added\n");
    EXPECT_EQ(client.does("message", {"--event", "2"}), "1\n");
    EXPECT_EQ(client.does("message", {"--event", "4"}), "2\n");
    EXPECT_EQ(client.does("participant-seq", {"--stream", conversation, "--member", "ada", "--seq", "4"}),
              "1 participant updated\n");
    EXPECT_EQ(client.does("message-seq", {"--event", "4", "--seq", "4"}), "1 message updated\n");
    EXPECT_EQ(store.execute("SELECT member_id, seq FROM conversation_participants ORDER BY member_id"),
              (Names{"ada|4", "bob|NULL"}));
    EXPECT_EQ(store.execute("SELECT seq FROM messages ORDER BY database_identifier"), (Names{"NULL", "4"}));

    // The photos are shown: each part is found by whatever names it.
    EXPECT_EQ(client.parts({"--message", "2", "--index", "0"}), (Names{"4.0"}));
    EXPECT_EQ(client.parts({"--object-id", "zav:///messages/" + uuidText(2) + "/parts/1"}), (Names{"2.1"}));
    EXPECT_EQ(client.parts({"--url", "https://content.test/fresh-0"}), (Names{"2.0"}));
    EXPECT_EQ(client.parts({"--id", "1"}), (Names{"2.0"}));
    EXPECT_EQ(client.part("4", "1").at("text"), "mine");

    // Bob takes back his word, Ada gives up her new conversation.
    const json word = json::parse(client.does("events", {"--seq", "3", "--stream", conversation}));
    EXPECT_EQ(word.at("content").at(0).at("text"), "look!");
    EXPECT_EQ(word.at("transient_metadata"), json({{"mood", "glad"}}));
    EXPECT_EQ(client.does("tombstone",
                          {"--stream-row", word.at("stream_database_identifier").dump(), "--seq", "3"}),
              "1 event tombstoned\n");
    EXPECT_EQ(json::parse(client.does("events", {"--id", "3"})).at("type"), 10);
    EXPECT_EQ(client.does("delete", {"--id", "5"}), "1 events deleted\n");
    EXPECT_EQ(client.events({"--unpublishable"}), Names{});
    EXPECT_EQ(client.does("processed", {"--id", "3"}), "1 events processed\n");
    EXPECT_EQ(client.events({"--unprocessed"}), Names{});
    EXPECT_EQ(client.events({"--revived", "1"}), (Names{"1", "2", "3", "4"}))
        << "a revived stream is replayed by the sequence that each event was written after";

    // In the evening the disk is full: what was not looked at for longest goes first.
    EXPECT_EQ(store.stats().at("disk_utilization"), 6000);
    EXPECT_EQ(client.parts({"--least-recent", "3500"}), (Names{"2.0", "4.0"}));
    EXPECT_EQ(client.does("reclaim", {"--bytes", "3500", "--cache", client.cache()}),
              appID + "/ada/" + uuidText(2) + "/part-0: 3000 bytes\noutgoing/photo: 1000 bytes\n" +
                  "2 parts, 4000 bytes freed\n");
    EXPECT_FALSE(fs::exists(firstPhoto)) << "the photo that was looked at first is gone";
    EXPECT_FALSE(fs::exists(ownPhoto)) << "the own photo is at the service";
    EXPECT_TRUE(fs::exists(secondPhoto)) << "enough was freed before its turn";
    EXPECT_EQ(client.parts({"--least-recent", "100000"}), (Names{"2.1"})) << "what is purged is not chosen";

    // Asked for again, a purged photo is downloaded once more.
    client.transfer("2", "0", {"--status", "3", "--purged", "0"});
    EXPECT_EQ(client.parts({"--incomplete-downloads"}), (Names{"2.0"}));

    const json expected = {{"events", 4},
                           {"by_type", {{"10", 1}, {"2", 1}, {"4", 2}}},
                           {"publishable", 0},
                           {"unpublishable", 0},
                           {"unprocessed", 0},
                           {"posted_and_processed", 4},
                           {"streams", 2},
                           {"parts", 5},
                           {"by_transfer_status", {{"3", 1}, {"4", 4}}},
                           {"disk_utilization", 2000}};
    EXPECT_EQ(store.stats(), expected) << "at the end of the day";
    json check = json::parse(client.does("check", {"--json"}));
    check.erase("engine");
    EXPECT_EQ(check, json({{"integrity", {"ok"}},
                           {"schema", "ok"},
                           {"schema_version", schemaVersion},
                           {"parts_without_event", 0},
                           {"events_without_stream", 0}}));
}

}  // namespace
}  // namespace zav::test
