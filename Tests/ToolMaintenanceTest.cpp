#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "Support/SchemaVersion.h"
#include "Support/Tool.h"
#include "Support/TracedTool.h"

namespace zav::test {
namespace {

using nlohmann::json;
using Options = std::vector<std::string>;
using Rows = std::vector<std::string>;

constexpr int expired = 1000;
constexpr std::int64_t valid = 40000000000;

json textPart() {
    return {{"media_type", "text/plain"}, {"text", "hello"}};
}

/// A part with a file, in a transfer status.
json filePart(int status, const json& changes = json::object()) {
    json part = {
        {"media_type", "image/png"}, {"size", 50}, {"transfer_status", status}, {"file_path", "a/b"}};
    part.merge_patch(changes);
    return part;
}

/// A part whose content the service keeps under a URL that ends with `name`.
json remotePart(int status, const std::string& name, std::int64_t expiration,
                const json& changes = json::object()) {
    json part = filePart(status, {{"external_url", "https://content.test/" + name},
                                  {"external_content_url_expiration", expiration}});
    part.merge_patch(changes);
    return part;
}

json message(int number, const std::vector<json>& parts, const json& changes = json::object()) {
    json event = eventJSON(number, {{"type", 4}, {"content", parts}});
    event.merge_patch(changes);
    return event;
}

/// A store with two messages: a received one in row 1, and in row 2 one that is being sent.
class QueueStore : public ToolStore {
public:
    QueueStore() {
        importWell(
            lines({message(1,
                           {textPart(), remotePart(2, "ready", expired, {{"last_accessed", 3000}}),
                            remotePart(3, "in-flight", valid, {{"last_accessed", 1000}}),
                            remotePart(3, "in-flight-expired", expired),
                            remotePart(2, "small", expired, {{"media_type", "video/mp4"}, {"size", 5}})},
                           {{"seq", 5}}),
                   message(2, {filePart(0), remotePart(1, "up-1", valid), remotePart(1, "up-2", valid)})}));
        execute("INSERT INTO messages (database_identifier, event_database_identifier) VALUES (70, 1)");
    }

    /// The selected parts as "event.index", in the order in which they are written.
    [[nodiscard]] Rows parts(const Options& selection) const {
        const ToolRun listed = run("parts", selection);
        EXPECT_EQ(listed.status, 0) << listed.err;
        EXPECT_EQ(listed.err, "");
        Rows names;
        for (const json& part : parsedLines(listed.out)) {
            names.push_back(part.at("event_database_identifier").dump() + "." + part.at("index").dump());
        }
        return names;
    }

    void expectWrongCommandLine(const Options& selection) const {
        const ToolRun refused = run("parts", selection);
        EXPECT_EQ(refused.status, 2) << "the command line is wrong: " << json(selection);
        EXPECT_EQ(refused.out, "") << json(selection);
        EXPECT_NE(refused.err, "") << json(selection);
    }
};

void expectFailure(const ToolRun& run, const std::string& message) {
    EXPECT_EQ(run.status, 1) << run.out;
    EXPECT_EQ(run.err, "zavevents: " + message + "\n");
}

void expectDone(const ToolRun& run, const std::string& out) {
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, out);
}

// Parts

TEST(ToolParts, UnassignedUrlsAreThoseOfStoredFilesToUpload) {
    EXPECT_EQ(QueueStore().parts({"--unassigned-urls"}), (Rows{"2.0"}));
}

TEST(ToolParts, IncompleteUploadsAreThoseInFlight) {
    const QueueStore store;
    EXPECT_EQ(store.parts({"--incomplete-uploads"}), (Rows{"2.1", "2.2"}));
    EXPECT_EQ(store.parts({"--incomplete-uploads", "--limit", "1"}).size(), 1U) << "a limit caps the uploads";
    EXPECT_EQ(store.parts({"--incomplete-uploads", "--limit", "0"}), Rows{});
}

TEST(ToolParts, IncompleteDownloadsAreThoseInFlightWhoseUrlIsStillValid) {
    const QueueStore store;
    EXPECT_EQ(store.parts({"--incomplete-downloads"}), (Rows{"1.2"}));
    EXPECT_EQ(store.parts({"--incomplete-downloads", "--limit", "0"}), Rows{});
}

TEST(ToolParts, WithoutATypeSetEveryExpiredDownloadIsWanted) {
    const QueueStore store;
    EXPECT_EQ(store.parts({"--expired-downloads"}), (Rows{"1.1", "1.3", "1.4"}));
    EXPECT_EQ(store.parts({"--expired-downloads", "--limit", "2"}).size(), 2U);
}

TEST(ToolParts, WithAnEmptyTypeSetOnlyWhatIsSmallOrInFlightIsWanted) {
    const QueueStore store;
    EXPECT_EQ(store.parts({"--expired-downloads", "--no-mime"}), (Rows{"1.3"}));
    EXPECT_EQ(store.parts({"--expired-downloads", "--no-mime", "--max-size", "4"}), (Rows{"1.3"}));
    EXPECT_EQ(store.parts({"--expired-downloads", "--no-mime", "--max-size", "5"}), (Rows{"1.3", "1.4"}));
}

TEST(ToolParts, WithATypeSetItsTypesAreWantedWhateverTheirSize) {
    const QueueStore store;
    EXPECT_EQ(store.parts({"--expired-downloads", "--mime", "image/png"}), (Rows{"1.1", "1.3"}));
    EXPECT_EQ(store.parts({"--expired-downloads", "--mime", "image/png", "--max-size", "5"}),
              (Rows{"1.1", "1.3", "1.4"}));
    EXPECT_EQ(store.parts({"--expired-downloads", "--mime", "image/png", "--mime", "video/mp4"}),
              (Rows{"1.1", "1.3", "1.4"}));
    EXPECT_EQ(store.parts({"--expired-downloads", "--mime", "audio/ogg"}), (Rows{"1.3"}));
}

TEST(ToolParts, AHundredPartsAreWrittenUnlessALimitSaysOtherwise) {
    const ToolStore store;
    std::vector<json> parts;
    for (int index = 0; index < 101; ++index) {
        parts.push_back(remotePart(1, std::to_string(index), valid));
    }
    store.importWell(lines({message(1, parts)}));
    EXPECT_EQ(parsedLines(store.run("parts", {"--incomplete-uploads"}).out).size(), 100U);
    EXPECT_EQ(parsedLines(store.run("parts", {"--incomplete-uploads", "--limit", "500"}).out).size(), 101U);
}

TEST(ToolParts, DownloadsAreWrittenInTheOrderOfTheirQueues) {
    const ToolStore store;
    const auto event = [](int number, int precedingSeq, int status, std::int64_t expiration) {
        const std::string name = std::to_string(number);
        return message(
            number,
            {remotePart(status, name + "-0", expiration), remotePart(status, name + "-1", expiration)},
            {{"seq", number}, {"preceding_seq", precedingSeq}});
    };
    store.importWell(lines({event(1, 1, 2, expired), event(2, 5, 2, expired), event(3, 3, 2, expired),
                            event(4, 1, 3, valid), event(5, 5, 3, valid), event(6, 3, 3, valid)}));
    store.execute("UPDATE streams SET seq = 6");
    const auto parts = [&](const Options& selection) {
        return fieldOfLines(store.run("parts", selection).out, "external_url");
    };
    const auto urls = [](const Rows& names) {
        std::vector<json> result;
        for (const std::string& name : names) {
            result.emplace_back("https://content.test/" + name);
        }
        return result;
    };
    EXPECT_EQ(parts({"--expired-downloads"}), urls({"2-0", "2-1", "3-0", "3-1", "1-0", "1-1"}))
        << "the most recent of their stream come first";
    EXPECT_EQ(parts({"--expired-downloads", "--limit", "3"}), urls({"2-0", "2-1", "3-0"}));
    EXPECT_EQ(parts({"--expired-downloads", "--mime", "image/png"}),
              urls({"2-0", "2-1", "3-0", "3-1", "1-0", "1-1"}));
    EXPECT_EQ(parts({"--incomplete-downloads"}), urls({"5-0", "5-1", "6-0", "6-1", "4-0", "4-1"}));
}

TEST(ToolParts, ASinglePartIsFoundByEachOfItsKeys) {
    const QueueStore store;
    EXPECT_EQ(store.parts({"--id", "2"}), (Rows{"1.1"}));
    EXPECT_EQ(store.parts({"--event", "1", "--index", "2"}), (Rows{"1.2"}));
    EXPECT_EQ(store.parts({"--message", "70", "--index", "3"}), (Rows{"1.3"}));
    EXPECT_EQ(store.parts({"--object-id", "zav:///messages/" + uuidText(1) + "/parts/4"}), (Rows{"1.4"}));
    EXPECT_EQ(store.parts({"--url", "https://content.test/up-2"}), (Rows{"2.2"}));
}

TEST(ToolParts, APartThatIsNotThereIsNoFailure) {
    const QueueStore store;
    EXPECT_EQ(store.parts({"--id", "99"}), Rows{});
    EXPECT_EQ(store.parts({"--event", "1", "--index", "5"}), Rows{});
    EXPECT_EQ(store.parts({"--message", "71", "--index", "0"}), Rows{});
    EXPECT_EQ(store.parts({"--object-id", "https://content.test/ready"}), Rows{});
    EXPECT_EQ(store.parts({"--url", "https://content.test/none"}), Rows{});
}

TEST(ToolParts, WhatToPurgeIsWrittenOldestAccessFirst) {
    const QueueStore store;
    EXPECT_EQ(store.parts({"--least-recent", "1000"}), (Rows{"1.2", "1.1"}));
    EXPECT_EQ(store.parts({"--least-recent", "49"}), (Rows{"1.2"}));
    EXPECT_EQ(store.parts({"--least-recent", "50"}), (Rows{"1.2", "1.1"}))
        << "the sum must exceed the request";
}

TEST(ToolParts, APartIsWrittenWithAllThatIsKnownOfIt) {
    const ToolRun listed = QueueStore().run("parts", {"--id", "2"});
    expectDone(listed, R"({"media_type":"image/png","size":50,"external_url":"https://content.test/ready",)"
                       R"("external_content_url_expiration":1000,"last_accessed":3000,"transfer_status":2,)"
                       R"("file_path":"a/b","purged":false,"index":1,"event_database_identifier":1,)"
                       R"("event_client_id":"11111111-1111-1111-1111-111111111101","event_seq":5,)"
                       R"("stream_id":"11111111-1111-1111-1111-1111111111aa"})"
                       "\n");
}

TEST(ToolParts, ATypeThatIsNoMediaTypeNameIsRefused) {
    const QueueStore store;
    const std::string tooLong(128, 'a');
    for (const std::string& type :
         Options{"image", "image/", "/png", "/", "", "image/png/x", "image/p ng", "image/png'",
                 "image/png; q=1", "image/*", ".image/png", "image/+png", "im\xC3\xA4ge/png",
                 "image/" + tooLong, tooLong + "/png", "x') OR ('1' = '1/a"}) {
        store.expectWrongCommandLine({"--expired-downloads", "--mime", type});
    }
}

TEST(ToolParts, EveryMediaTypeNameIsAccepted) {
    const QueueStore store;
    const std::string longest(127, 'a');
    for (const std::string& type : Options{"image/svg+xml", "application/vnd.a-b.c_d",
                                           "x!#$&-^_.+/1!#$&-^_.+", longest + "/" + longest, "IMAGE/PNG"}) {
        SCOPED_TRACE(type);
        EXPECT_EQ(store.parts({"--expired-downloads", "--mime", type}), (Rows{"1.3"}))
            << "only the part in flight is wanted, no part has this type";
    }
}

TEST(ToolParts, ExactlyOneSelectionIsWanted) {
    const QueueStore store;
    store.expectWrongCommandLine({});
    store.expectWrongCommandLine({"--unassigned-urls", "--incomplete-uploads"});
    store.expectWrongCommandLine({"--event", "1"});
    store.expectWrongCommandLine({"--message", "1"});
    store.expectWrongCommandLine({"--url", "no url"});
    store.expectWrongCommandLine({"--object-id", "no url"});
}

TEST(ToolParts, TheOptionsOfExpiredDownloadsGoWithNothingElse) {
    const QueueStore store;
    store.expectWrongCommandLine({"--incomplete-downloads", "--mime", "image/png"});
    store.expectWrongCommandLine({"--incomplete-downloads", "--no-mime"});
    store.expectWrongCommandLine({"--incomplete-downloads", "--max-size", "5"});
    store.expectWrongCommandLine({"--expired-downloads", "--mime", "image/png", "--no-mime"});
}

// Sequences

const Options assigned = {"--seq", "12", "--creator", "ada", "--timestamp", "1760000492000"};

Options inRow(const std::string& row, const Options& more) {
    Options options{"--id", row};
    options.insert(options.end(), more.begin(), more.end());
    return options;
}

TEST(ToolSequence, RecordsWhatTheServiceAssigned) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1, {{"creator_name", "Ada"}, {"client_seq", 7}})}));
    expectDone(store.run("sequence", inRow("1", assigned)), "1 event sequenced\n");
    const json event = parsedLines(store.events({"--posted"})).at(0);
    EXPECT_EQ(event.at("seq"), 12);
    EXPECT_EQ(event.at("creator_id"), "ada");
    EXPECT_EQ(event.at("server_timestamp"), 1760000492000);
    EXPECT_EQ(event.at("creator_name"), "Ada") << "what the service does not assign stays";
    EXPECT_EQ(event.at("client_seq"), 7) << "what the service does not assign stays";
}

TEST(ToolSequence, AnEventThatIsNotThereCannotBeSequenced) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    expectFailure(store.run("sequence", inRow("9", assigned)), "there is no event in row 9");
}

TEST(ToolSequence, AnEventOfAStreamThatTheServiceDoesNotKnowCannotBeSequenced) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1, {{"stream_id", nullptr}, {"stream_database_identifier", 3}})}));
    expectFailure(
        store.run("sequence", inRow("1", assigned)),
        "Failed to persist sequence by event. Event's stream_id property shouldn't be `nil`, since it's "
        "not possible to publish events for streams that don't exist in the data source yet.");
    EXPECT_EQ(fieldOfLines(store.events(), "seq"), (std::vector<json>{nullptr})) << "nothing is recorded";
}

TEST(ToolSequence, ASequenceThatIsTakenIsRefusedInTheDatabasesWords) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1, {{"seq", 12}}), eventJSON(2)}));
    const ToolRun run = store.run("sequence", inRow("2", assigned));
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("zavevents: cannot record the sequence"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("UNIQUE constraint failed"), std::string::npos) << run.err;
    EXPECT_EQ(fieldOfLines(store.events(), "seq"), (std::vector<json>{12, nullptr}));
}

TEST(ToolSequence, EveryOptionIsWantedAndInRange) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    EXPECT_EQ(store.run("sequence", {"--id", "1", "--seq", "1", "--creator", "ada"}).status, 2);
    EXPECT_EQ(store.run("sequence", assigned).status, 2);
    EXPECT_EQ(
        store.run("sequence", {"--id", "1", "--seq", "2147483648", "--creator", "ada", "--timestamp", "1"})
            .status,
        2)
        << "a sequence has 32 bits";
}

// Removal

TEST(ToolTombstone, OnlyTheTypeOfTheEventAtTheSequenceChanges) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1, {{"seq", 4}}), eventJSON(2, {{"seq", 5}, {"creator_id", "ada"}})}));
    const auto before = parsedLines(store.events());
    expectDone(store.run("tombstone", {"--stream-row", "1", "--seq", "5"}), "1 event tombstoned\n");
    const auto after = parsedLines(store.events());
    json expected = before.at(1);
    expected["type"] = 10;
    EXPECT_EQ(after.at(0), before.at(0)) << "the other event stays";
    EXPECT_EQ(after.at(1), expected) << "nothing but the type changes";
    expectDone(store.run("tombstone", {"--stream-row", "1", "--seq", "5"}), "1 event tombstoned\n");
}

TEST(ToolTombstone, ASequenceThatIsNotThereIsNoFailure) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1, {{"seq", 4}})}));
    expectDone(store.run("tombstone", {"--stream-row", "1", "--seq", "5"}), "0 event tombstoned\n");
    expectDone(store.run("tombstone", {"--stream-row", "2", "--seq", "4"}), "0 event tombstoned\n");
    EXPECT_EQ(fieldOfLines(store.events(), "type"), (std::vector<json>{2}));
}

TEST(ToolDelete, TheEventsGoAndTheirPartsStay) {
    const QueueStore store;
    expectDone(store.run("delete", {"--id", "2", "1", "9"}), "2 events deleted\n");
    EXPECT_EQ(store.events(), "");
    EXPECT_EQ(store.execute("SELECT COUNT(*) FROM event_content_parts"), (Rows{"8"}))
        << "the parts are not the events'";
    expectDone(store.run("delete", {"--id", "2"}), "0 events deleted\n");
}

/// A connection of somebody else, who writes into the store.
class OtherWriter {
public:
    explicit OtherWriter(const ToolStore& store) {
        EXPECT_EQ(sqlite3_open(store.path().c_str(), &connection_), SQLITE_OK);
    }
    ~OtherWriter() { sqlite3_close(connection_); }
    OtherWriter(const OtherWriter&) = delete;
    OtherWriter& operator=(const OtherWriter&) = delete;

    void run(const char* script) const {
        EXPECT_EQ(sqlite3_exec(connection_, script, nullptr, nullptr, nullptr), SQLITE_OK)
            << script << ": " << sqlite3_errmsg(connection_);
    }

private:
    sqlite3* connection_ = nullptr;
};

TEST(ToolDelete, CountsItsOwnEventsWhileAnotherWriterAddsSome) {
    const QueueStore store;
    const OtherWriter writer(store);
    writer.run("BEGIN IMMEDIATE");
    auto deleted = std::async(std::launch::async, [&] {
        return store.run("delete", {"--id", "1", "2", "3"});
    });
    // It begins meanwhile; what it says is the same wherever it has got to.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    writer.run("INSERT INTO events (type, client_id) VALUES (4, x'01'), (4, x'02'), (4, x'03'), (4, x'04')");
    writer.run("COMMIT");
    const ToolRun run = deleted.get();
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "3 events deleted\n") << "one of them is the other writer's, and in row 3 by then";
    EXPECT_EQ(store.execute("SELECT COUNT(*) FROM events"), Rows{"3"});
}

/// A store with eight events, each on a page of its own, of which the last event's is damaged.
class DamagedAtTheEnd : public ToolStore {
public:
    DamagedAtTheEnd() {
        std::vector<json> events;
        for (int number = 1; number <= 8; ++number) {
            events.push_back(eventJSON(number, {{"creator_name", nameOf(number) + std::string(3000, 'x')}}));
        }
        importWell(lines(events), {"--record-changes"});
        execute("PRAGMA wal_checkpoint(TRUNCATE)");
        const std::size_t pageSize = std::stoul(execute("PRAGMA page_size").at(0));
        std::string bytes = bytesOfFile(path());
        const std::size_t place = bytes.find(nameOf(8));
        EXPECT_NE(place, std::string::npos) << "the event is somewhere in the file";
        bytes.replace(place / pageSize * pageSize, 8, 8, '\xFF');
        write("chat.db", bytes);
    }

private:
    static std::string nameOf(int number) { return "creator " + std::to_string(number) + " "; }
};

TEST(ToolDelete, KeepsAllEventsWhenOneCannotBeDeleted) {
    const DamagedAtTheEnd store;
    const ToolRun run = store.run("delete", {"--id", "1", "2", "8", "--log", "off"});
    EXPECT_EQ(run.status, 1) << "the last one cannot be deleted";
    EXPECT_EQ(run.out, "") << "nothing was deleted";
    EXPECT_EQ(run.err, "zavevents: cannot delete the events: database disk image is malformed\n");
    EXPECT_EQ(store.execute("SELECT COUNT(*) FROM events WHERE database_identifier IN (1, 2)"), Rows{"2"})
        << "all or none are deleted";
}

TEST(ToolProcessed, CountsTheEventsThatHadWaited) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1), eventJSON(2)}), {"--record-changes"});
    store.execute(
        "INSERT INTO synced_changes (table_name, row_identifier, change_type) VALUES ('events', 1, 0)");
    expectDone(store.run("processed", {"--id", "1", "1", "2", "3"}), "2 events processed\n");
    expectDone(store.run("processed", {"--id", "1", "2"}), "0 events processed\n");
}

TEST(ToolProcessed, OnlyTheGivenEventsAreForgotten) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1), eventJSON(2), eventJSON(3)}), {"--record-changes"});
    const auto rows = [&] { return fieldOfLines(store.events({"--unprocessed"}), "database_identifier"); };
    EXPECT_EQ(rows(), (std::vector<json>{1, 2, 3}));
    expectDone(store.run("processed", {"--id", "1", "3", "9"}), "2 events processed\n");
    EXPECT_EQ(rows(), (std::vector<json>{2}));
    EXPECT_EQ(parsedLines(store.events()).size(), 3U) << "the events themselves stay";
}

TEST(ToolProcessed, WithoutARowTheCommandLineIsWrong) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    EXPECT_EQ(store.run("processed").status, 2);
    EXPECT_EQ(store.run("delete").status, 2);
    EXPECT_EQ(store.run("delete", {"--id", "first"}).status, 2);
    EXPECT_EQ(parsedLines(store.events()).size(), 1U);
}

// The rows that mirror a sequence

class ConversationStore : public ToolStore {
public:
    ConversationStore() {
        importWell(lines({eventJSON(1)}));
        execute(
            "INSERT INTO conversations SELECT 3, stream_id FROM streams;"
            "INSERT INTO conversation_participants (conversation_database_identifier, member_id, seq)"
            " VALUES (3, 'ada', 1), (3, 'bob', 2), (4, 'ada', 3);"
            "INSERT INTO messages (event_database_identifier, seq) VALUES (1, 1), (2, 2)");
    }

    [[nodiscard]] ToolRun progress(const std::string& stream, const std::string& member) const {
        return run("participant-seq", {"--stream", stream, "--member", member, "--seq", "12"});
    }
    [[nodiscard]] Rows participants() const {
        return execute("SELECT seq FROM conversation_participants ORDER BY database_identifier");
    }
};

TEST(ToolParticipantSeq, TheMemberOfTheStreamsConversationProgresses) {
    const ConversationStore store;
    expectDone(store.progress(uuidText(0xAA), "ada"), "1 participant updated\n");
    EXPECT_EQ(store.participants(), (Rows{"12", "2", "3"}));
}

TEST(ToolParticipantSeq, SomebodyWhoIsNoMemberIsNoFailure) {
    const ConversationStore store;
    expectDone(store.progress(uuidText(0xAA), "eve"), "0 participant updated\n");
    EXPECT_EQ(store.participants(), (Rows{"1", "2", "3"}));
}

TEST(ToolParticipantSeq, AStreamWithoutAConversationIsAFailureThatNamesIt) {
    const ConversationStore store;
    expectFailure(store.progress(uuidText(0xBB), "ada"),
                  "the stream 11111111-1111-1111-1111-1111111111bb has no conversation");
    EXPECT_EQ(store.participants(), (Rows{"1", "2", "3"}));
}

TEST(ToolParticipantSeq, AStreamThatIsNoUuidIsAWrongCommandLine) {
    EXPECT_EQ(ConversationStore().progress("aa", "ada").status, 2);
}

TEST(ToolMessageSeq, TheMessageOfTheEventIsUpdated) {
    const ConversationStore store;
    expectDone(store.run("message-seq", {"--event", "1", "--seq", "12"}), "1 message updated\n");
    EXPECT_EQ(store.execute("SELECT seq FROM messages ORDER BY database_identifier"), (Rows{"12", "2"}));
    expectDone(store.run("message-seq", {"--event", "9", "--seq", "12"}), "0 message updated\n");
}

// Transfer

/// A store with one part, in which everything is set.
class TransferStore : public ToolStore {
public:
    TransferStore() {
        importWell(lines({message(1, {remotePart(2, "old", valid)})}));
        reset();
    }

    void reset() const {
        execute(
            "UPDATE event_content_parts SET access_expiration = 4000000000.75, url = 'https://content.test/old',"
            " size = 50, transfer_status = 2, file_path = 'a/b', last_accessed = 1700000000.25, purged = 0");
    }
    [[nodiscard]] ToolRun transfer(const Options& changes) const {
        Options options{"--event", "1", "--index", "0"};
        options.insert(options.end(), changes.begin(), changes.end());
        return run("transfer", options);
    }
    [[nodiscard]] std::string row() const {
        return execute(
                   "SELECT access_expiration, url, size, transfer_status, file_path, last_accessed, purged, type"
                   " FROM event_content_parts")
            .at(0);
    }
    void expectRefusal(const Options& changes, const std::string& message) const {
        const std::string before = row();
        expectFailure(transfer(changes), message);
        EXPECT_EQ(row(), before) << "a refused update writes nothing";
    }
};

TEST(ToolTransfer, EachOptionChangesItsFieldAndWhatIsNotGivenStays) {
    const TransferStore store;
    const struct {
        Options changes;
        std::string row;
    } cases[] = {
        {{"--status", "4"}, "4000000000.75|https://content.test/old|50|4|a/b|1700000000.25|0|image/png"},
        {{"--status", "0"}, "4000000000.75|https://content.test/old|50|0|a/b|1700000000.25|0|image/png"},
        {{"--url", "https://content.test/new"},
         "4000000000.75|https://content.test/new|50|2|a/b|1700000000.25|0|image/png"},
        {{"--expires", "5000000000.5"},
         "5000000000.5|https://content.test/old|50|2|a/b|1700000000.25|0|image/png"},
        {{"--size", "9000000000"},
         "4000000000.75|https://content.test/old|9000000000|2|a/b|1700000000.25|0|image/png"},
        {{"--file", "c/d%20e"},
         "4000000000.75|https://content.test/old|50|2|c/d%20e|1700000000.25|0|image/png"},
        {{"--accessed", "1700000001.5"},
         "4000000000.75|https://content.test/old|50|2|a/b|1700000001.5|0|image/png"},
        {{"--purged", "1"}, "4000000000.75|https://content.test/old|50|2|a/b|1700000000.25|1|image/png"},
        {{"--status", "3", "--size", "1", "--purged", "0"},
         "4000000000.75|https://content.test/old|1|3|a/b|1700000000.25|0|image/png"},
    };
    for (const auto& [changes, row] : cases) {
        SCOPED_TRACE(json(changes));
        store.reset();
        expectDone(store.transfer(changes), "1 part updated\n");
        EXPECT_EQ(store.row(), row);
    }
}

TEST(ToolTransfer, APurgedPartStaysPurgedUntilItIsSaidOtherwise) {
    const TransferStore store;
    store.execute("UPDATE event_content_parts SET purged = 1");
    expectDone(store.transfer({"--status", "2"}), "1 part updated\n");
    EXPECT_EQ(store.execute("SELECT purged FROM event_content_parts"), (Rows{"1"}));
    expectDone(store.transfer({"--purged", "0"}), "1 part updated\n");
    EXPECT_EQ(store.execute("SELECT purged FROM event_content_parts"), (Rows{"0"}));
}

TEST(ToolTransfer, WhatIsAbsentStaysAbsent) {
    const TransferStore store;
    store.execute(
        "UPDATE event_content_parts SET access_expiration = NULL, url = NULL, file_path = NULL,"
        " last_accessed = NULL");
    expectDone(store.transfer({"--status", "1"}), "1 part updated\n");
    EXPECT_EQ(store.row(), "NULL|NULL|50|1|NULL|NULL|0|image/png");
}

TEST(ToolTransfer, InlineDataStays) {
    const ToolStore store;
    store.importWell(lines({message(1, {textPart()})}));
    expectDone(store.run("transfer", {"--event", "1", "--index", "0", "--status", "0"}), "1 part updated\n");
    EXPECT_EQ(store.execute("SELECT CAST(value AS TEXT), transfer_status FROM event_content_parts"),
              (Rows{"hello|0"}));
}

TEST(ToolTransfer, WithoutAChangeNothingIsWritten) {
    const TransferStore store;
    const std::string before = store.row();
    expectDone(store.transfer({}), "0 parts updated\n");
    EXPECT_EQ(store.row(), before);
}

TEST(ToolTransfer, WhatARecordCannotSayStaysInItsRow) {
    const TransferStore store;
    const std::string everything =
        "UPDATE event_content_parts SET access_expiration = 'never', url = 'no url', size = NULL,"
        " transfer_status = 7, file_path = 'no path', last_accessed = NULL, purged = NULL";
    const struct {
        Options changes;
        std::string row;
    } cases[] = {
        {{"--accessed", "5"}, "never|no url|NULL|7|no path|5.0|NULL|image/png"},
        {{"--status", "4"}, "never|no url|NULL|4|no path|NULL|NULL|image/png"},
        {{"--purged", "1"}, "never|no url|NULL|7|no path|NULL|1|image/png"},
        {{"--url", "https://content.test/new"},
         "never|https://content.test/new|NULL|7|no path|NULL|NULL|image/png"},
        {{"--file", "c/d"}, "never|no url|NULL|7|c/d|NULL|NULL|image/png"},
        {{"--size", "0"}, "never|no url|0|7|no path|NULL|NULL|image/png"},
        {{"--expires", "6"}, "6.0|no url|NULL|7|no path|NULL|NULL|image/png"},
    };
    for (const auto& [changes, row] : cases) {
        SCOPED_TRACE(json(changes));
        store.execute(everything);
        expectDone(store.transfer(changes), "1 part updated\n");
        EXPECT_EQ(store.row(), row) << "only the given column is written";
    }
}

TEST(ToolTransfer, AnAbsoluteUrlInPlaceOfAPathStays) {
    const TransferStore store;
    store.execute("UPDATE event_content_parts SET file_path = 'file:///a/b', purged = NULL");
    expectDone(store.transfer({"--status", "4"}), "1 part updated\n");
    EXPECT_EQ(store.row(),
              "4000000000.75|https://content.test/old|50|4|file:///a/b|1700000000.25|NULL|image/png");
}

TEST(ToolTransfer, OnlyTheRowIsUpdatedWhoseIndexIsTheNumber) {
    const TransferStore store;
    store.execute("UPDATE event_content_parts SET event_content_part_id = 'x'");
    const std::string before = store.row();
    expectFailure(store.transfer({"--status", "4"}), "event 1 has no part 0");
    EXPECT_EQ(store.row(), before) << "text is not the number 0";
    store.execute(
        "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, transfer_status)"
        " VALUES (0, 1, 2)");
    expectDone(store.transfer({"--status", "4"}), "1 part updated\n");
    EXPECT_EQ(store.execute("SELECT event_content_part_id, transfer_status FROM event_content_parts"
                            " ORDER BY database_identifier"),
              (Rows{"x|2", "0|4"}));
}

TEST(ToolTransfer, APartWhoseEventIsMissingIsUpdated) {
    const TransferStore store;
    store.execute("DELETE FROM events");
    expectDone(store.transfer({"--status", "4"}), "1 part updated\n");
    EXPECT_EQ(store.execute("SELECT transfer_status FROM event_content_parts"), (Rows{"4"}));
}

TEST(ToolTransfer, TheRepositorysOperationRunsWhereItChangesNothingElse) {
    const TransferStore store;
    const std::string operation = "persisting event content update";
    EXPECT_EQ(store.transfer({"--size", "51", "--log", "verbose"}).err.find(operation), std::string::npos)
        << "it would cut the fraction of the expiration";
    store.execute("UPDATE event_content_parts SET access_expiration = 4000000000");
    EXPECT_NE(store.transfer({"--size", "52", "--log", "verbose"}).err.find(operation), std::string::npos)
        << "what the application runs is what the tool runs";
    EXPECT_EQ(store.row(), "4000000000.0|https://content.test/old|52|2|a/b|1700000000.25|0|image/png");
}

TEST(ToolTransfer, WhatAnotherClientStoresMeanwhileIsNotOverwritten) {
    const TransferStore store;
    store.execute("UPDATE event_content_parts SET access_expiration = 4000000000");
    sqlite3* client = nullptr;
    ASSERT_EQ(sqlite3_open(store.path().c_str(), &client), SQLITE_OK);
    TracedTool tool({"transfer", store.path(), "--event", "1", "--index", "0", "--status", "4"});
    bool isRunning = tool.nextStatement();
    EXPECT_TRUE(isRunning) << "the tool has begun";
    while (sqlite3_exec(client, "UPDATE event_content_parts SET size = 60", nullptr, nullptr, nullptr) !=
           SQLITE_OK) {
        isRunning = isRunning && tool.nextStatement();  // the tool has the lock, and goes on
    }
    EXPECT_EQ(tool.exitStatus(), 0);
    sqlite3_close(client);
    EXPECT_EQ(store.row(), "4000000000.0|https://content.test/old|60|4|a/b|1700000000.25|0|image/png")
        << "each has written what was given to it";
}

TEST(ToolTransfer, ALockThatAnotherClientHoldsIsAFailureThatChangesNothing) {
    const TransferStore store;
    const std::string before = store.row();
    sqlite3* client = nullptr;
    ASSERT_EQ(sqlite3_open(store.path().c_str(), &client), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(client, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    expectFailure(store.transfer({"--status", "4"}), "cannot update the content part: database is locked");
    sqlite3_close(client);
    EXPECT_EQ(store.row(), before);
}

TEST(ToolTransfer, AFileThatReclaimWouldRefuseIsAWrongCommandLine) {
    const TransferStore store;
    const std::string before = store.row();
    for (const std::string path :
         {"file:///a/b", "no path", "/etc/hosts", "//content.test/1", "../x", "a/../../x", "../cache/x",
          "%2E%2E/x", "a%2F..%2F..%2Fx", "", ".", "a/", "a/..", "a/%2E", "a%2F", "?x", "#x", "a%00b",
          ".zav-trash-0123456789abcdef-x"}) {
        EXPECT_EQ(store.transfer({"--file", path}).status, 2) << "refused: '" << path << "'";
        EXPECT_EQ(store.row(), before) << path;
    }
    for (const std::string path :
         {"a", "a/b", "./a", "a/./b", "a/../b", "a//b", "a%20b", "a%2Fb", "..a", "a?b"}) {
        EXPECT_EQ(store.transfer({"--file", path}).status, 0) << "taken: '" << path << "'";
        EXPECT_EQ(store.execute("SELECT file_path FROM event_content_parts"), (Rows{path}))
            << "stored as it is";
    }
}

TEST(ToolTransfer, APartThatIsNotThereCannotBeUpdated) {
    const TransferStore store;
    expectFailure(store.run("transfer", {"--event", "1", "--index", "7", "--status", "4"}),
                  "event 1 has no part 7");
    expectFailure(store.run("transfer", {"--event", "9", "--index", "0", "--status", "4"}),
                  "event 9 has no part 0");
}

TEST(ToolTransfer, ValuesThatMeanNothingAreAWrongCommandLine) {
    const TransferStore store;
    const std::string before = store.row();
    for (const Options& changes : std::vector<Options>{{"--status", "5"},
                                                       {"--status", "-1"},
                                                       {"--url", "no url"},
                                                       {"--expires", "soon"},
                                                       {"--size", "big"},
                                                       {"--size", "-1"},
                                                       {"--purged", "perhaps"}}) {
        EXPECT_EQ(store.transfer(changes).status, 2) << json(changes);
    }
    EXPECT_EQ(store.row(), before);
}

// Check and stats

json checked(const ToolStore& store, int status = 0) {
    const ToolRun run = store.run("check", {"--json"});
    EXPECT_EQ(run.status, status) << run.err;
    EXPECT_EQ(parsedLines(run.out).size(), 1U) << "one object is written: " << run.out;
    return json::parse(run.out);
}

/// What the tool says of its engine; the cures are in 3.51.3, 3.50.7 and 3.44.6.
std::string engineLine() {
    const int version = sqlite3_libversion_number();
    const bool isSafe = version >= 3051003 || (version >= 3050007 && version < 3051000) ||
                        (version >= 3044006 && version < 3045000);
    return std::string("SQLite ") + sqlite3_libversion() +
           (isSafe ? ", safe checkpoints" : ", checkpoints guarded by the library");
}

TEST(ToolCheck, AnIntactStoreIsReportedAsSuch) {
    const QueueStore store;
    expectDone(store.run("check"),
               "integrity               ok\n"
               "schema                  ok\n"
               "schema version          " +
                   schemaVersionText +
                   "\n"
                   "parts without an event  0\n"
                   "events without a stream 0\n"
                   "engine                  " +
                   engineLine() + "\n");
    const ToolRun object = store.run("check", {"--json"});
    const std::string beginning =
        R"({"integrity":["ok"],"schema":"ok","schema_version":)" + schemaVersionText +
        R"(,"parts_without_event":0,"events_without_stream":0,"engine":{"version":")" + sqlite3_libversion() +
        "\",";
    EXPECT_EQ(object.out.substr(0, beginning.size()), beginning);
    const json engine = json::parse(object.out).at("engine");
    EXPECT_EQ(engine.at("headers"), SQLITE_VERSION);
    EXPECT_EQ(engine.at("source"), sqlite3_sourceid());
    EXPECT_EQ(engine.at("safe_checkpoints"), engineLine().ends_with(", safe checkpoints"));
    EXPECT_FALSE(engine.at("options").empty());
}

TEST(ToolCheck, WhatLacksItsParentIsCountedAndIsNoDamage) {
    const QueueStore store;
    EXPECT_EQ(store.run("delete", {"--id", "1"}).status, 0);
    store.execute("DELETE FROM streams");
    const json report = checked(store);
    EXPECT_EQ(report.at("integrity"), json::array({"ok"}));
    EXPECT_EQ(report.at("parts_without_event"), 5);
    EXPECT_EQ(report.at("events_without_stream"), 1);
}

/// Overwrites where a table or an index begins.
void damage(const ToolStore& store, const std::string& name) {
    const std::string page =
        store.execute("SELECT rootpage FROM sqlite_master WHERE name = '" + name + "'").at(0);
    const std::string pageSize = store.execute("PRAGMA page_size").at(0);
    store.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    std::fstream file(store.path(), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp((std::stoll(page) - 1) * std::stoll(pageSize));
    file << std::string(64, '\xFF');
}

TEST(ToolCheck, ADamagedFileIsAFailureThatSaysWhatIsWrong) {
    const QueueStore store;
    damage(store, "events_by_client_id");
    const ToolRun run = store.run("check");
    EXPECT_EQ(run.status, 1) << run.out;
    EXPECT_NE(run.err.find("zavevents: " + store.path() + ": the database is damaged\n"), std::string::npos)
        << run.err;
    EXPECT_NE(run.out.find("integrity               "), std::string::npos) << run.out;
    EXPECT_EQ(run.out.find("integrity               ok\n"), std::string::npos) << run.out;
    const json report = checked(store, 1);
    EXPECT_NE(report.at("integrity"), json::array({"ok"})) << "a script must see the damage too";
    EXPECT_FALSE(report.at("integrity").empty()) << "a script must see the damage too";
}

TEST(ToolCheck, WhatCannotBeCountedForDamageIsUnknownAndHidesNoFinding) {
    const QueueStore store;
    damage(store, "events");
    const ToolRun run = store.run("check");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("the database is damaged\n"), std::string::npos) << run.err;
    EXPECT_NE(run.out.find("integrity               "), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("parts without an event  unknown\n"), std::string::npos) << run.out;
    EXPECT_TRUE(checked(store, 1).at("parts_without_event").is_null());
}

TEST(ToolCheck, AFileThatIsNoDatabaseIsAFailureInTheDatabasesWords) {
    const ToolStore store;
    store.write("chat.db", std::string(5000, 'x'));
    const ToolRun run = store.run("check");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find(sqlite3_errstr(SQLITE_NOTADB)), std::string::npos) << run.err;
    EXPECT_EQ(run.out, "");
}

// Checkpoint

TEST(ToolCheckpoint, FoldsTheLogOfAnotherClientAndSaysHowFar) {
    const QueueStore store;
    sqlite3* client = nullptr;
    ASSERT_EQ(sqlite3_open(store.path().c_str(), &client), SQLITE_OK);
    ASSERT_EQ(
        sqlite3_exec(client, "PRAGMA wal_autocheckpoint=0; UPDATE events SET creator_name = zeroblob(100000)",
                     nullptr, nullptr, nullptr),
        SQLITE_OK);
    const auto log = store.path() + "-wal";
    const std::size_t before = bytesOfFile(log).size();
    ASSERT_GT(before, 100000U);
    const ToolRun passive = store.run("checkpoint", {"--passive", "--json"});
    EXPECT_EQ(passive.status, 0) << passive.err;
    const json report = json::parse(passive.out);
    EXPECT_GT(report.at("frames"), 25);
    EXPECT_EQ(report,
              json({{"frames", report.at("frames")}, {"copied", report.at("frames")}, {"held_up", false}}));
    const std::string frames = report.at("frames").dump();
    expectDone(store.run("checkpoint"),
               "the log has " + frames + " pages, " + frames + " of them in the file\n");
    expectDone(store.run("checkpoint", {"--truncate"}), "the log has 1 pages, 1 of them in the file\n");
    EXPECT_LE(bytesOfFile(log).size(), 32 + 24 + 4096U);
    sqlite3_close(client);
}

TEST(ToolCheckpoint, SaysThatAReaderHeldItUp) {
    const QueueStore store;
    sqlite3* reader = nullptr;
    ASSERT_EQ(sqlite3_open(store.path().c_str(), &reader), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(reader, "BEGIN; SELECT * FROM events", nullptr, nullptr, nullptr), SQLITE_OK);
    store.execute("UPDATE events SET creator_name = 'changed'");
    const ToolRun run = store.run("checkpoint", {"--passive"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.out.ends_with(" of them in the file; another connection held it up\n")) << run.out;
    sqlite3_close(reader);
}

// Disk use

TEST(ToolDiskUsage, IsThatOfTheFileAndItsLog) {
    const QueueStore store;
    // An open connection keeps the log from being folded when the tool ends.
    sqlite3* client = nullptr;
    ASSERT_EQ(sqlite3_open(store.path().c_str(), &client), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(client,
                           "CREATE TABLE gone AS SELECT zeroblob(100000); DROP TABLE gone;"
                           "PRAGMA wal_checkpoint; UPDATE events SET creator_name = 'changed'",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    const ToolRun object = store.run("disk-usage", {"--json"});
    EXPECT_EQ(object.status, 0) << object.err;
    const json usage = json::parse(object.out);
    const std::string pages = store.execute("PRAGMA page_count").at(0);
    const std::string freePages = store.execute("PRAGMA freelist_count").at(0);
    const std::string pageSize = store.execute("PRAGMA page_size").at(0);
    const std::string freeBytes = std::to_string(std::stoll(freePages) * std::stoll(pageSize));
    EXPECT_GT(std::stoi(freePages), 20);
    const std::string fileBytes = std::to_string(bytesOfFile(store.path()).size());
    const std::string logBytes = std::to_string(bytesOfFile(store.path() + "-wal").size());
    EXPECT_GT(std::stoll(logBytes), 0);
    EXPECT_EQ(object.out, "{\"page_size\":" + pageSize + ",\"pages\":" + pages +
                              ",\"free_pages\":" + freePages + ",\"free_bytes\":" + freeBytes +
                              ",\"file_bytes\":" + fileBytes + ",\"log_bytes\":" + logBytes + "}\n");
    expectDone(store.run("disk-usage"), "file                    " + fileBytes +
                                            " bytes\n"
                                            "write-ahead log         " +
                                            logBytes +
                                            " bytes\n"
                                            "pages                   " +
                                            pages + " of " + pageSize +
                                            " bytes\n"
                                            "free pages              " +
                                            freePages + ", " + freeBytes + " bytes\n");
    sqlite3_close(client);
}

TEST(ToolDiskUsage, OfTheTablesIsToldWhereTheEngineCan) {
    const QueueStore store;
    store.execute("CREATE TABLE \"a\x1b[31m\" AS SELECT zeroblob(500000)");
    const ToolRun object = store.run("disk-usage", {"--tables", "--json"});
    EXPECT_EQ(object.status, 0) << object.err;
    const json usage = json::parse(object.out);
    const ToolRun text = store.run("disk-usage", {"--tables"});
    EXPECT_EQ(text.status, 0) << text.err;
    if (!ZAVDatabaseEngine::hasCompileOption("ENABLE_DBSTAT_VTAB")) {
        EXPECT_EQ(usage.at("tables"), json());
        EXPECT_TRUE(text.out.ends_with("\ntables                  unknown: this engine cannot tell\n"))
            << text.out;
        return;
    }
    std::int64_t bytes = usage.at("free_bytes");
    for (const json& table : usage.at("tables")) {
        bytes += table.at("bytes").get<std::int64_t>();
        EXPECT_EQ(table.at("bytes"),
                  table.at("pages").get<std::int64_t>() * usage.at("page_size").get<std::int64_t>());
        EXPECT_LE(table.at("unused_bytes"), table.at("bytes"));
    }
    EXPECT_EQ(bytes, usage.at("pages").get<std::int64_t>() * usage.at("page_size").get<std::int64_t>());
    const json& largest = usage.at("tables").at(0);
    EXPECT_EQ(largest.at("name"), "a\x1b[31m");
    EXPECT_EQ(largest.at("is_index"), false);
    EXPECT_NE(text.out.find("\ntables and indexes\n  a\\x1b[31m             " + largest.at("bytes").dump() +
                            " bytes, " + largest.at("unused_bytes").dump() + " of them unused\n"),
              std::string::npos)
        << text.out;
    EXPECT_NE(text.out.find("\n  events_by_client_id "), std::string::npos) << text.out;
}

TEST(ToolStatsOfDisk, BelowTheSignedHalfTheDiskUseHasNoSecondFigure) {
    const ToolStore store;
    store.importWell(lines({message(1, {filePart(4, {{"size", 2147483647}})})}));
    const json stats = store.stats();
    EXPECT_EQ(stats.at("disk_utilization"), 2147483647);
    EXPECT_FALSE(stats.contains("disk_utilization_exact")) << "the figure is exact by itself";
}

TEST(ToolStatsOfDisk, TheExactDiskUseStandsBesideANarrowedOne) {
    const ToolStore store;
    store.importWell(lines({message(1, {filePart(4, {{"size", 2000000000}}),
                                        filePart(0, {{"size", 1000000000}}), filePart(3, {{"size", 77}})})}));
    const json stats = store.stats();
    EXPECT_EQ(stats.at("disk_utilization"), 18446744072414584320ULL);
    EXPECT_EQ(stats.at("disk_utilization_exact"), 3000000000);
    const ToolRun text = store.run("stats");
    EXPECT_NE(text.out.find("disk_utilization        18446744072414584320\n"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("disk_utilization_exact  3000000000\n"), std::string::npos) << text.out;
}

TEST(ToolStatsOfDisk, AllThatIsCountedIsOneObject) {
    const json stats = QueueStore().stats();
    const json expected = {{"events", 2},
                           {"by_type", {{"4", 2}}},
                           {"publishable", 0},
                           {"unpublishable", 0},
                           {"unprocessed", 0},
                           {"posted_and_processed", 1},
                           {"streams", 1},
                           {"parts", 8},
                           {"by_transfer_status", {{"0", 1}, {"1", 2}, {"2", 2}, {"3", 2}, {"4", 1}}},
                           {"disk_utilization", 150}};
    EXPECT_EQ(stats, expected);
}

}  // namespace
}  // namespace zav::test
