#include <gtest/gtest.h>

#include <string>

#include "Support/Tool.h"

namespace zav::test {
namespace {

using nlohmann::json;

json part(int status, std::int64_t size, const json& changes = json::object()) {
    json result = {{"media_type", "image/png"},
                   {"size", size},
                   {"transfer_status", status},
                   {"file_path", "files/" + std::to_string(size)}};
    result.merge_patch(changes);
    return result;
}

/// Sets up a database in which no two of the counts are the same by accident.
void fill(const ToolStore& store) {
    const json text = {{"media_type", "text/plain"}, {"text", "hi"}};
    store.importWell(lines({
        eventJSON(1, {{"seq", 1}}),
        eventJSON(2, {{"seq", 2}, {"type", 10}}),
        eventJSON(3, {{"seq", 0}, {"type", 4}, {"stream_id", uuidText(0xBB)}, {"content", {text}}}),
        eventJSON(4, {{"seq", 3}}),
        eventJSON(5, {{"seq", 4}}),
    }));
    store.importWell(
        lines({
            // Waiting in a known stream: two publishable, and two messages that are not.
            eventJSON(6),
            eventJSON(7, {{"type", 4}, {"content", {text, part(4, 1000)}}}),
            eventJSON(8, {{"type", 4}, {"content", {part(0, 100), part(1, 10)}}}),
            eventJSON(9, {{"type", 4}}),
            // Waiting in an unknown stream.
            eventJSON(10, {{"stream_id", nullptr}, {"content", {part(2, 7), part(3, 7)}}}),
            // What is purged, or has no file, takes no space.
            eventJSON(11, {{"seq", 5},
                           {"content",
                            {part(4, 50000, {{"purged", true}}), part(4, 60000, {{"file_path", nullptr}})}}}),
        }),
        {"--record-changes"});
}

TEST(ToolStats, EveryNumberIsThatOfTheDatabase) {
    const ToolStore store;
    fill(store);
    EXPECT_EQ(store.stats(), json({{"events", 11},
                                   {"by_type", {{"2", 6}, {"4", 4}, {"10", 1}}},
                                   {"publishable", 2},
                                   {"unpublishable", 1},
                                   {"unprocessed", 6},
                                   {"posted_and_processed", 6},
                                   {"streams", 3},
                                   {"parts", 9},
                                   {"by_transfer_status", {{"0", 1}, {"1", 1}, {"2", 1}, {"3", 1}, {"4", 5}}},
                                   {"disk_utilization", 1110}}));
}

TEST(ToolStats, AJSONObjectIsOneLineWithItsKeysInAFixedOrder) {
    const ToolStore store;
    fill(store);
    const ToolRun run = store.run("stats", {"--json"});
    EXPECT_EQ(
        run.out,
        "{\"events\":11,\"by_type\":{\"2\":6,\"4\":4,\"10\":1},\"publishable\":2,\"unpublishable\":1,"
        "\"unprocessed\":6,\"posted_and_processed\":6,\"streams\":3,\"parts\":9,"
        "\"by_transfer_status\":{\"0\":1,\"1\":1,\"2\":1,\"3\":1,\"4\":5},\"disk_utilization\":1110}\n");
    EXPECT_EQ(run.err, "");
}

TEST(ToolStats, ADatabaseWithoutEventsCountsNothing) {
    const ToolStore store;
    EXPECT_EQ(store.run("init").status, 0);
    EXPECT_EQ(store.stats(), json({{"events", 0},
                                   {"by_type", json::object()},
                                   {"publishable", 0},
                                   {"unpublishable", 0},
                                   {"unprocessed", 0},
                                   {"posted_and_processed", 0},
                                   {"streams", 0},
                                   {"parts", 0},
                                   {"by_transfer_status", json::object()},
                                   {"disk_utilization", 0}}));
}

TEST(ToolStats, WithoutJSONEachNumberHasALine) {
    const ToolStore store;
    fill(store);
    const ToolRun run = store.run("stats");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out,
              "events                  11\n"
              "by_type\n"
              "  2                     6\n"
              "  4                     4\n"
              "  10                    1\n"
              "publishable             2\n"
              "unpublishable           1\n"
              "unprocessed             6\n"
              "posted_and_processed    6\n"
              "streams                 3\n"
              "parts                   9\n"
              "by_transfer_status\n"
              "  0                     1\n"
              "  1                     1\n"
              "  2                     1\n"
              "  3                     1\n"
              "  4                     5\n"
              "disk_utilization        1110\n");
}

TEST(ToolStats, AnEventRecordedTwiceIsUnprocessedOnce) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1), eventJSON(2)}), {"--record-changes"});
    store.execute(
        "INSERT INTO synced_changes (table_name, row_identifier, change_type) VALUES ('events', 1, 0)");
    EXPECT_EQ(store.stats().at("unprocessed"), 2);
}

TEST(ToolStats, PartsWithoutATransferStatusAreCountedAsNull) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1, {{"content", {part(4, 1), part(4, 2)}}})}));
    store.execute("UPDATE event_content_parts SET transfer_status = NULL WHERE event_content_part_id = 0");
    EXPECT_EQ(store.stats().at("by_transfer_status"), json({{"null", 1}, {"4", 1}}));
}

}  // namespace
}  // namespace zav::test
