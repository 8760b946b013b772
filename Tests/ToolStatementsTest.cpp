#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Operations/Catalogue.h"
#include "Support/StatementTrace.h"
#include "Support/Tool.h"

namespace zav::test {
namespace {

using nlohmann::json;

json part(int status, const json& changes = json::object()) {
    json result = {{"media_type", "image/png"},
                   {"external_url", "https://content.example.com/" + std::to_string(status)},
                   {"size", 10},
                   {"last_accessed", 1000 + status},
                   {"transfer_status", status},
                   {"file_path", "files/" + std::to_string(status)}};
    result.merge_patch(changes);
    return result;
}

/// Events of every kind that an import meets: posted, waiting, of a stream without a name, recognised.
std::string everyKindOfEvent() {
    const json content = {part(0), part(1), part(2), part(3), part(4)};
    return lines({eventJSON(1, {{"seq", 1}, {"creator_id", "ada"}}),
                  eventJSON(2, {{"type", 4}, {"creator_id", "ada"}, {"content", content}}),
                  eventJSON(3, {{"stream_id", nullptr}, {"creator_id", "ada"}}),
                  eventJSON(4, {{"type", 4}, {"content", {{{"media_type", "text/plain"}, {"text", "hi"}}}}}),
                  eventJSON(5, {{"seq", 2}, {"transient_metadata", {{"key", "value"}}}})});
}

/// The same events as the service has posted them.
std::string postedLater() {
    return lines({eventJSON(2, {{"type", 4}, {"seq", 3}, {"creator_id", "ada"}}),
                  eventJSON(3, {{"seq", 4}, {"creator_id", "ada"}}),
                  eventJSON(4, {{"type", 4}, {"seq", 5}, {"creator_id", "ada"}})});
}

/// Every command with every choice of what it reads or writes; STREAM, CACHE and POSTED stand for the three.
constexpr const char* everyCommand =
    R"(events --all; events --publishable; events --unpublishable; events --unprocessed; events --posted;
    events --revived 1; events --id 1; events --seq 1 --stream STREAM; parts --unassigned-urls;
    parts --incomplete-uploads; parts --expired-downloads --mime image/png; parts --expired-downloads;
    parts --incomplete-downloads; parts --id 1; parts --event 2 --index 1; parts --message 1 --index 1;
    parts --object-id zav:///messages/11111111-1111-1111-1111-111111111102/parts/1;
    parts --url https://content.example.com/4; parts --least-recent 100; stats --json; check --json;
    conversation --stream STREAM --member ada; participant-seq --stream STREAM --member ada --seq 1;
    message --event 2; message-seq --event 2 --seq 3; sequence --id 2 --seq 9 --creator ada --timestamp 1;
    tombstone --stream-row 1 --seq 1; processed --id 1 2; transfer --event 2 --index 1 --status 4;
    send --stream STREAM --user ada --text hi; send --stream-row 1 --user ada --text hi; outbox;
    outbox --hold-back;
    receive POSTED --stream STREAM --user ada --cache CACHE --record-changes; missing --stream STREAM;
    sequence --id 7 --seq 10 --creator ada --timestamp 1 --whole --cache CACHE;
    participant-seq --stream STREAM --member ada --seq 2 --whole; message-seq --event 2 --seq 4 --whole;
    send --new-stream --user ada --text hi; stream-posted --stream-row 3 --stream STREAM;
    reclaim --bytes 100 --cache CACHE --dry-run; reclaim --bytes 100 --cache CACHE; delete --id 5;
    delete --id 6 --whole --cache CACHE; tombstone --stream-row 1 --seq 3 --whole --cache CACHE;
    delete-stream --stream-row 1 --cache CACHE)";

/// The statements that a run with `--trace` has written.
std::set<std::string> tracedBy(const ToolRun& run) {
    static const std::regex traced("^ *[0-9.]+ ms +[0-9]+ rows  (.*)$");
    std::set<std::string> statements;
    std::istringstream text(run.err);
    for (std::string line; std::getline(text, line);) {
        std::smatch match;
        if (std::regex_match(line, match, traced)) {
            statements.insert(match[1]);
        }
    }
    return statements;
}

/// A command and a statement that it runs.
using TracedStatement = std::pair<std::string, std::string>;

/// What the tool runs, whatever it is asked for.
std::set<TracedStatement> statementsOfTheTool(const ToolStore& store) {
    std::set<TracedStatement> statements;
    const auto take = [&](std::vector<std::string> arguments) {
        const std::string command =
            arguments[0] + (arguments.size() > 1 && arguments[0] == "events" ? " " + arguments[1] : "");
        arguments.insert(arguments.begin() + 1, store.path());
        arguments.insert(arguments.begin(), "--trace");
        const ToolRun run = runTool(arguments);
        EXPECT_EQ(run.status, 0) << command << ": " << run.err;
        for (const std::string& statement : tracedBy(run)) {
            statements.emplace(command, statement);
        }
    };
    take({"init"});
    take({"import", store.write("first.jsonl", everyKindOfEvent()), "--record-changes", "--user", "ada"});
    take({"import", store.write("first.jsonl", everyKindOfEvent()), "--user", "ada"});
    take({"import", store.write("later.jsonl", postedLater()), "--user", "ada"});
    std::istringstream commands(everyCommand);
    for (std::string command; std::getline(commands, command, ';');) {
        std::vector<std::string> arguments;
        std::istringstream words(command);
        for (std::string word; words >> word;) {
            arguments.push_back(word == "STREAM"   ? uuidText(0xAA)
                                : word == "CACHE"  ? store.file("cache")
                                : word == "POSTED" ? store.write("posted.jsonl", postedLater())
                                                   : word);
        }
        take(arguments);
    }
    return statements;
}

/// A command that may read a table or an index from end to end, with a statement that holds this text.
using Exception = std::pair<std::string, std::string>;

const std::vector<Exception> exceptions{
    {"check", "SELECT COUNT(*)"},                 // what lacks its parent may be anywhere
    {"events --all", "typeof("},                  // so may what an import would not read back
    {"events --all", "file_path GLOB"},           // and this
    {"events --posted", "access_expiration"},     // of nearly all events
    {"outbox", "INDEXED BY events_without_seq"},  // all that waits, which the index holds alone
    {"reclaim", "WHERE file_path IS NOT NULL"},   // learns once which rows name which file
    {"stats", "COUNT(*)"},                        // counts everything
};

TEST(ToolStatements, FindTheirRowsByAnIndexUnlessTheyAreAboutAllOfThem) {
    if (sqlite3_libversion_number() < 3040000) {
        GTEST_SKIP() << "older engines plan, and describe their plans, in other words";
    }
    const ToolStore store;
    ASSERT_EQ(::mkdir(store.file("cache").c_str(), 0700), 0);
    const std::set<TracedStatement> statements = statementsOfTheTool(store);
    EXPECT_GT(statements.size(), 50U) << "the trace of the tool was not understood";
    const auto database = ZAVDatabaseSchema::openDatabase(store.path());
    ASSERT_NE(database, nullptr);
    static const std::regex explainable("^(SELECT|INSERT|UPDATE|DELETE|WITH) .*");
    static const std::regex full("SCAN (?!CONSTANT|sqlite_|n\\b).*");
    std::set<std::ptrdiff_t> needed;
    std::set<std::string> ofTheOperations;
    for (const Operation& operation : everyOperation()) {
        for (const ExpectedStatement& statement : operation.statements) {
            ofTheOperations.insert(statement.text);
        }
    }
    for (const auto& [command, statement] : statements) {
        if (ofTheOperations.contains(statement) || !std::regex_match(statement, explainable)) {
            continue;  // what the library's operations run, their entries in the catalogue say
        }
        const auto exception = std::find_if(
            exceptions.begin(), exceptions.end(),
            [&, &command = command, &statement = statement](const Exception& candidate) {
                return command == candidate.first && statement.find(candidate.second) != std::string::npos;
            });
        for (const std::string& step : planOf(statement, *database)) {
            if (!std::regex_match(step, full)) {
                continue;
            }
            EXPECT_NE(exception, exceptions.end()) << command << " reads a table in full:\n"
                                                   << statement << "\n"
                                                   << step;
            needed.insert(exception - exceptions.begin());
        }
    }
    EXPECT_EQ(needed.size(), exceptions.size()) << "an exception that nothing needs any more";
}

}  // namespace
}  // namespace zav::test
