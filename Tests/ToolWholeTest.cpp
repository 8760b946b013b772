#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Support/Tool.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;
using Rows = std::vector<std::string>;

constexpr const char* folder = "22222222-2222-2222-2222-222222222222/ada/";

/// A store with two events, each with a part whose file is there, a message, a value and a recorded change.
class StoreWithContent : public testing::Test {
protected:
    StoreWithContent() {
        for (const int number : {1, 2}) {
            fs::create_directories(fs::path(fileOf(number)).parent_path());
            std::ofstream(fileOf(number)) << "content";
        }
        store_.importWell(lines({event(1), event(2)}), {"--record-changes"});
        store_.execute("INSERT INTO messages (event_database_identifier, seq) VALUES (1, 1), (2, 2)");
    }

    [[nodiscard]] const ToolStore& store() const { return store_; }
    [[nodiscard]] std::string cache() const { return store_.file("cache"); }
    [[nodiscard]] static std::string pathOf(int number) { return folder + uuidText(number) + "/part-0"; }
    [[nodiscard]] std::string fileOf(int number) const { return cache() + "/" + pathOf(number); }

    /// How many rows each table has.
    [[nodiscard]] Rows counts() const {
        Rows counts;
        for (const char* const table : {"events", "event_content_parts", "synced_changes", "messages"}) {
            counts.push_back(store_.execute(std::string("SELECT COUNT(*) FROM ") + table).front());
        }
        return counts;
    }

    [[nodiscard]] ToolRun repair(std::vector<std::string> options = {}) const {
        options.insert(options.end(), {"--cache", cache(), "--app-id", "22222222-2222-2222-2222-222222222222",
                                       "--user", "ada"});
        return store_.run("repair", options);
    }

private:
    [[nodiscard]] static nlohmann::json event(int number) {
        return eventJSON(number, {{"seq", number},
                                  {"content",
                                   {{{"media_type", "image/png"},
                                     {"size", 7},
                                     {"transfer_status", 4},
                                     {"file_path", pathOf(number)}}}}});
    }

    ToolStore store_;
};

using WholeCommands = StoreWithContent;

TEST_F(WholeCommands, DeleteLeavesWhatBelongsToTheEventUnlessItIsToldNotTo) {
    EXPECT_EQ(store().run("delete", {"--id", "1"}).out, "1 events deleted\n");
    EXPECT_EQ(counts(), (Rows{"1", "2", "2", "2"}));
    EXPECT_TRUE(fs::exists(fileOf(1)));
    const ToolRun run = store().run("delete", {"--id", "2", "1000", "--whole", "--cache", cache()});
    EXPECT_EQ(run.out, "1 events deleted with all that belongs to them\n") << run.err;
    EXPECT_EQ(counts(), (Rows{"0", "1", "1", "1"}));
    EXPECT_FALSE(fs::exists(fileOf(2)));
}

TEST_F(WholeCommands, TombstoneLeavesWhatBelongsToTheEventUnlessItIsToldNotTo) {
    EXPECT_EQ(store().run("tombstone", {"--stream-row", "1", "--seq", "1"}).out, "1 event tombstoned\n");
    EXPECT_EQ(counts(), (Rows{"2", "2", "2", "2"}));
    EXPECT_TRUE(fs::exists(fileOf(1)));
    const ToolRun run =
        store().run("tombstone", {"--stream-row", "1", "--seq", "2", "--whole", "--cache", cache()});
    EXPECT_EQ(run.out, "1 event tombstoned without what belonged to it\n") << run.err;
    EXPECT_EQ(counts(), (Rows{"2", "1", "1", "1"}));
    EXPECT_EQ(store().execute("SELECT DISTINCT type FROM events"), Rows{"10"});
    EXPECT_FALSE(fs::exists(fileOf(2)));
}

TEST_F(WholeCommands, NeedTheDirectoryAndItNeedsThem) {
    EXPECT_EQ(store().run("delete", {"--id", "1", "--whole"}).status, 2);
    EXPECT_EQ(store().run("delete", {"--id", "1", "--cache", cache()}).status, 2);
    EXPECT_EQ(store().run("tombstone", {"--stream-row", "1", "--seq", "1", "--whole"}).status, 2);
    EXPECT_EQ(counts(), (Rows{"2", "2", "2", "2"}));
}

using Repair = StoreWithContent;

TEST_F(Repair, SaysWhatDoesNotAgreeAndMakesItAgree) {
    const std::string orphan = folder + uuidText(9) + "/part-3";
    fs::create_directories(fs::path(cache() + "/" + orphan).parent_path());
    std::ofstream(cache() + "/" + orphan) << "nobody's";
    fs::remove(fileOf(1));
    fs::remove(fileOf(2));
    store().execute("UPDATE event_content_parts SET transfer_status = 0 WHERE database_identifier = 2");
    EXPECT_EQ(repair({"--age", "0", "--dry-run"}).out,
              orphan + ": no part names it\n" +
                  "part in row 1: its file is missing\n"
                  "part in row 2: its file is missing, and was not uploaded\n"
                  "to repair: 1 files of 8 bytes and 1 parts; 1 uploads are lost\n");
    EXPECT_TRUE(fs::exists(cache() + "/" + orphan));
    EXPECT_EQ(store().execute("SELECT COUNT(*) FROM event_content_parts WHERE purged = 1"), Rows{"0"});
    const ToolRun run = repair({"--age", "0"});
    EXPECT_EQ(run.out, orphan + ": no part names it, removed\n" +
                           "part in row 1: its file is missing, marked purged\n"
                           "part in row 2: its file is missing, and was not uploaded\n"
                           "repaired 1 files of 8 bytes and 1 parts; 1 uploads are lost\n")
        << run.err;
    EXPECT_FALSE(fs::exists(cache() + "/" + orphan));
    EXPECT_EQ(store().execute("SELECT database_identifier FROM event_content_parts WHERE purged = 1"),
              Rows{"1"});
}

TEST_F(Repair, LeavesYoungFilesAlone) {
    const std::string orphan = cache() + "/" + folder + uuidText(9) + "/part-3";
    fs::create_directories(fs::path(orphan).parent_path());
    std::ofstream(orphan) << "about to be named";
    EXPECT_EQ(repair().out, "repaired 0 files of 0 bytes and 0 parts; 0 uploads are lost\n");
    EXPECT_TRUE(fs::exists(orphan));
}

TEST_F(Repair, OfADirectoryThatIsNotThereMarksNothing) {
    fs::remove_all(cache());
    const ToolRun run = repair();
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("cannot repair: " + cache() + ": No such file or directory"), std::string::npos)
        << run.err;
    EXPECT_EQ(store().execute("SELECT COUNT(*) FROM event_content_parts WHERE purged = 1"), Rows{"0"});
}

}  // namespace
}  // namespace zav::test
