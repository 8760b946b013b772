#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Support/DatabaseHandles.h"
#include "Support/TemporaryDirectory.h"
#include "Support/Tool.h"
#include "Support/TracedTool.h"

namespace zav::test {
namespace {

using nlohmann::json;

const json unknownStream = {{"stream_id", nullptr}, {"stream_database_identifier", 7}};

json text(const std::string& body) {
    return {{"media_type", "text/plain"}, {"text", body}};
}

json changed(json value, const json& changes) {
    value.merge_patch(changes);
    return value;
}

/// Events in every state. Their client_ids number them by row.
std::string eventsInEveryState() {
    const json uploading = {{"media_type", "image/png"}, {"size", 10}, {"transfer_status", 1}};
    return lines({
        eventJSON(1, {{"seq", 1}}),
        eventJSON(2),
        eventJSON(3, unknownStream),
        eventJSON(4, {{"type", 4}, {"content", {text("ready"), text("to go")}}}),
        eventJSON(5, {{"type", 4}, {"content", {text("not"), uploading}}}),
        eventJSON(6, {{"type", 4}}),
        eventJSON(7, changed(unknownStream, {{"type", 4}})),
        eventJSON(8, {{"seq", 2}, {"type", 4}, {"content", {uploading}}}),
        eventJSON(9, {{"seq", 1}, {"stream_id", uuidText(0xBB)}}),
        eventJSON(10, changed(unknownStream, {{"seq", 3}})),
    });
}

/// The client_ids of rows, as the events of `eventsInEveryState` have them.
std::vector<json> rows(const std::vector<int>& numbers) {
    std::vector<json> result;
    for (const int number : numbers) {
        result.emplace_back(uuidText(number));
    }
    return result;
}

std::vector<json> selected(const ToolStore& store, const std::vector<std::string>& selection) {
    return fieldOfLines(store.events(selection), "client_id");
}

/// A database that holds events in every state.
class ToolEvents : public testing::Test {
protected:
    ToolEvents() { store.importWell(eventsInEveryState()); }

    ToolStore store;
};

TEST_F(ToolEvents, AllOfThemAreWrittenByDefaultInTheOrderOfTheirRows) {
    EXPECT_EQ(selected(store, {}), rows({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    EXPECT_EQ(store.events({"--all"}), store.events());
}

TEST_F(ToolEvents, ThePublishableOnesWaitInAKnownStreamWithCompleteContent) {
    EXPECT_EQ(selected(store, {"--publishable"}), rows({2, 4}));
}

TEST_F(ToolEvents, TheUnpublishableOnesWaitInAStreamThatTheServiceDoesNotKnow) {
    EXPECT_EQ(selected(store, {"--unpublishable"}), rows({3, 7}));
}

TEST_F(ToolEvents, ThePostedOnesHaveASequence) {
    EXPECT_EQ(selected(store, {"--posted"}), rows({1, 8, 9, 10}));
}

TEST_F(ToolEvents, TheUnprocessedOnesAreRecordedAsInserts) {
    EXPECT_EQ(selected(store, {"--unprocessed"}), rows({}));
    store.execute(
        "INSERT INTO synced_changes (table_name, row_identifier, change_type) VALUES"
        " ('events', 8, 0), ('events', 2, 0), ('events', 2, 0), ('events', 3, 1), ('events', 4, 2),"
        " ('messages', 5, 0)");
    EXPECT_EQ(selected(store, {"--unprocessed"}), rows({2, 8})) << "each once, by row";
}

TEST_F(ToolEvents, OneIsFoundByItsRow) {
    EXPECT_EQ(selected(store, {"--id", "5"}), rows({5}));
    EXPECT_EQ(selected(store, {"--id", "99"}), rows({})) << "there is no such row";
    EXPECT_EQ(selected(store, {"--id", "-1"}), rows({})) << "there is no such row";
}

TEST_F(ToolEvents, OneIsFoundByItsSequenceInAStream) {
    EXPECT_EQ(selected(store, {"--seq", "1", "--stream", uuidText(0xAA)}), rows({1}));
    EXPECT_EQ(selected(store, {"--stream", uuidText(0xBB), "--seq", "1"}), rows({9}));
    EXPECT_EQ(selected(store, {"--seq", "2", "--stream", uuidText(0xBB)}), rows({}));
    EXPECT_EQ(selected(store, {"--seq", "1", "--stream", uuidText(0xCC)}), rows({}));
}

TEST_F(ToolEvents, AStreamMayBeNamedInCapitals) {
    EXPECT_EQ(selected(store, {"--seq", "1", "--stream", "11111111-1111-1111-1111-1111111111BB"}), rows({9}));
}

TEST_F(ToolEvents, TheOnesOfARevivedStreamAreItsSequencedOnes) {
    EXPECT_EQ(selected(store, {"--revived", "1"}), rows({1, 8}));
    EXPECT_EQ(selected(store, {"--revived", "2"}), rows({10})) << "a stream need not be known to the service";
    EXPECT_EQ(selected(store, {"--revived", "99"}), rows({}));
}

TEST_F(ToolEvents, ASelectionWritesAnEventAsTheWholeListDoes) {
    std::vector<json> all = parsedLines(store.events());
    for (const std::vector<std::string>& selection :
         std::vector<std::vector<std::string>>{{"--publishable"},
                                               {"--unpublishable"},
                                               {"--posted"},
                                               {"--revived", "1"},
                                               {"--id", "4"},
                                               {"--id", "8"}}) {
        SCOPED_TRACE(selection.front());
        for (const json& event : parsedLines(store.events(selection))) {
            EXPECT_EQ(event, all.at(event.at("database_identifier").get<std::size_t>() - 1));
        }
    }
}

TEST_F(ToolEvents, TheSameDatabaseGivesTheSameBytes) {
    for (const char* selection : {"--all", "--publishable", "--unpublishable", "--posted"}) {
        EXPECT_EQ(store.events({selection}), store.events({selection})) << selection;
    }
}

TEST_F(ToolEvents, AnExportThatIsImportedExportsTheSameBytes) {
    const ToolStore copy;
    copy.importWell(store.events());
    EXPECT_EQ(copy.events(), store.events());
    EXPECT_EQ(copy.stats(), store.stats());
    for (const char* selection : {"--publishable", "--unpublishable", "--posted"}) {
        EXPECT_EQ(copy.events({selection}), store.events({selection})) << selection;
    }
}

TEST_F(ToolEvents, AnExportImportedIntoItsOwnDatabaseChangesNothing) {
    const std::string before = store.events();
    store.importWell(before);
    EXPECT_EQ(store.events(), before);
}

TEST_F(ToolEvents, ListingChangesNothing) {
    const std::string bytes = bytesOfFile(store.path());
    for (const char* selection : {"--all", "--publishable", "--unprocessed", "--posted"}) {
        EXPECT_FALSE(store.run("events", {selection}).status) << selection;
    }
    EXPECT_TRUE(bytesOfFile(store.path()) == bytes) << "the file holds what it held before";
}

TEST(ToolEventLines, AnEventIsWrittenFieldByFieldInAFixedOrder) {
    const ToolStore store;
    const json part = {{"media_type", "image/png"},
                       {"size", 123},
                       {"external_url", "https://content.test/1"},
                       {"external_content_url_expiration", 100},
                       {"last_accessed", 200.25},
                       {"transfer_status", 2},
                       {"file_path", "ada/1"},
                       {"purged", true}};
    store.importWell(lines({eventJSON(1, {{"type", 4},
                                          {"subtype", 3},
                                          {"seq", 5},
                                          {"preceding_seq", 4},
                                          {"client_seq", 2},
                                          {"server_timestamp", 1760000000000},
                                          {"target_seq", 0},
                                          {"creator_id", "ada"},
                                          {"creator_name", "Ada \"L\"\n"},
                                          {"member_id", "bruno"},
                                          {"transient_metadata", {{"push", "hello"}, {"badge", "1"}}},
                                          {"content", {part, text("caf\u00e9")}}})}));
    const std::string identity = "\"event_database_identifier\":1,\"event_client_id\":\"" + uuidText(1) +
                                 "\",\"event_seq\":5,\"stream_id\":\"" + uuidText(0xAA) + "\"}";
    EXPECT_EQ(store.events(),
              "{\"database_identifier\":1,\"stream_database_identifier\":1,\"stream_id\":\"" +
                  uuidText(0xAA) + "\",\"client_id\":\"" + uuidText(1) +
                  "\",\"type\":4,\"subtype\":3,\"seq\":5,\"preceding_seq\":4,\"client_seq\":2,"
                  "\"server_timestamp\":1760000000000,\"target_seq\":0,\"creator_id\":\"ada\","
                  "\"creator_name\":\"Ada \\\"L\\\"\\n\",\"member_id\":\"bruno\","
                  "\"transient_metadata\":{\"badge\":\"1\",\"push\":\"hello\"},"
                  "\"content\":[{\"media_type\":\"image/png\",\"size\":123,"
                  "\"external_url\":\"https://content.test/1\",\"external_content_url_expiration\":100,"
                  "\"last_accessed\":200.25,\"transfer_status\":2,\"file_path\":\"ada/1\",\"purged\":true,"
                  "\"index\":0," +
                  identity +
                  ",{\"media_type\":\"text/plain\",\"size\":5,\"text\":\"caf\u00e9\",\"transfer_status\":4,"
                  "\"purged\":false,\"index\":1," +
                  identity + "]}\n");
}

TEST(ToolEventLines, ASequenceOfZeroIsWrittenWhereItIsStoredAndNowhereElse) {
    const json zero = {{"seq", 0}};
    const json content = {{"content", {text("hi")}}};
    const ToolStore store;
    store.importWell(lines({
        eventJSON(1, zero),
        eventJSON(2),
        eventJSON(3, content),
        eventJSON(4, {{"stream_id", uuidText(0xBB)}}),
        eventJSON(5, changed(content, {{"stream_id", uuidText(0xBB)}})),
        eventJSON(6, changed(unknownStream, zero)),
        eventJSON(7, unknownStream),
        eventJSON(8, changed(unknownStream, content)),
        eventJSON(9, changed(content, {{"seq", 0}, {"stream_id", uuidText(0xCC)}})),
        eventJSON(10,
                  changed(changed(unknownStream, content), {{"seq", 0}, {"stream_database_identifier", 8}})),
    }));
    const std::string all = store.events();
    const json none;
    EXPECT_EQ(fieldOfLines(all, "seq"), (std::vector<json>{0, none, none, none, none, 0, none, none, 0, 0}));
    EXPECT_EQ(fieldOfLines(store.events({"--posted"}), "seq"), (std::vector<json>{0, 0, 0, 0}));
    EXPECT_EQ(fieldOfLines(store.events({"--publishable"}), "seq"),
              (std::vector<json>{none, none, none, none}));
    EXPECT_EQ(fieldOfLines(store.events({"--unpublishable"}), "seq"), (std::vector<json>{none, none}));
    for (const int row : {1, 2, 3, 7, 8, 10}) {
        EXPECT_EQ(parsedLines(store.events({"--id", std::to_string(row)})).at(0),
                  parsedLines(all).at(static_cast<std::size_t>(row) - 1));
    }
    for (const json& event : parsedLines(all)) {
        for (const json& part : event.value("content", json::array())) {
            EXPECT_EQ(part.contains("event_seq"), event.contains("seq"))
                << "a part knows what its event knows";
        }
    }
    const ToolStore copy;
    copy.importWell(all);
    EXPECT_EQ(copy.events(), all) << "a sequence that is not there is not made up on the way";
}

TEST(ToolEventLines, WhichOnesHaveNoSequenceIsAskedOnceAndOfNoOtherEvent) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1, {{"seq", 0}}), eventJSON(2), eventJSON(3, unknownStream),
                            eventJSON(4, changed(unknownStream, {{"seq", 0}})), eventJSON(5, {{"seq", 7}})}));
    const auto runsOfStatementsWith = [](const ToolRun& run, const std::string& condition) {
        int count = 0;
        for (auto at = run.err.find(condition); at != std::string::npos;
             at = run.err.find(condition, at + 1)) {
            ++count;
        }
        return count;
    };
    const ToolRun traced = store.run("events", {"--all", "--trace"});
    EXPECT_EQ(traced.status, 0) << traced.err;
    EXPECT_EQ(fieldOfLines(traced.out, "seq"), (std::vector<json>{0, nullptr, nullptr, 0, 7}));
    EXPECT_EQ(runsOfStatementsWith(traced, "seq IS NULL"), 1) << traced.err;
    EXPECT_EQ(runsOfStatementsWith(traced, "events.seq IS NOT NULL"), 0)
        << "the posted events are not read for it: " << traced.err;
    EXPECT_EQ(runsOfStatementsWith(traced, "events.seq = ?"), 0)
        << "no event is looked for by its sequence: " << traced.err;
    EXPECT_EQ(runsOfStatementsWith(store.run("events", {"--id", "5", "--trace"}), "seq IS NULL"), 0)
        << "an event with another sequence than 0 tells it by itself";
}

TEST(ToolEventLines, TheyAreOfOneMomentWhateverAnotherClientStoresMeanwhile) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1, unknownStream)}));
    const std::string before = store.events();
    std::vector<std::string> answers;
    // As long as it is open the tool is never the first one nor the last, who hold the whole file for a
    // moment, in which it might be stopped.
    const auto another = openHandle(store.path());
    ASSERT_EQ(scalar(*another, "SELECT COUNT(*) FROM events"), "1");
    bool isInTime = true;
    for (int statements = 0; isInTime; ++statements) {
        store.execute("UPDATE events SET seq = NULL");
        TracedTool tool({"events", store.path()}, store.file("printed"));
        for (int run = 0; run < statements; ++run) {
            static_cast<void>(tool.nextStatement());
        }
        isInTime = tool.stop();
        store.execute("UPDATE events SET seq = 7");
        tool.goOn();
        EXPECT_EQ(tool.exitStatus(), 0) << "after " << statements << " statements";
        answers.push_back(bytesOfFile(store.file("printed")));
    }
    const std::string after = store.events();
    ASSERT_NE(after, before);
    for (const std::string& answer : answers) {
        EXPECT_TRUE(answer == before || answer == after) << "this event never was: " << answer;
    }
    EXPECT_EQ(answers.front(), after) << "it is stored before the tool has read anything";
    EXPECT_EQ(answers.back(), before) << "the tool had ended";
}

TEST(ToolEventLines, TheOnesOfARevivedStreamComeInReplayOrder) {
    const auto event = [](int number, int precedingSeq, const char* creator, int clientSeq) {
        return eventJSON(number, {{"seq", 100 - number},
                                  {"preceding_seq", precedingSeq},
                                  {"creator_id", creator},
                                  {"client_seq", clientSeq}});
    };
    const ToolStore store;
    store.importWell(lines({event(1, 5, "a", 1), event(2, 3, "b", 1), event(3, 3, "a", 9),
                            event(4, 3, "a", 2), event(5, 0, "z", 7), eventJSON(6, {{"preceding_seq", 1}})}));
    EXPECT_EQ(selected(store, {"--revived", "1"}), rows({5, 4, 3, 2, 1}))
        << "by what precedes them, then by creator, then as their creator numbered them";
}

TEST(ToolEventLines, AnEventWhoseStreamIsGoneIsWrittenWithoutTheStreamsIdentifier) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1), eventJSON(2, {{"seq", 0}})}));
    store.execute("DELETE FROM streams");
    const auto events = parsedLines(store.events());
    ASSERT_EQ(events.size(), 2U);
    EXPECT_FALSE(events[0].contains("stream_id"));
    EXPECT_EQ(events[0].at("stream_database_identifier"), 1);
    EXPECT_EQ(fieldOfLines(store.events(), "seq"), (std::vector<json>{nullptr, 0}));
}

TEST(ToolEventLines, NamesThatAreNotUTF8AreWrittenWithReplacementCharacters) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1, {{"creator_name", "x"}})}));
    store.execute("UPDATE events SET creator_name = CAST(x'C3A461FF62F09F9880C3' AS TEXT)");
    const ToolRun listed = store.run("events");
    EXPECT_EQ(fieldOfLines(listed.out, "creator_name"), std::vector<json>{"\u00e4a\uFFFDb\U0001F600\uFFFD"})
        << "a line is UTF-8 whatever the database holds";
    EXPECT_EQ(listed.err, "zavevents: row 1 cannot be read back as it is: creator_name is not UTF-8\n")
        << "what is lost on the way is told of";
}

TEST(ToolEventLines, MetadataThatIsNotUTF8IsWrittenInBase64) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1, {{"transient_metadata", {{"k", "x"}}}})}));
    store.execute("UPDATE keyed_values_remote SET value = x'FF00'");
    EXPECT_EQ(fieldOfLines(store.events(), "transient_metadata"),
              std::vector<json>{json({{"k", {{"base64", "/wA="}}}})});
}

TEST(ToolEventLines, ADatabaseWithoutEventsGivesNoLines) {
    const ToolStore store;
    EXPECT_EQ(store.run("init").status, 0);
    for (const char* selection : {"--all", "--publishable", "--unpublishable", "--unprocessed", "--posted"}) {
        EXPECT_EQ(store.events({selection}), "") << selection;
    }
}

TEST(ToolEventLines, ManyEventsAreWrittenWhole) {
    std::vector<json> events;
    for (int number = 0; number < 3000; ++number) {
        events.push_back(
            eventJSON(1, {{"seq", number},
                          {"type", 4},
                          {"content", {text("number " + std::to_string(number) + " of many")}}}));
    }
    const ToolStore store;
    store.importWell(lines(events));
    const auto written = parsedLines(store.events());
    ASSERT_EQ(written.size(), 3000U);
    EXPECT_EQ(written.back().at("content").at(0).at("text"), "number 2999 of many");
}

}  // namespace
}  // namespace zav::test
