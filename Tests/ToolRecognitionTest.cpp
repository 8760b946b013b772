#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "EventReader.h"
#include "Importer.h"
#include "Support/Tool.h"

namespace zav::test {
namespace {

using nlohmann::json;

/// A message that says something.
json message(int number, const std::string& text, const json& changes = json::object()) {
    json event =
        eventJSON(number, {{"type", 4}, {"content", {{{"media_type", "text/plain"}, {"text", text}}}}});
    event.merge_patch(changes);
    return event;
}

/// What is stored, by row: author, sequence, stream and text of each event.
std::vector<std::string> stored(const ToolStore& store) {
    return store.execute(
        "SELECT IFNULL(creator_id, '-'), IFNULL(events.seq, 'waits'), hex(substr(stream_id, -1)),"
        " IFNULL(CAST(value AS TEXT), '') FROM events"
        " LEFT JOIN streams ON streams.database_identifier = stream_database_identifier"
        " LEFT JOIN event_content_parts ON event_database_identifier = events.database_identifier"
        " ORDER BY events.database_identifier, event_content_part_id");
}

using Rows = std::vector<std::string>;

const json otherStream = {{"stream_id", uuidText(0xBB)}};

json with(json first, const json& second) {
    first.merge_patch(second);
    return first;
}

TEST(ToolRecognition, AnEventOfAnotherAuthorDoesNotTakeAWaitingOnesRow) {
    for (const json& waiting : {json(nullptr), json("ada")}) {
        for (const json& place :
             {json{{"seq", 7}}, with(otherStream, {{"seq", 7}}), json::object(), otherStream}) {
            for (const std::vector<std::string>& options :
                 std::vector<std::vector<std::string>>{{}, {"--user", "ada"}}) {
                SCOPED_TRACE(waiting.dump() + " " + place.dump() + testing::PrintToString(options));
                const ToolStore store;
                store.importWell(lines({message(1, "mine", {{"creator_id", waiting}})}), options);
                const auto before = stored(store);
                const ToolRun foreign = store.import(
                    lines({message(1, "theirs", with(place, {{"creator_id", "eve"}}))}), options);
                EXPECT_EQ(foreign.status, 0) << foreign.err;
                const auto after = stored(store);
                ASSERT_EQ(after.size(), 2U) << "another's event is an event of its own";
                EXPECT_EQ(after[0], before[0]) << "one's own message waits as before";
                EXPECT_EQ(after[1].substr(0, 4), "eve|") << after[1];
                EXPECT_NE(after[1].find("theirs"), std::string::npos) << "the other's text is stored as well";
            }
        }
    }
}

TEST(ToolRecognition, AnEventOfTheSameAuthorInAnotherStreamIsAnother) {
    for (const json& sequence : {json::object(), json{{"seq", 7}}}) {
        const ToolStore store;
        store.importWell(lines({message(1, "here", {{"creator_id", "ada"}})}));
        store.importWell(
            lines({message(1, "there", with(with(otherStream, sequence), {{"creator_id", "ada"}}))}));
        EXPECT_EQ(stored(store).size(), 2U) << sequence;
        EXPECT_EQ(stored(store)[0], "ada|waits|AA|here");
    }
}

TEST(ToolRecognition, AWaitingEventGetsItsSequence) {
    const ToolStore store;
    store.importWell(lines({message(1, "hi", {{"creator_id", "ada"}})}));
    store.importWell(lines({message(1, "hi", {{"creator_id", "ada"}, {"seq", 9}, {"server_timestamp", 5}})}));
    EXPECT_EQ(stored(store), Rows{"ada|9|AA|hi"});
}

TEST(ToolRecognition, AWaitingEventWithoutAnAuthorIsTheUsers) {
    const ToolStore store;
    store.importWell(lines({message(1, "hi")}));
    store.importWell(lines({message(1, "hi", {{"creator_id", "ada"}, {"seq", 9}})}), {"--user", "ada"});
    EXPECT_EQ(stored(store), Rows{"ada|9|AA|hi"});
}

TEST(ToolRecognition, AnAuthorOfNoSequenceIsTheUsersToo) {
    const ToolStore store;
    store.importWell(lines({message(1, "hi", {{"creator_id", "ada"}})}));
    store.importWell(lines({message(1, "hi")}), {"--user", "ada"});
    EXPECT_EQ(stored(store), Rows{"ada|waits|AA|hi"}) << "and the stored author is not forgotten";
}

TEST(ToolRecognition, WhileNoUserIsKnownAnEventWithoutAnAuthorIsLeftAlone) {
    const ToolStore store;
    store.importWell(lines({message(1, "mine"), message(2, "mine too")}));
    const ToolRun imported =
        store.import(lines({message(3, "new", {{"creator_id", "ada"}, {"seq", 8}}),
                            message(1, "mine", {{"creator_id", "ada"}, {"seq", 9}}),
                            message(2, "mine too", {{"creator_id", "ada"}, {"seq", 10}})}));
    EXPECT_EQ(imported.status, 0);
    EXPECT_EQ(imported.err,
              store.importedFile() +
                  ":2: the event in row 1 has the same stream and client_id, but not both name an "
                  "author: without --user they are two events (further ones are not told of)\n")
        << "it is told once";
    EXPECT_EQ(stored(store), (Rows{"-|waits|AA|mine", "-|waits|AA|mine too", "ada|8|AA|new", "ada|9|AA|mine",
                                   "ada|10|AA|mine too"}));
}

TEST(ToolRecognition, ASequencedEventWithoutAnAuthorIsNotTheUsers) {
    for (const std::vector<std::string>& options :
         std::vector<std::vector<std::string>>{{}, {"--user", "ada"}}) {
        const ToolStore store;
        store.importWell(lines({message(1, "mine")}));
        store.importWell(lines({message(1, "the service's", {{"seq", 3}})}), options);
        EXPECT_EQ(stored(store), (Rows{"-|waits|AA|mine", "-|3|AA|the service's"}));
    }
}

TEST(ToolRecognition, OfSeveralThatWaitTheOldestIsTaken) {
    const ToolStore store;
    store.importWell(
        lines({message(1, "old", {{"creator_id", "ada"}}), message(2, "new", {{"creator_id", "ada"}})}));
    store.execute(
        "UPDATE events SET client_id = (SELECT client_id FROM events WHERE database_identifier = 1)");
    store.importWell(lines({eventJSON(1, {{"type", 4}, {"creator_id", "ada"}, {"seq", 5}})}));
    EXPECT_EQ(stored(store), (Rows{"ada|5|AA|old", "ada|waits|AA|new"}));
    store.importWell(lines({eventJSON(1, {{"type", 4}, {"creator_id", "ada"}, {"seq", 6}})}));
    EXPECT_EQ(stored(store), (Rows{"ada|5|AA|old", "ada|6|AA|new"})) << "then the next";
}

TEST(ToolRecognition, ALineThatIsOlderThanTheSequenceChangesNothing) {
    const ToolStore store;
    const std::string text = lines({message(1, "hi"), message(2, "ho", {{"creator_id", "ada"}})});
    store.importWell(text);
    for (const char* row : {"1", "2"}) {
        const ToolRun sequenced = store.run(
            "sequence", {"--id", row, "--seq", row, "--creator", "ada", "--timestamp", "1760000492000"});
        ASSERT_EQ(sequenced.status, 0) << sequenced.err;
    }
    const std::string before = store.events();
    store.importWell(text, {"--user", "ada"});
    EXPECT_EQ(store.events(), before) << "sequence, author and time are the service's word";
}

TEST(ToolRecognition, ALineThatIsOlderThanItsStreamsIdentifierChangesNothing) {
    const ToolStore store;
    const json unnamed = {{"stream_id", nullptr}, {"stream_database_identifier", 7}, {"creator_id", "ada"}};
    const std::string text = lines({message(1, "hi", unnamed), message(2, "ho", unnamed)});
    store.importWell(text);
    store.execute(
        "UPDATE streams SET stream_id = x'111111111111111111111111111111AA';"
        "UPDATE events SET seq = 4 WHERE database_identifier = 1");
    const std::string before = store.events();
    store.importWell(text);
    EXPECT_EQ(store.events(), before);
    EXPECT_EQ(store.stats().at("streams"), 1);
}

TEST(ToolRecognition, StreamsWithoutAnIdentifierAreToldApartByTheirEvents) {
    const auto in = [](int stream) {
        return json{{"stream_id", nullptr}, {"stream_database_identifier", stream}, {"creator_id", "ada"}};
    };
    const ToolStore store;
    const std::string text = lines({message(1, "a", in(7)), message(1, "b", in(8)), message(2, "c", in(8)),
                                    message(3, "d", with(in(9), {{"seq", 4}}))});
    store.importWell(text);
    const std::string before = store.events();
    EXPECT_EQ(fieldOfLines(before, "stream_database_identifier"), (std::vector<json>{1, 2, 2, 3}));
    for (const char* batch : {"1", "2", "1000"}) {
        store.importWell(text, {"--batch", batch});
        EXPECT_EQ(store.events(), before) << "in batches of " << batch;
    }
    store.importWell(lines({message(9, "new", in(8)), message(2, "c", in(8)), message(8, "newer", in(8))}));
    EXPECT_EQ(store.execute("SELECT stream_database_identifier, count(*) FROM events GROUP BY 1"),
              (Rows{"1|1", "2|3", "3|1", "4|1"}))
        << "what was stored is recognised also behind a line that is new";
}

TEST(ToolRecognition, TwoEventsAtOneSequenceOfAStreamAreNotBothStored) {
    const std::string reason = "seq 5 of stream " + uuidText(0xAA) +
                               " is taken by another event: the stored client_id is " + uuidText(1) +
                               ", the line's " + uuidText(2);
    for (const char* batch : {"1", "1000"}) {
        SCOPED_TRACE(std::string("in batches of ") + batch);
        const std::string text = lines({message(1, "first", {{"seq", 5}}), message(2, "second", {{"seq", 5}}),
                                        message(3, "third", {{"seq", 6}})});
        const ToolStore stopped;
        const ToolRun refused = stopped.import(text, {"--batch", batch});
        EXPECT_EQ(refused.status, 1) << "the second one's text would be lost";
        EXPECT_EQ(refused.err.find("zavevents: " + stopped.importedFile() + ":2: " + reason + "\n"), 0U)
            << refused.err;
        const ToolStore store;
        const ToolRun imported = store.import(text, {"--batch", batch, "--skip-bad-lines"});
        EXPECT_EQ(imported.status, 0);
        EXPECT_EQ(imported.err, store.importedFile() + ":2: " + reason + " (skipped)\n");
        EXPECT_EQ(imported.out, "imported 2 events in 1 streams: 2 new, 0 updated, 1 bad lines skipped\n");
        EXPECT_EQ(stored(store), (Rows{"-|5|AA|first", "-|6|AA|third"}));
        EXPECT_EQ(store.import(lines({message(2, "second", {{"seq", 5}})})).status, 1);
        EXPECT_EQ(stored(store), (Rows{"-|5|AA|first", "-|6|AA|third"})) << "also in a file of its own";
    }
}

TEST(ToolRecognition, SequencesThatAreNoNumbersDoNotHideTheOthers) {
    const ToolStore store;
    store.importWell(lines({message(1, "first", {{"seq", 5}}), message(2, "odd", {{"seq", 6}})}));
    store.execute("UPDATE events SET seq = 'x' WHERE seq = 6");
    EXPECT_EQ(store.import(lines({message(3, "second", {{"seq", 5}})})).status, 1);
    EXPECT_EQ(store.execute("SELECT count(*) FROM events"), Rows{"2"});
}

TEST(ToolRecognition, ContentThatIsNotStoredBecauseOtherContentIsIsToldOf) {
    const ToolStore store;
    store.importWell(lines({message(1, "first"), message(2, "kept", {{"seq", 1}})}));
    const ToolRun imported = store.import(lines({message(2, "kept", {{"seq", 1}}), message(1, "second")}));
    EXPECT_EQ(imported.status, 0);
    EXPECT_EQ(imported.err,
              store.importedFile() +
                  ":2: other content is stored and stays, this is not stored: content[0].text\n");
    EXPECT_EQ(imported.out,
              "imported 2 events in 1 streams: 0 new, 2 updated, 1 stored with other content\n");
    EXPECT_EQ(stored(store)[0], "-|waits|AA|first") << "a part that is stored stays as it is";
}

TEST(ToolRecognition, EachFieldOfContentThatIsNotStoredIsNamed) {
    const json url = {
        {"external_url", "https://content.test/1"}, {"transfer_status", 2}, {"media_type", "a/b"}};
    const ToolStore store;
    const auto event = [](const json& parts) {
        return lines({eventJSON(1, {{"seq", 1}, {"content", parts}})});
    };
    store.importWell(event({{{"text", "a"}}, url, {{"text", "c"}}}));
    const ToolRun imported = store.import(event({{{"body", "/w=="}},
                                                 with(url, {{"external_url", "https://content.test/2"}}),
                                                 {{"text", "c"}, {"media_type", "text/plain"}},
                                                 {{"text", "new"}}}));
    EXPECT_EQ(imported.err, store.importedFile() +
                                ":1: other content is stored and stays, this is not stored: content[0].body,"
                                " content[1].external_url, content[2].media_type\n");
    EXPECT_EQ(store.execute("SELECT count(*) FROM event_content_parts"), Rows{"4"})
        << "a part that is not stored yet is";
    store.importWell(event({{{"size", 1}, {"transfer_status", 0}}}));
}

/// The rows that each statement of an import has read, by its text.
std::map<std::string, long long> rowsReadBy(const ToolRun& run) {
    static const std::regex line(R"(^ *[0-9.]+ ms +([0-9]+) rows  (.*)$)");
    std::map<std::string, long long> rows;
    std::istringstream text(run.err);
    std::smatch match;
    for (std::string each; std::getline(text, each);) {
        if (std::regex_match(each, match, line)) {
            rows[match[2]] += std::stoll(match[1]);
        }
    }
    return rows;
}

/// Files of events with one and the same client_id, that many.
std::vector<std::string> filesOfOneClientID(int count) {
    std::vector<std::string> files(5);
    for (int number = 0; number < count; ++number) {
        const std::string author = "author " + std::to_string(number);
        files[0] += lines({eventJSON(1, {{"creator_id", "ada"}, {"seq", number}})});
        files[1] += lines({eventJSON(1, {{"creator_id", author}})});
        files[2] += lines({eventJSON(1, {{"creator_id", author}, {"seq", number}})});
        files[3] += lines({eventJSON(
            1, {{"creator_id", author}, {"stream_id", nullptr}, {"stream_database_identifier", number}})});
        files[4] += lines({eventJSON(
            1, {{"stream_id", "11111111-1111-1111-1111-" + std::to_string(100000000000 + number)}})});
    }
    return files;
}

/// Counts the steps that the engine takes for the statements of a handle.
int addSteps(unsigned /*kind*/, void* sum, void* statement, void* /*nanoseconds*/) {
    *static_cast<long long*>(sum) +=
        ::sqlite3_stmt_status(static_cast<sqlite3_stmt*>(statement), SQLITE_STMTSTATUS_VM_STEP, 1);
    return 0;
}

/// How many steps the engine takes to import the files, of so many events each, one after the other.
long long stepsToImport(int count, const std::vector<std::size_t>& order) {
    const auto files = filesOfOneClientID(count);
    const auto database = ZAVDatabaseSchema::openDatabase(":memory:");
    long long steps = 0;
    ::sqlite3_trace_v2(database->sqliteHandle(), SQLITE_TRACE_PROFILE, addSteps, &steps);
    for (const std::size_t file : order) {
        zavevents::EventReader reader(std::nullopt);
        zavevents::Importer importer(database, {50}, [](const std::string&) {});
        std::istringstream text(files[file]);
        for (std::string line; std::getline(text, line);) {
            importer.add(reader.read(line));
        }
        importer.finish();
        EXPECT_EQ(importer.counts().stored(), static_cast<std::uint64_t>(count));
    }
    ::sqlite3_trace_v2(database->sqliteHandle(), 0, nullptr, nullptr);
    return steps;
}

TEST(ToolRecognition, ManyEventsOfOneClientIDAreImportedInLinearTime) {
    for (const std::vector<std::size_t>& order : std::vector<std::vector<std::size_t>>{
             {0, 0}, {1, 1, 2, 1}, {2, 1, 0}, {3, 3}, {4, 4}, {0, 4, 3, 1}}) {
        const long long steps = stepsToImport(1000, order);
        EXPECT_GT(steps, 10000) << "steps are counted";
        EXPECT_LT(stepsToImport(2000, order), steps * 5 / 2)
            << "twice the events take twice the steps, not four times: " << testing::PrintToString(order);
    }
}

TEST(ToolRecognition, EveryLookForAStoredEventUsesAnIndex) {
    const ToolStore store;
    store.importWell(lines({message(1, "a"), message(2, "b", {{"seq", 3}})}));
    const ToolRun run = store.import(lines({message(1, "a"), message(2, "b", {{"seq", 3}}),
                                            message(3, "c", {{"stream_id", nullptr}, {"seq", 1}})}),
                                     {"--trace"});
    int lookups = 0;
    for (const auto& [sql, rows] : rowsReadBy(run)) {
        if (!sql.starts_with("SELECT") || sql.find("FROM events") == std::string::npos ||
            sql.find("MAX(") != std::string::npos) {
            continue;
        }
        ++lookups;
        for (const std::string& step : store.execute("EXPLAIN QUERY PLAN " + sql)) {
            EXPECT_EQ(step.find("SCAN events"), std::string::npos) << sql << ": " << step;
        }
    }
    EXPECT_GE(lookups, 4) << "statements of recognition are seen: " << run.err;
}

}  // namespace
}  // namespace zav::test
