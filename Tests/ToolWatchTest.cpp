// What one process writes as it comes to see what others store.

#include <sys/types.h>

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "Support/Process.h"
#include "Support/Tool.h"

namespace zav::test {
namespace {

using nlohmann::json;
using Words = std::vector<std::string>;

json message(int number, const json& changes = json::object()) {
    json event = eventJSON(number, {{"type", 4}, {"seq", number}, {"content", {{{"text", "hi"}}}}});
    event.merge_patch(changes);
    return event;
}

Words wordsOfWatch(const ToolStore& store, const Words& options) {
    Words words = {ZAV_TOOL_PATH, "watch", store.path()};
    words.insert(words.end(), options.begin(), options.end());
    return words;
}

/// A store that holds two messages, and who watches it.
class ToolWatch : public testing::Test {
protected:
    ToolWatch() { store_.importWell(lines({message(1), message(2)})); }

    /// The next difference that is told.
    json next(Process& watch) {
        const auto line = watch.line();
        EXPECT_TRUE(line) << "the watch has ended";
        return line ? json::parse(*line) : json();
    }

    /// The next ones, in a few words: what, where, of which client.
    Words nextInShort(Process& watch, int count) {
        Words words;
        for (int number = 0; number < count; ++number) {
            const json told = next(watch);
            words.push_back(
                told.value("difference", "?") + " " + std::to_string(told.value("position", -1)) +
                (told.contains("from") ? " from " + told["from"].dump() : "") +
                (told.contains("event") ? " " + told["event"].value("client_id", "?").substr(34) : ""));
        }
        return words;
    }

    ToolStore store_;
};

TEST_F(ToolWatch, BeginsWithWhatIsThere) {
    Process watch(wordsOfWatch(store_, {"--stream", uuidText(0xAA)}));
    const json first = next(watch);
    EXPECT_EQ(first.at("difference"), "inserted");
    EXPECT_EQ(first.at("step"), 1);
    EXPECT_EQ(first.at("steps"), 2);
    EXPECT_EQ(first.at("position"), 0);
    EXPECT_EQ(first.at("stream_id"), uuidText(0xAA));
    EXPECT_EQ(first.at("stream_database_identifier"), 1);
    EXPECT_EQ(first.at("event_database_identifier"), 1);
    EXPECT_EQ(first.at("event"),
              parsedLines(store_.events({"--stream", uuidText(0xAA), "--last", "2"})).front());
    EXPECT_EQ(nextInShort(watch, 1), Words{"inserted 1 02"});
}

TEST_F(ToolWatch, BeginsWithAsManyAsAreWanted) {
    Process watch(wordsOfWatch(store_, {"--stream", uuidText(0xAA), "--last", "1"}));
    EXPECT_EQ(nextInShort(watch, 1), Words{"inserted 0 02"});
}

TEST_F(ToolWatch, TellsWhatAnotherProcessStoresAndDeletes) {
    Process watch(wordsOfWatch(store_, {"--stream", uuidText(0xAA)}));
    EXPECT_EQ(nextInShort(watch, 2), (Words{"inserted 0 01", "inserted 1 02"}));
    store_.importWell(lines({message(4), message(3)}));
    EXPECT_EQ(nextInShort(watch, 2), (Words{"inserted 2 03", "inserted 3 04"}));
    EXPECT_EQ(store_.run("delete", {"--id", "1"}).status, 0);
    const json removed = next(watch);
    EXPECT_EQ(removed.at("difference"), "removed");
    EXPECT_EQ(removed.at("position"), 0);
    EXPECT_EQ(removed.at("event_database_identifier"), 1);
    EXPECT_FALSE(removed.contains("event"));
    EXPECT_EQ(store_.run("tombstone", {"--stream-row", "1", "--seq", "3"}).status, 0);
    EXPECT_EQ(nextInShort(watch, 1), Words{"changed 1 03"});
}

TEST_F(ToolWatch, TellsWhereAMessageGoesThatWaited) {
    Process watch(wordsOfWatch(store_, {"--stream", uuidText(0xAA)}));
    EXPECT_EQ(nextInShort(watch, 2), (Words{"inserted 0 01", "inserted 1 02"}));
    EXPECT_EQ(store_
                  .run("send", {"--user", "ada", "--stream", uuidText(0xAA), "--text", "hi", "--client-id",
                                uuidText(9)})
                  .status,
              0);
    const json sent = next(watch);
    EXPECT_EQ(sent.at("position"), 2);
    EXPECT_FALSE(sent.at("event").contains("seq"));
    // In one transaction, so that it is seen only where it comes to stand.
    store_.execute(
        "BEGIN; UPDATE events SET seq = 4 WHERE seq IS NULL; INSERT INTO events"
        " (stream_database_identifier, client_id, type, seq)"
        " VALUES (1, x'11111111111111111111111111111105', 4, 5); COMMIT");
    EXPECT_EQ(nextInShort(watch, 2), (Words{"inserted 3 05", "changed 2 09"}));
}

TEST_F(ToolWatch, FollowsAllStreamsAlsoTheOnesToCome) {
    Process watch(wordsOfWatch(store_, {"--last", "1"}));
    EXPECT_EQ(nextInShort(watch, 1), Words{"inserted 0 02"});
    store_.importWell(lines({message(7, {{"stream_id", uuidText(0xBB)}})}));
    const json told = next(watch);
    EXPECT_EQ(told.at("stream_id"), uuidText(0xBB));
    EXPECT_EQ(told.at("position"), 0);
    store_.importWell(lines({message(8, {{"stream_id", uuidText(0xBB)}})}));
    EXPECT_EQ(nextInShort(watch, 1), Words{"inserted 1 08"});
}

TEST_F(ToolWatch, WaitsForAStreamThatIsNotRegisteredYet) {
    Process watch(wordsOfWatch(store_, {"--stream", uuidText(0xBB)}));
    store_.importWell(lines({message(7, {{"stream_id", uuidText(0xBB)}})}));
    EXPECT_EQ(nextInShort(watch, 1), Words{"inserted 0 07"});
}

TEST_F(ToolWatch, EndsAtASignalThatAsksForIt) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        Process watch(wordsOfWatch(store_, {}));
        EXPECT_EQ(nextInShort(watch, 2), (Words{"inserted 0 01", "inserted 1 02"}));
        watch.signal(signal);
        EXPECT_EQ(watch.line(), std::nullopt);
        EXPECT_EQ(watch.wait(), 0) << "the signal " << signal << " is no failure";
        EXPECT_EQ(watch.exitStatus(), 0);
    }
}

TEST_F(ToolWatch, EndsWhenNobodyReadsAnyMore) {
    Process watch(wordsOfWatch(store_, {}));
    EXPECT_EQ(nextInShort(watch, 2), (Words{"inserted 0 01", "inserted 1 02"}));
    watch.stopReading();
    EXPECT_EQ(watch.wait(), 0) << "though nothing is left to be written";
    EXPECT_EQ(watch.exitStatus(), 0);
}

TEST_F(ToolWatch, RefusesAFileThatIsNoStore) {
    const ToolRun refused = runTool({"watch", store_.file("none.db")});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_NE(refused.err, "");
}

}  // namespace
}  // namespace zav::test
