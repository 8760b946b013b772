// What the tool does with a file that is no event store of its version, and with names in a file that were
// not chosen by a friend.

#include <ZAVEventRepository/ZAVUTF8.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "Support/SchemaVersion.h"
#include "Support/Tool.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Words = std::vector<std::string>;

struct Command {
    std::string name;
    Words options;
};

/// Every command that works on a store, but `check`.
const std::vector<Command> commands = {
    {"init", {}},
    {"import", {"/dev/null"}},
    {"events", {}},
    {"parts", {"--unassigned-urls"}},
    {"stats", {}},
    {"sequence", {"--id", "1", "--seq", "7", "--creator", "ada", "--timestamp", "1"}},
    {"tombstone", {"--stream-row", "1", "--seq", "1"}},
    {"delete", {"--id", "1"}},
    {"processed", {"--id", "1"}},
    {"conversation", {"--stream", uuidText(0xAA), "--member", "ada"}},
    {"participant-seq", {"--stream", uuidText(0xAA), "--member", "ada", "--seq", "7"}},
    {"message", {"--event", "1"}},
    {"message-seq", {"--event", "1", "--seq", "7"}},
    {"transfer", {"--event", "1", "--index", "0", "--status", "4"}},
    {"sequence",
     {"--id", "1", "--seq", "7", "--creator", "ada", "--timestamp", "1", "--whole", "--cache", "/tmp"}},
    {"participant-seq", {"--stream", uuidText(0xAA), "--member", "ada", "--seq", "7", "--whole"}},
    {"message-seq", {"--event", "1", "--seq", "7", "--whole"}},
    {"tombstone", {"--stream-row", "1", "--seq", "1", "--whole", "--cache", "/tmp"}},
    {"delete", {"--id", "1", "--whole", "--cache", "/tmp"}},
    {"receive", {"/dev/null", "--stream", uuidText(0xAA), "--user", "ada", "--cache", "/tmp"}},
    {"send", {"--text", "hi", "--stream", uuidText(0xAA), "--user", "ada"}},
    {"outbox", {}},
    {"stream-posted", {"--stream-row", "1", "--stream", uuidText(0xAA)}},
    {"missing", {"--stream", uuidText(0xAA)}},
    {"delete-stream", {"--stream-row", "1", "--cache", "/tmp"}},
    {"reclaim", {"--bytes", "1", "--cache", "/tmp"}},
    {"repair", {"--cache", "/tmp", "--app-id", uuidText(0xAA), "--user", "ada"}},
    {"checkpoint", {}},
    {"checkpoint", {"--truncate"}},
    {"compact", {}},
    {"disk-usage", {"--tables"}},
};

/// A store with an event, in which somebody has run a script.
class TamperedStore : public ToolStore {
public:
    explicit TamperedStore(const std::string& script) {
        importWell(lines({eventJSON(1, {{"seq", 1}, {"content", {{{"text", "hi"}}}}})}),
                   {"--record-changes"});
        execute("PRAGMA journal_mode=DELETE;" + script);
        fs::remove(importedFile());
    }

    /// Expects that every command but `check` fails with a reason and changes nothing.
    void expectRefusal(const std::string& reason) const {
        const std::string bytes = bytesOfFile(path());
        for (const auto& [name, options] : commands) {
            SCOPED_TRACE(name);
            const ToolRun refused = run(name, options);
            EXPECT_EQ(refused.status, 1) << "this file is refused";
            EXPECT_EQ(refused.out, "") << "there is no result";
            EXPECT_EQ(refused.err, "zavevents: " + path() + ": " + reason + "\n");
            EXPECT_TRUE(bytesOfFile(path()) == bytes) << "a file that is refused is left as it was";
        }
        expectNothingBeside();
    }

    /// Expects that `check` tells the same reason as what it found.
    void expectFinding(const std::string& reason) const {
        const ToolRun text = run("check");
        EXPECT_EQ(text.status, 1) << "a finding is a failure";
        EXPECT_NE(text.out.find("schema                  " + reason + "\n"), std::string::npos) << text.out;
        EXPECT_EQ(text.err, "zavevents: " + path() + ": this is no event store that can be worked on\n");
        const ToolRun object = run("check", {"--json"});
        EXPECT_EQ(object.status, 1) << "a finding is a failure";
        const json report = json::parse(object.out);
        EXPECT_EQ(report.at("schema"), reason);
        EXPECT_TRUE(report.at("parts_without_event").is_null()) << "nothing is read from tables of others";
        EXPECT_TRUE(report.at("events_without_stream").is_null()) << "nothing is read from tables of others";
        expectNothingBeside();
    }

private:
    void expectNothingBeside() const {
        for (const auto& entry : fs::directory_iterator(file(""))) {
            EXPECT_EQ(entry.path().string(), path()) << "something was made beside the file";
        }
    }
};

struct Tampering {
    const char* name;
    std::string script;
    std::string reason;

    friend std::ostream& operator<<(std::ostream& stream, const Tampering& self) {
        return stream << self.script;
    }
};

class RefusedFile : public testing::TestWithParam<Tampering> {};

TEST_P(RefusedFile, IsRefusedByEveryCommandAndReportedByCheck) {
    const TamperedStore store(GetParam().script);
    store.expectRefusal(GetParam().reason);
    store.expectFinding(GetParam().reason);
}

INSTANTIATE_TEST_SUITE_P(
    Tool, RefusedFile,
    testing::Values(
        Tampering{"WithATrigger", "CREATE TRIGGER spy AFTER DELETE ON events BEGIN DELETE FROM streams; END",
                  "the database has the trigger spy, which the event store does not make"},
        Tampering{"WithAView", "CREATE VIEW everything AS SELECT * FROM events",
                  "the database has the view everything, which the event store does not make"},
        Tampering{"WithAViewInPlaceOfATable",
                  "DROP TABLE messages; CREATE VIEW messages AS SELECT 1 AS database_identifier",
                  "the database has the view messages, which the event store does not make"},
        Tampering{"WithAVirtualTableInPlaceOfATable",
                  "DROP TABLE messages; PRAGMA writable_schema=ON; INSERT INTO sqlite_master VALUES ('table',"
                  " 'messages', 'messages', 0, 'CREATE VIRTUAL TABLE messages USING some_module(a)')",
                  "the database has the virtual table messages in place of the event store's table"},
        Tampering{"WithoutATable", "DROP TABLE conversations",
                  "the database lacks the table conversations of the event store"},
        Tampering{"WithoutAVersion", "PRAGMA user_version = 0",
                  "the database has tables, but no schema version of the event store"},
        Tampering{"OfANegativeVersion", "PRAGMA user_version = -1",
                  "the database has tables, but no schema version of the event store"},
        Tampering{"OfANewerVersion", "PRAGMA user_version = " + std::to_string(schemaVersion + 1),
                  "the database has schema version " + std::to_string(schemaVersion + 1) +
                      ", but this version of the library knows only versions up to " + schemaVersionText}),
    [](const auto& file) { return file.param.name; });

TEST(ToolCheckOfAnEmptyFile, SaysThatThereIsNoSchema) {
    const ToolStore store;
    store.write("chat.db", "");
    const ToolRun run = store.run("check", {"--json"});
    EXPECT_EQ(run.status, 1) << "an empty file is no event store";
    const json report = json::parse(run.out);
    EXPECT_EQ(report.at("integrity"), json::array({"ok"}));
    EXPECT_EQ(report.at("schema"), "the schema has version 0 of " + schemaVersionText);
    EXPECT_EQ(report.at("schema_version"), 0);
    EXPECT_EQ(bytesOfFile(store.path()), "") << "to look at a file makes nothing of it";
}

TEST(ToolCheckOfAView, EndsAlsoWhereTheViewDoesNot) {
    const TamperedStore store(
        "DROP TABLE streams; CREATE VIEW streams AS WITH RECURSIVE n(database_identifier) AS"
        " (SELECT 1 UNION ALL SELECT database_identifier + 1 FROM n) SELECT * FROM n");
    store.expectFinding("the database has the view streams, which the event store does not make");
}

TEST(ToolRefusal, KeepsAWriteAheadLogThatIsNotFolded) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    sqlite3* open = nullptr;
    ASSERT_EQ(sqlite3_open(store.path().c_str(), &open), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(open, "PRAGMA wal_autocheckpoint=0; CREATE VIEW v AS SELECT 1", nullptr, nullptr,
                           nullptr),
              SQLITE_OK);
    const ToolStore copy;
    fs::copy_file(store.path(), copy.path());
    fs::copy_file(store.path() + "-wal", copy.path() + "-wal");
    sqlite3_close(open);
    const std::string bytes = bytesOfFile(copy.path());
    const std::string log = bytesOfFile(copy.path() + "-wal");
    ASSERT_FALSE(log.empty()) << "there is something to fold";
    for (const auto& [name, options] : commands) {
        SCOPED_TRACE(name);
        EXPECT_NE(copy.run(name, options).err.find("the database has the view v"), std::string::npos);
        EXPECT_TRUE(bytesOfFile(copy.path()) == bytes) << "a file that is refused is left as it was";
        EXPECT_TRUE(bytesOfFile(copy.path() + "-wal") == log) << "and so is its log";
    }
}

// What is printed

/// Controls of each kind, a reversal of the direction of writing, and what is no UTF-8; `shown` is how they
/// may reach a terminal.
const std::string hostile = "a\x1B[2J\r\n\t\x07\x7F\xC2\x9B\xE2\x80\xAE\xFF\xC3";
const std::string shown = R"(a\x1b[2J\x0d\x0a\x09\x07\x7f\xc2\x9b\xe2\x80\xae\xff\xc3)";

std::string hexadecimal(const std::string& text) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string result;
    for (const char byte : text) {
        result += digits[static_cast<unsigned char>(byte) >> 4];
        result += digits[static_cast<unsigned char>(byte) & 0x0F];
    }
    return result;
}

/// An expression for a text of any bytes but NUL.
std::string textOf(const std::string& bytes) {
    return "CAST(x'" + hexadecimal(bytes) + "' AS TEXT)";
}

void expectFitForATerminal(const std::string& text) {
    EXPECT_TRUE(ZAVIsUTF8(text)) << "a terminal is sent UTF-8 only";
    for (const char byte : text) {
        EXPECT_FALSE((static_cast<unsigned char>(byte) < 0x20 && byte != '\n') || byte == '\x7F')
            << "a control character: " << json(text).dump();
    }
    EXPECT_EQ(text.find("\xC2\x9B"), std::string::npos) << "a control character of two bytes";
    EXPECT_EQ(text.find("\xE2\x80\xAE"), std::string::npos) << "what reverses a line";
}

TEST(ToolTerminal, IsSentNoControlCharactersOfATypesText) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1), eventJSON(2), eventJSON(3)}));
    store.execute("UPDATE events SET type = " + textOf(hostile) + " WHERE database_identifier = 1");
    const ToolRun run = store.run("stats");
    EXPECT_EQ(run.status, 0) << run.err;
    expectFitForATerminal(run.out);
    EXPECT_NE(run.out.find("\n  " + shown + " 1\n"), std::string::npos) << run.out;
}

TEST(ToolTerminal, IsSentNoControlCharactersOfATriggersName) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    store.execute("CREATE TRIGGER \"" + hostile + "\" AFTER DELETE ON events BEGIN SELECT 1; END");
    for (const auto& [name, options] : commands) {
        const ToolRun run = store.run(name, options);
        EXPECT_EQ(run.status, 1) << name;
        expectFitForATerminal(run.err);
        EXPECT_NE(run.err.find(shown), std::string::npos) << run.err;
    }
    const ToolRun check = store.run("check");
    expectFitForATerminal(check.out);
    EXPECT_NE(check.out.find(shown), std::string::npos) << check.out;
    EXPECT_TRUE(json::accept(store.run("check", {"--json"}).out)) << "a script can read it";
}

/// Has `check` find a value NULL in a column that takes none, of a table of this name.
void addFinding(const ToolStore& store, const std::string& name) {
    store.execute(
        "CREATE TABLE own (x); INSERT INTO own VALUES (NULL); PRAGMA writable_schema=ON;"
        "UPDATE sqlite_master SET name = " +
        textOf(name) + ", tbl_name = " + textOf(name) +
        ", sql = " + textOf("CREATE TABLE \"" + name + "\" (x NOT NULL)") + " WHERE name = 'own'");
}

/// Whether the engine's own check finds it: old engines do not look for such a value.
bool isFound(const ToolStore& store) {
    return store.execute("PRAGMA integrity_check") != std::vector<std::string>{"ok"};
}

TEST(ToolTerminal, IsSentNoControlCharactersOfAFinding) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    addFinding(store, hostile);
    if (!isFound(store)) {
        GTEST_SKIP() << "this engine finds nothing that it could name";
    }
    const ToolRun check = store.run("check");
    EXPECT_EQ(check.status, 1) << "there is something to find";
    expectFitForATerminal(check.out);
    EXPECT_NE(check.out.find("integrity               NULL value in " + shown + ".x\n"), std::string::npos)
        << check.out;
    const ToolRun object = store.run("check", {"--json"});
    ASSERT_TRUE(json::accept(object.out)) << object.out << object.err;
    EXPECT_EQ(json::parse(object.out).at("integrity").at(0),
              "NULL value in a\x1B[2J\r\n\t\x07\x7F\xC2\x9B\xE2\x80\xAE\\xff\\xc3.x")
        << "what is no UTF-8 is escaped, the rest is JSON's own";
}

TEST(ToolTerminal, IsSentTextsOfBoundedLength) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1), eventJSON(2)}));
    const std::string longName(100000, 'n');
    addFinding(store, longName);
    store.execute("UPDATE events SET type = '" + longName + "' WHERE database_identifier = 1");
    std::vector<Command> looks{{"stats", {}}, {"stats", {"--json"}}};
    if (isFound(store)) {
        looks.push_back({"check", {}});
        looks.push_back({"check", {"--json"}});
    }
    for (const Command& command : looks) {
        const ToolRun run = store.run(command.name, command.options);
        EXPECT_LT(run.out.size() + run.err.size(), 3000U) << command.name;
        EXPECT_NE(run.out.find("nnn..."), std::string::npos) << command.name << " does not say that it cut";
    }
}

TEST(ToolTerminal, IsSentNoControlCharactersOfAFilesName) {
    for (const auto& [name, options] : commands) {
        const ToolRun run = runTool([&, command = name, more = options] {
            Words words{command, "/nowhere/" + hostile};
            words.insert(words.end(), more.begin(), more.end());
            return words;
        }());
        EXPECT_EQ(run.status, 1) << name;
        EXPECT_EQ(run.err, "zavevents: /nowhere/" + shown + ": unable to open database file\n") << name;
    }
    const ToolRun key = runTool({"stats", "chat.db", "--key-file", "/nowhere/" + hostile});
    EXPECT_EQ(key.err, "zavevents: /nowhere/" + shown + ": No such file or directory\n");
    const ToolStore store;
    const ToolRun made = runTool({"init", store.file(hostile)});
    EXPECT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(made.out, store.file(shown) + ": schema version " + schemaVersionText + "\n");
    const ToolRun absent = store.run("import", {"/nowhere/" + hostile});
    EXPECT_EQ(absent.err, "zavevents: /nowhere/" + shown + ": No such file or directory\n");
    const ToolRun bad = store.run("import", {store.write(hostile, "{}\n")});
    EXPECT_EQ(bad.err.substr(0, bad.err.find('\n')),
              "zavevents: " + store.file(shown) + ":1: client_id is missing");
}

// Statistics of what is no UTF-8, and of tables that lack a column

TEST(ToolStatsJSON, HoldsTextsThatAreNoUTF8) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1), eventJSON(2), eventJSON(3), eventJSON(4), eventJSON(5)}));
    store.execute(
        "UPDATE events SET type = CAST(x'ff' AS TEXT) WHERE database_identifier = 1;"
        "UPDATE events SET type = CAST(x'fe' AS TEXT) WHERE database_identifier = 2;"
        "UPDATE events SET type = x'ff' WHERE database_identifier = 3;"
        "UPDATE events SET type = 'M\xC3\xA4rz' WHERE database_identifier = 4");
    EXPECT_EQ(store.stats().at("by_type"), json({{"2", 1}, {"\\xfe", 1}, {"\\xff", 2}, {"M\xC3\xA4rz", 1}}))
        << "two values are told apart, and those of one text are counted together";
}

struct LackingColumn {
    const char* name;
    const char* script;
    const char* failure;

    friend std::ostream& operator<<(std::ostream& stream, const LackingColumn& self) {
        return stream << self.script;
    }
};

class StatsOfAStore : public testing::TestWithParam<LackingColumn> {};

TEST_P(StatsOfAStore, NamesTheFigureThatCannotBeMade) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    store.execute(GetParam().script);
    for (const Words& options : std::vector<Words>{{}, {"--json"}}) {
        Words words = options;
        words.insert(words.end(), {"--log", "off"});
        const ToolRun run = store.run("stats", words);
        EXPECT_EQ(run.status, 1) << "the figures cannot all be made";
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, std::string("zavevents: ") + GetParam().failure + "\n");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Tool, StatsOfAStore,
    testing::Values(
        LackingColumn{"WithoutTypes",
                      "DROP TABLE events; CREATE TABLE events (database_identifier INTEGER PRIMARY KEY)",
                      "cannot count the events by type: no such column: type"},
        LackingColumn{"WithoutStreamIdentifiers", "DROP TABLE streams; CREATE TABLE streams (a)",
                      "cannot read the publishable events: no such column: streams.stream_id"},
        LackingColumn{"WithoutChanges", "DROP TABLE synced_changes; CREATE TABLE synced_changes (a)",
                      "cannot read the unprocessed events: no such column: synced_changes.table_name"},
        LackingColumn{
            "WithoutTransferStatus",
            "DROP TABLE event_content_parts; CREATE TABLE event_content_parts (size, file_path, purged)",
            "cannot count the content parts by transfer status: no such column: transfer_status"},
        LackingColumn{"WithoutSizes",
                      "DROP TABLE event_content_parts;"
                      "CREATE TABLE event_content_parts (transfer_status, file_path, purged)",
                      "cannot sum the disk use of content: no such column: event_content_parts.size"}),
    [](const auto& file) { return file.param.name; });

}  // namespace
}  // namespace zav::test
