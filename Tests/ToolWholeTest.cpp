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
    EXPECT_EQ(
        store()
            .run("sequence", {"--id", "1", "--seq", "3", "--creator", "ada", "--timestamp", "1", "--whole"})
            .status,
        2);
    EXPECT_EQ(counts(), (Rows{"2", "2", "2", "2"}));
}

/// A store with an event that waits, in row 1, and the user's words for recording its sequence.
class SequencedWhole : public testing::Test {
protected:
    [[nodiscard]] static nlohmann::json message(int number, const nlohmann::json& changes) {
        nlohmann::json event = eventJSON(number, {{"type", 4}, {"content", {{{"text", "hi"}}}}});
        event.merge_patch(changes);
        return event;
    }

    [[nodiscard]] ToolRun sequence(const std::string& row, const std::string& seq,
                                   const std::string& creator = "ada") const {
        return store_.run("sequence", {"--id", row, "--seq", seq, "--creator", creator, "--timestamp", "5",
                                       "--whole", "--cache", store_.file("cache")});
    }

    void expectFailure(const ToolRun& run, const std::string& reason) const {
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, "zavevents: " + reason + "\n");
    }

    [[nodiscard]] Rows events() const {
        return store_.execute(
            "SELECT database_identifier, type, IFNULL(seq, 'waits'), IFNULL(creator_id, '-'), timestamp"
            " FROM events ORDER BY database_identifier");
    }

    [[nodiscard]] const ToolStore& store() const { return store_; }

private:
    ToolStore store_;
};

TEST_F(SequencedWhole, AnEventThatNamesNoAuthorIsTheUsers) {
    store().importWell(lines({message(1, nlohmann::json::object())}));
    EXPECT_EQ(sequence("1", "7").out, "1 event sequenced, which is in row 1\n");
    EXPECT_EQ(events(), Rows{"1|4|7|ada|5"});
    EXPECT_EQ(sequence("1", "7").out, "0 event sequenced, which is in row 1\n") << "it was before";
    EXPECT_EQ(events(), Rows{"1|4|7|ada|5"});
}

TEST_F(SequencedWhole, AnEventThatAlsoCameFromTheServiceIsOne) {
    store().importWell(lines({message(1, {{"creator_id", "ada"}})}));
    store().execute(
        "INSERT INTO events (stream_database_identifier, client_id, type, creator_id, seq, timestamp)"
        " SELECT stream_database_identifier, client_id, type, creator_id, 7, 5 FROM events");
    for (const char* const row : {"2", "1"}) {
        const ToolRun run = sequence(row, "7");
        EXPECT_EQ(run.out.substr(1), " event sequenced, which is in row 1\n") << run.err;
        EXPECT_EQ(events(), Rows{"1|4|7|ada|5"}) << "the one that waited stays";
    }
}

TEST_F(SequencedWhole, AnEventWhoseDeletionCameBeforeIsATombstoneWithoutContent) {
    store().importWell(lines(
        {message(1, {{"creator_id", "ada"}}), eventJSON(2, {{"type", 9}, {"seq", 8}, {"target_seq", 7}})}));
    EXPECT_EQ(sequence("1", "7").out, "1 event sequenced, which is in row 1\n");
    EXPECT_EQ(events(), (Rows{"1|10|7|ada|5", "2|9|8|-|0"}));
    EXPECT_EQ(store().execute("SELECT COUNT(*) FROM event_content_parts"), Rows{"0"});
}

TEST_F(SequencedWhole, WhatIsNotTheUsersOrNotToBeToldApartIsLeftAsItIs) {
    store().importWell(
        lines({message(1, {{"creator_id", "ada"}}), message(2, {{"seq", 7}, {"creator_id", "eve"}}),
               message(3, {{"creator_id", "ada"}, {"stream_id", nullptr}})}));
    const Rows before = events();
    expectFailure(sequence("1", "8", "bob"),
                  "cannot record the sequence: no event of this author and client_id waits for its sequence");
    expectFailure(sequence("1", "7"),
                  "cannot record the sequence: at the sequence 7 stands another event: its client_id is " +
                      uuidText(2) + ", that of this one " + uuidText(1));
    expectFailure(sequence("2", "8"),
                  "cannot record the sequence: no event of this author and client_id waits for its sequence");
    expectFailure(sequence("3", "8"),
                  "the event in row 3 is in a stream without a UUID: 'zavevents stream-posted' records it");
    expectFailure(sequence("4", "8"), "there is no event in row 4");
    store().execute("UPDATE events SET client_id = 'short' WHERE database_identifier = 1");
    expectFailure(sequence("1", "8"), "the event in row 1 has no client_id that is a UUID");
    EXPECT_EQ(events(), before);
}

TEST_F(WholeCommands, SequencesOfMessagesAndParticipantsDoNotGoBackUnlessTheyAreToldTo) {
    EXPECT_EQ(store().run("conversation", {"--stream", uuidText(0xAA), "--member", "ada"}).status, 0);
    const auto participant = [&](const std::string& seq, const std::string& member,
                                 const std::vector<std::string>& more) {
        std::vector<std::string> options{"--stream", uuidText(0xAA), "--member", member, "--seq", seq};
        options.insert(options.end(), more.begin(), more.end());
        return store().run("participant-seq", options).out;
    };
    EXPECT_EQ(participant("9", "ada", {"--whole"}), "1 participant updated\n");
    EXPECT_EQ(participant("9", "ada", {"--whole"}), "0 participant updated\n");
    EXPECT_EQ(participant("8", "ada", {"--whole"}), "0 participant updated\n");
    EXPECT_EQ(participant("10", "bob", {"--whole"}), "0 participant updated\n");
    EXPECT_EQ(store().execute("SELECT member_id, seq FROM conversation_participants"), Rows{"ada|9"});
    EXPECT_EQ(participant("8", "ada", {}), "1 participant updated\n");
    EXPECT_EQ(store().execute("SELECT member_id, seq FROM conversation_participants"), Rows{"ada|8"});

    EXPECT_EQ(store().run("message-seq", {"--event", "2", "--seq", "1", "--whole"}).out,
              "0 message updated\n");
    EXPECT_EQ(store().run("message-seq", {"--event", "1", "--seq", "3", "--whole"}).out,
              "1 message updated\n");
    EXPECT_EQ(store().run("message-seq", {"--event", "9", "--seq", "3", "--whole"}).out,
              "0 message updated\n");
    EXPECT_EQ(store().execute("SELECT seq FROM messages ORDER BY database_identifier"), (Rows{"3", "2"}));
    EXPECT_EQ(store().run("message-seq", {"--event", "2", "--seq", "1"}).out, "1 message updated\n");
    EXPECT_EQ(store().execute("SELECT seq FROM messages ORDER BY database_identifier"), (Rows{"3", "1"}));
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
