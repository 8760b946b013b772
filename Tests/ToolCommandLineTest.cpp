#include <ZAVEventRepository/ZAVVersion.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "Support/SchemaVersion.h"
#include "Support/Tool.h"

namespace zav::test {
namespace {

using nlohmann::json;

const std::string appID = "0f0e0d0c-0b0a-0908-0706-050403020100";

/// The commands that read a database, each as the words after the database's path.
struct Command {
    std::string name;
    std::vector<std::string> options;
};
const std::vector<Command> readingCommands = {{"events", {}}, {"stats", {}}, {"stats", {"--json"}}};

/// Expects that a command fails with a message, and says nothing but that.
void expectFailure(const ToolRun& run, const std::string& message) {
    EXPECT_EQ(run.status, 1) << "an operation that fails is no wrong command line";
    EXPECT_EQ(run.out, "") << "an operation that fails has no result";
    EXPECT_EQ(run.err, "zavevents: " + message + "\n");
}

/// Expects that every command fails with a message that begins with the database's path, and that the file
/// stays as it is.
void expectEveryCommandToFail(const ToolStore& store, const std::string& whenReading,
                              const std::string& whenWriting) {
    const std::string bytes = bytesOfFile(store.path());
    for (const Command& command : readingCommands) {
        SCOPED_TRACE(command.name);
        expectFailure(store.run(command.name, command.options), store.path() + ": " + whenReading);
    }
    SCOPED_TRACE("init and import");
    expectFailure(store.run("init"), store.path() + ": " + whenWriting);
    expectFailure(store.import(lines({eventJSON(1)})), store.path() + ": " + whenWriting);
    EXPECT_TRUE(bytesOfFile(store.path()) == bytes) << "a file that is refused is left as it was found";
}

/// Events whose texts take about `bytes` together.
std::string eventsOfSize(std::size_t bytes) {
    static constexpr std::size_t each = 4000;
    std::vector<json> events;
    for (std::size_t size = 0; size < bytes; size += each) {
        events.push_back(eventJSON(
            1,
            {{"seq", 1000 + events.size()}, {"type", 4}, {"content", {{{"text", std::string(each, 'x')}}}}}));
    }
    return lines(events);
}

void expectIntact(const ToolStore& store) {
    EXPECT_EQ(store.execute("PRAGMA integrity_check"), std::vector<std::string>{"ok"});
}

TEST(ToolCommandLine, VersionIsThatOfTheLibraryAndOfItsEngine) {
    const ToolRun run = runTool({"--version"});
    EXPECT_EQ(run.status, 0) << "to ask for the version is right";
    const std::string beginning =
        "zavevents " + std::string(ZAVLibraryVersion()) + "\nSQLite " + sqlite3_libversion() + ", ";
    EXPECT_EQ(run.out.substr(0, beginning.size()), beginning);
    EXPECT_NE(run.out.find(std::string("\nsource ") + sqlite3_sourceid() +
                           "\nheaders " SQLITE_VERSION "\noptions "),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find(" THREADSAFE="), std::string::npos) << run.out;
    EXPECT_EQ(run.out.back(), '\n');
    EXPECT_EQ(run.err, "") << "a version that was asked for is a result";
}

TEST(ToolCommandLine, HelpOfTheToolNamesItsCommands) {
    for (const char* flag : {"--help", "-h"}) {
        const ToolRun run = runTool({flag});
        EXPECT_EQ(run.status, 0) << "to ask for help is right";
        EXPECT_EQ(run.err, "") << "help that was asked for is a result";
        for (const char* word : {"Usage: zavevents", "--log", "init", "import", "events", "stats"}) {
            EXPECT_NE(run.out.find(word), std::string::npos) << "help tells of " << word;
        }
    }
}

TEST(ToolCommandLine, HelpOfACommandNamesItsOptions) {
    const std::vector<Command> commands = {
        {"init", {"DATABASE"}},
        {"import",
         {"DATABASE", "FILE", "--batch", "--record-changes", "--skip-bad-lines", "--app-id", "--user"}},
        {"events",
         {"DATABASE", "--all", "--publishable", "--unpublishable", "--unprocessed", "--posted", "--revived",
          "--id", "--seq", "--stream"}},
        {"stats", {"DATABASE", "--json"}},
        {"checkpoint", {"DATABASE", "--passive", "--truncate", "--json"}},
        {"compact", {"DATABASE", "--json"}},
        {"disk-usage", {"DATABASE", "--tables", "--json"}},
    };
    for (const auto& [name, words] : commands) {
        const ToolRun run = runTool({name, "--help"});
        EXPECT_EQ(run.status, 0) << name;
        EXPECT_EQ(run.err, "") << name;
        EXPECT_NE(run.out.find("Usage: zavevents " + name), std::string::npos) << run.out;
        for (const std::string& word : words) {
            EXPECT_NE(run.out.find(word), std::string::npos) << "help of " << name << " tells of " << word;
        }
    }
}

TEST(ToolCommandLine, HelpSpeaksOfChoicesAsTheyAreWritten) {
    const std::string help = runTool({"--help"}).out;
    EXPECT_EQ(help.find("->"), std::string::npos)
        << "what a choice stands for inside is nobody's concern: " << help;
}

TEST(ToolCommandLine, AWrongCommandLineIsToldFromAFailure) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    const std::string database = store.path();
    const std::string file = store.importedFile();
    const std::vector<std::vector<std::string>> wrong = {
        {},
        {""},
        {"bring"},
        {"--bring"},
        {"init"},
        {"import"},
        {"events"},
        {"stats"},
        {"checkpoint"},
        {"compact"},
        {"compact", database, "--truncate"},
        {"disk-usage"},
        {"disk-usage", database, "--tables", "1"},
        {"checkpoint", database, "--passive", "--truncate"},
        {"init", database, "more"},
        {"init", database, "--json"},
        {"import", database, file, "more"},
        {"import", database, file, "--batch", "0"},
        {"import", database, file, "--batch", "1000001"},
        {"import", database, file, "--batch", "-1"},
        {"import", database, file, "--batch", "ten"},
        {"import", database, file, "--batch", "1.5"},
        {"import", database, file, "--batch"},
        {"import", database, file, "--app-id", "7", "--user", "ada"},
        {"import", database, file, "--app-id", appID},
        {"import", database, file, "--record-changes=maybe"},
        {"events", database, "more"},
        {"events", database, "--all", "--posted"},
        {"events", database, "--publishable", "--unpublishable"},
        {"events", database, "--id", "1", "--revived", "1"},
        {"events", database, "--id", "1", "--seq", "1", "--stream", uuidText(1)},
        {"events", database, "--id"},
        {"events", database, "--id", "one"},
        {"events", database, "--id", "9223372036854775808"},
        {"events", database, "--revived", "one"},
        {"events", database, "--seq", "1"},
        {"events", database, "--stream", uuidText(1)},
        {"events", database, "--seq", "1", "--stream", "7"},
        {"events", database, "--seq", "2147483648", "--stream", uuidText(1)},
        {"events", database, "--seq", "one", "--stream", uuidText(1)},
        {"events", database, "--all", "--seq", "1", "--stream", uuidText(1)},
        {"events", database, "--json"},
        {"stats", database, "more"},
        {"stats", database, "--all"},
        {"--log", "stats", database},
        {"--log", "loud", "stats", database},
        {"stats", database, "--log", "loud"},
        {"stats", database, "--log"},
        {"init", database, "stats", database},
    };
    for (const auto& arguments : wrong) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const ToolRun run = runTool(arguments);
        EXPECT_EQ(run.status, 2) << "this command line is wrong";
        EXPECT_EQ(run.out, "") << "there is no result";
        EXPECT_NE(run.err, "") << "the user is told what is wrong";
    }
}

TEST(ToolCommandLine, AWrongCommandLineMakesNoDatabase) {
    const ToolStore store;
    EXPECT_EQ(store.run("init", {"more"}).status, 2);
    EXPECT_EQ(store.run("import", {"-", "--batch", "0"}).status, 2);
    EXPECT_EQ(store.run("import", {"-", "--app-id", appID}).status, 2);
    EXPECT_FALSE(std::filesystem::exists(store.path()));
}

TEST(ToolCommandLine, AnUnnamedDatabaseIsAWrongCommandLine) {
    for (const char* command : {"init", "import", "events", "stats"}) {
        EXPECT_EQ(runTool({command, ""}).status, 2)
            << command << ": what is stored there would be lost at once";
    }
}

TEST(ToolLog, VerboseLinesGoToStandardErrorOnRequest) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    const std::string result = store.events();
    const std::string expected = "-[ZAVEventRepository allEvents:]: fetching publishable events\n";
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"--log", "verbose", "events", store.path()},
             {"events", store.path(), "--log", "verbose"},
             {"events", "--log=verbose", store.path()},
         }) {
        const ToolRun run = runTool(arguments);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, result) << "what is logged is no result";
        EXPECT_NE(run.err.find(expected), std::string::npos) << run.err;
    }
}

TEST(ToolLog, NothingButErrorsIsLoggedByDefault) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    for (const char* choice : {"error", "off"}) {
        EXPECT_EQ(store.run("events", {"--log", choice}).err, "") << choice;
    }
    EXPECT_EQ(store.run("events").err, "");
}

TEST(ToolLog, ErrorsOfTheLibraryAreLoggedUnlessSwitchedOff) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    store.execute("DROP TABLE streams; CREATE TABLE streams (database_identifier)");
    const std::string message = "zavevents: cannot read the events: no such column: streams.stream_id\n";
    const std::string logged = "-[ZAVEventRepository allEvents:]: failed to fetch publishable events with ";
    for (const std::vector<std::string>& options :
         std::vector<std::vector<std::string>>{{}, {"--log", "error"}}) {
        const ToolRun run = store.run("events", options);
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.err.find(logged), std::string::npos) << run.err;
        EXPECT_EQ(run.err.find("fetching"), std::string::npos) << "verbose lines are not errors: " << run.err;
        EXPECT_TRUE(run.err.ends_with(message)) << run.err;
    }
    const ToolRun quiet = store.run("events", {"--log", "off"});
    EXPECT_EQ(quiet.status, 1);
    EXPECT_EQ(quiet.err, message) << "the tool itself still says why it failed";
}

TEST(ToolLog, TheChoicesHaveNoOtherNames) {
    const ToolStore store;
    EXPECT_EQ(store.run("init").status, 0);
    for (const char* choice : {"0", "1", "2", "5", "warning", ""}) {
        EXPECT_EQ(store.run("events", {"--log", choice}).status, 2) << "'" << choice << "' is no choice";
    }
}

TEST(ToolTrace, PrintsEachStatementWithItsTimeAndRowsToStandardError) {
    const ToolStore store;
    ASSERT_EQ(store.import(lines({eventJSON(1)})).status, 0);
    const ToolRun quiet = store.run("events");
    const ToolRun traced = store.run("events", {"--trace"});
    EXPECT_EQ(traced.status, 0);
    EXPECT_EQ(traced.out, quiet.out) << "what is traced is no result";
    EXPECT_EQ(quiet.err, "") << "nobody asked for a trace";
    EXPECT_TRUE(std::regex_search(traced.err, std::regex("(^|\\n) +[0-9]+\\.[0-9]{3} ms +1 rows  SELECT ")))
        << "no statement was traced that read one row:\n"
        << traced.err;
}

TEST(ToolInit, ANewDatabaseHasTheSchema) {
    const ToolStore store;
    const ToolRun run = store.run("init");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, store.path() + ": schema version " + schemaVersionText + "\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(store.execute("PRAGMA user_version"), std::vector<std::string>{schemaVersionText});
    EXPECT_EQ(store.events(), "");
}

TEST(ToolInit, AnInitializedDatabaseStaysAsItIs) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    const std::string bytes = bytesOfFile(store.path());
    const ToolRun run = store.run("init");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, store.path() + ": schema version " + schemaVersionText + "\n");
    EXPECT_TRUE(bytesOfFile(store.path()) == bytes) << "there was nothing to bring up to date";
}

TEST(ToolInit, AnEmptyDatabaseGetsTheSchema) {
    const ToolStore file;
    file.write("chat.db", "");
    EXPECT_EQ(file.run("init").status, 0) << "a file of no bytes is an empty database";
    EXPECT_EQ(file.events(), "");

    const ToolStore vacuumed;
    vacuumed.execute("CREATE TABLE t (x); DROP TABLE t");
    EXPECT_EQ(vacuumed.run("init").status, 0) << "a database without tables is an empty one";
    EXPECT_EQ(vacuumed.events(), "");
}

TEST(ToolInit, ADatabaseFromTheFutureIsRefusedByEveryCommandAndLeftAsItIs) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    for (const std::string& version : {std::to_string(schemaVersion + 1), std::string("2147483647")}) {
        SCOPED_TRACE(version);
        store.execute("PRAGMA user_version = " + version);
        const std::string message = "the database has schema version " + version +
                                    ", but this version of the library knows only versions up to " +
                                    schemaVersionText;
        expectEveryCommandToFail(store, message, message);
    }
}

TEST(ToolFailure, AMissingDatabaseIsNotMadeByReadingIt) {
    const ToolStore store;
    for (const Command& command : readingCommands) {
        SCOPED_TRACE(command.name);
        expectFailure(store.run(command.name, command.options),
                      store.path() + ": unable to open database file");
    }
    EXPECT_FALSE(std::filesystem::exists(store.path()));
}

TEST(ToolFailure, AFileThatIsNoDatabaseIsRefusedAndLeftAsItIs) {
    const ToolStore store;
    store.write("chat.db", eventsOfSize(20000));
    const std::string inTheEnginesWords = sqlite3_errstr(SQLITE_NOTADB);
    expectEveryCommandToFail(store, inTheEnginesWords, inTheEnginesWords);
}

TEST(ToolFailure, ADatabaseOfSomebodyElseIsRefusedAndLeftAsItIs) {
    const ToolStore store;
    store.execute("CREATE TABLE notes (text TEXT); INSERT INTO notes VALUES ('mine')");
    const std::string reason = "the database has tables, but no schema version of the event store";
    expectEveryCommandToFail(store, reason, reason);
    EXPECT_EQ(store.execute("SELECT text FROM notes"), std::vector<std::string>{"mine"});
}

TEST(ToolFailure, AnEmptyDatabaseIsNoEventStoreUntilItIsInitialized) {
    const ToolStore store;
    store.write("chat.db", "");
    for (const Command& command : readingCommands) {
        SCOPED_TRACE(command.name);
        expectFailure(store.run(command.name, command.options),
                      store.path() +
                          ": the database has no schema of the event store yet; 'zavevents init' brings it "
                          "up to date");
    }
    EXPECT_EQ(bytesOfFile(store.path()), "");
}

TEST(ToolFailure, ADamagedDatabaseIsReportedWithTheEnginesError) {
    const ToolStore store;
    store.importWell(eventsOfSize(100000));
    std::string bytes = bytesOfFile(store.path());
    std::fill(bytes.begin() + 4096, bytes.end(), '\x55');
    store.write("chat.db", bytes);
    for (const char* command : {"events", "stats"}) {
        const ToolRun run = store.run(command, {"--log", "off"});
        EXPECT_EQ(run.status, 1) << command;
        EXPECT_EQ(run.out, "") << command;
        EXPECT_NE(run.err.find("database disk image is malformed"), std::string::npos) << run.err;
    }
    EXPECT_EQ(store.import(lines({eventJSON(1)}), {"--log", "off"}).status, 1);
}

TEST(ToolFailure, ADirectoryIsNoDatabase) {
    const ToolStore store;
    const std::string directory = store.file("");
    for (const char* command : {"init", "import", "events", "stats"}) {
        expectFailure(runTool({command, directory}), directory + ": unable to open database file");
    }
}

TEST(ToolFailure, ADatabaseCannotBeMadeWhereNothingCanBeWritten) {
    for (const std::string path : {"/proc/chat.db", "/nowhere/at/all/chat.db"}) {
        expectFailure(runTool({"init", path}), path + ": unable to open database file");
        expectFailure(runTool({"import", path}), path + ": unable to open database file");
    }
}

TEST(ToolFailure, ADirectoryThatTheUserMayNotWriteInIsReported) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only a privileged user can become another one";
    }
    static constexpr uid_t nobody = 65534;
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    std::filesystem::permissions(store.file(""), std::filesystem::perms(0755));
    ToolCircumstances unprivileged;
    unprivileged.user = nobody;
    if (runTool({"--help"}, unprivileged).status == ToolRun::notStarted) {
        GTEST_SKIP() << "the tool lies where another user cannot start it";
    }
    const std::string elsewhere = store.file("other.db");
    expectFailure(runTool({"init", elsewhere}, unprivileged), elsewhere + ": unable to open database file");
    const ToolRun imported = store.import(lines({eventJSON(2)}), {}, unprivileged);
    EXPECT_EQ(imported.status, 1) << "a database of another user cannot be written";
    EXPECT_EQ(imported.err.find("zavevents: "), 0U) << imported.err;
    EXPECT_EQ(fieldOfLines(store.events(), "client_id"), std::vector<json>{uuidText(1)});
    expectIntact(store);
}

TEST(ToolFailure, ADatabaseThatIsBusyIsReported) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(store.path().c_str(), &other), SQLITE_OK);
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> closing(other, sqlite3_close);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_EQ(fieldOfLines(store.events(), "client_id"), std::vector<json>{uuidText(1)})
        << "reading does not wait for who writes";
    const ToolRun imported = store.import(lines({eventJSON(2)}));
    EXPECT_EQ(imported.status, 1) << "the other one keeps the lock for too long";
    EXPECT_NE(imported.err.find("database is locked"), std::string::npos) << imported.err;
}

TEST(ToolFailure, StandardOutputThatCannotBeWrittenIsAFailure) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    ToolCircumstances full;
    full.outputPath = "/dev/full";
    for (const Command& command : std::vector<Command>{{"events", {}},
                                                       {"events", {"--id", "1"}},
                                                       {"stats", {}},
                                                       {"stats", {"--json"}},
                                                       {"init", {}},
                                                       {"import", {store.importedFile()}}}) {
        SCOPED_TRACE(command.name + testing::PrintToString(command.options));
        const ToolRun run = store.run(command.name, command.options, full);
        EXPECT_EQ(run.status, 1) << "a result that nobody gets is a failure";
        EXPECT_EQ(run.err, "zavevents: standard output: No space left on device\n");
    }
}

TEST(ToolFailure, HelpThatCannotBeWrittenIsAFailure) {
    ToolCircumstances full;
    full.outputPath = "/dev/full";
    EXPECT_EQ(runTool({"--help"}, full).status, 1);
    EXPECT_EQ(runTool({"events", "--help"}, full).status, 1);
}

/// An import of `eventsOfSize` in batches of ten that had no room for all has stored the first of them.
void expectFirstBatchesOfTen(const ToolStore& store, const ToolRun& imported) {
    EXPECT_EQ(imported.status, 1) << "the events do not fit";
    const auto kept = fieldOfLines(store.events(), "seq");
    ASSERT_FALSE(kept.empty()) << "the first batches fit";
    EXPECT_EQ(kept.size() % 10, 0U) << "a batch is stored whole or not at all";
    EXPECT_EQ(kept.back(), 999 + kept.size()) << "they are the first ones";
    EXPECT_NE(imported.err.find("\n" + std::to_string(kept.size()) +
                                " events of the batches before are stored, none of this batch\n"),
              std::string::npos)
        << imported.err;
    expectIntact(store);
}

TEST(ToolFailure, AnImportThatTheFileSizeLimitEndsLeavesWhatWasStored) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1, {{"seq", 1}}), eventJSON(2)}));
    const std::string before = store.events();
    ToolCircumstances limited;
    limited.fileSizeLimit = 400000;
    const ToolRun imported =
        store.import(eventsOfSize(4000000), {"--log", "off", "--batch", "1000000"}, limited);
    EXPECT_EQ(imported.status, 1) << "the events do not fit";
    EXPECT_EQ(imported.out, "");
    EXPECT_NE(imported.err.find("disk I/O error"), std::string::npos) << imported.err;
    EXPECT_NE(imported.err.find("\n0 events of the batches before are stored, none of this batch\n"),
              std::string::npos)
        << imported.err;
    EXPECT_EQ(store.events(), before) << "what was stored before is still there, and nothing else";
    expectIntact(store);
}

TEST(ToolFailure, AnImportThatTheFileSizeLimitEndsKeepsTheBatchesBefore) {
    const ToolStore store;
    ToolCircumstances limited;
    limited.fileSizeLimit = 400000;
    const ToolRun imported = store.import(eventsOfSize(4000000), {"--log", "off", "--batch", "10"}, limited);
    expectFirstBatchesOfTen(store, imported);
}

/// Runs `body` on a store in a small file system of its own; skips the test when that cannot be had. The
/// mount is the thread's own: nobody else sees it, and it goes with the thread.
template <class Body>
void onSmallFileSystem(const char* size, Body body) {
    const TemporaryDirectory mountPoint;
    const std::string directory = mountPoint.path().string();
    bool mounted = false;
    std::thread([&] {
        mounted = ::unshare(CLONE_NEWNS) == 0 &&
                  ::mount("none", "/", "", MS_REC | MS_PRIVATE, nullptr) == 0 &&
                  ::mount("tmpfs", directory.c_str(), "tmpfs", 0, size) == 0;
        if (mounted) {
            body(ToolStore(directory));
        }
    }).join();
    if (!mounted) {
        GTEST_SKIP() << "a file system can be mounted by a privileged user only";
    }
}

TEST(ToolFailure, AnImportThatFillsTheDiskLeavesWhatWasStored) {
    onSmallFileSystem("size=2m", [](const ToolStore& store) {
        store.importWell(lines({eventJSON(1, {{"seq", 1}}), eventJSON(2)}));
        const std::string before = store.events();
        const ToolRun imported = store.run("import", {"-", "--log", "off", "--batch", "1000000"},
                                           {.input = eventsOfSize(8000000)});
        EXPECT_EQ(imported.status, 1) << "the events do not fit";
        EXPECT_NE(imported.err.find("database or disk is full"), std::string::npos) << imported.err;
        EXPECT_EQ(store.events(), before) << "what was stored before is still there, and nothing else";
        expectIntact(store);
        store.importWell(lines({eventJSON(3)}));
        EXPECT_EQ(parsedLines(store.events()).size(), 3U) << "what fits can be stored again";
    });
}

TEST(ToolFailure, AnImportThatFillsTheDiskKeepsTheBatchesBefore) {
    onSmallFileSystem("size=2m", [](const ToolStore& store) {
        const ToolRun imported =
            store.run("import", {"-", "--log", "off", "--batch", "10"}, {.input = eventsOfSize(8000000)});
        expectFirstBatchesOfTen(store, imported);
    });
}

TEST(ToolFailure, ADatabaseCannotBeMadeOnAFullDisk) {
    onSmallFileSystem("size=64k", [](const ToolStore& store) {
        store.write("ballast", std::string(65536 - 8192, 'x'));
        const ToolRun run = store.run("init");
        EXPECT_EQ(run.status, 1) << "the schema does not fit";
        EXPECT_EQ(run.err.find("zavevents: " + store.path() + ": "), 0U) << run.err;
        std::filesystem::remove(store.file("ballast"));
    });
}

}  // namespace
}  // namespace zav::test
