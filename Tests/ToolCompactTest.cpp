#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Support/Process.h"
#include "Support/Tool.h"

namespace zav::test {
namespace {

using nlohmann::json;

/// A store with an event, most of whose pages are free.
class RoomyStore : public ToolStore {
public:
    RoomyStore() {
        importWell(lines({eventJSON(1, {{"seq", 1}})}));
        execute(
            "CREATE TABLE filling (id INTEGER PRIMARY KEY, bytes);"
            "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1000) "
            "INSERT INTO filling SELECT i, randomblob(2000) FROM n;"
            "DELETE FROM filling WHERE id > 10");
        // Alone, the tool would find no log, and leave none.
        if (sqlite3_open(path().c_str(), &beside_) != SQLITE_OK ||
            sqlite3_exec(beside_, "SELECT * FROM events", nullptr, nullptr, nullptr) != SQLITE_OK) {
            throw std::runtime_error("cannot open the store beside the tool");
        }
    }
    ~RoomyStore() { sqlite3_close(beside_); }

    void runBeside(const std::string& script) const {
        EXPECT_EQ(sqlite3_exec(beside_, script.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(beside_);
    }

    /// To open and close the file here would give up the locks of the connection beside the tool.
    [[nodiscard]] std::size_t bytes() const { return std::filesystem::file_size(path()); }
    [[nodiscard]] std::size_t bytesOfLog() const { return std::filesystem::file_size(path() + "-wal"); }
    [[nodiscard]] std::string marker() const { return path() + "-compacting"; }
    [[nodiscard]] std::string freePages() const { return execute("PRAGMA freelist_count").front(); }

private:
    sqlite3* beside_ = nullptr;
};

TEST(ToolCompact, GivesTheSpaceBackAndSaysHowMuch) {
    const RoomyStore store;
    ASSERT_GT(store.bytes(), 1500000U);
    const ToolRun run = store.run("compact", {"--json"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "") << "progress is for terminals";
    const json report = json::parse(run.out);
    const std::size_t log = store.bytesOfLog();
    EXPECT_GT(report.at("bytes_before"), 1500000);
    EXPECT_EQ(report, json({{"bytes_before", report.at("bytes_before")},
                            {"bytes_after", store.bytes() + log},
                            {"log_bytes", log},
                            {"held_up", false}}));
    EXPECT_LT(store.bytes(), 300000U);
    EXPECT_LE(log, 32 + 24 + 4096U);
    EXPECT_FALSE(std::filesystem::exists(store.marker()));
    const ToolRun again = store.run("compact");
    EXPECT_EQ(again.status, 0) << again.err;
    const std::string size = std::to_string(store.bytes() + log);
    EXPECT_EQ(again.out, "the database took " + size + " bytes and takes " + size + ", " +
                             std::to_string(log) + " of them for the log\n");
    EXPECT_EQ(store.stats().at("events"), 1);
    EXPECT_EQ(store.run("check").status, 0);
}

TEST(ToolCompact, SaysThatTheLogCouldNotBeCutOff) {
    const RoomyStore store;
    store.runBeside("BEGIN; SELECT * FROM events");
    const ToolRun run = store.run("compact");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.out.ends_with(" of them for the log, which could not be cut off\n")) << run.out;
    store.runBeside("COMMIT");
    EXPECT_EQ(store.run("checkpoint", {"--truncate"}).status, 0);
    EXPECT_LT(store.bytes(), 300000U);
}

TEST(ToolCompact, FailsWithAReasonWhenAnotherConnectionWrites) {
    const RoomyStore store;
    store.runBeside("BEGIN IMMEDIATE");
    const ToolRun run = store.run("compact");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("cannot compact the database"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("while another connection writes"), std::string::npos) << run.err;
    store.runBeside("ROLLBACK");
}

TEST(ToolCompact, IsEndedByASignalAndLeavesTheStoreAsItWas) {
    const RoomyStore store;
    const std::string freePages = store.freePages();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE("signal " + std::to_string(signal));
        store.runBeside("BEGIN IMMEDIATE");  // which it waits for
        const auto begin = std::chrono::steady_clock::now();
        Process tool({ZAV_TOOL_PATH, "compact", store.path()});
        while (!std::filesystem::exists(store.marker()) &&
               std::chrono::steady_clock::now() - begin < std::chrono::seconds(60)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        tool.signal(signal);
        EXPECT_EQ(tool.wait(), signal) << "it ends as an unhandled signal ends a program";
        EXPECT_EQ(tool.line(), std::nullopt) << "there is no result";
        EXPECT_FALSE(std::filesystem::exists(store.marker()));
        store.runBeside("ROLLBACK");
        EXPECT_EQ(store.freePages(), freePages);
    }
    EXPECT_EQ(store.run("compact").status, 0);
}

/// What the tool writes to a terminal on its standard error.
std::string runAtTerminal(const std::vector<std::string>& arguments) {
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0 || ::grantpt(terminal) != 0 || ::unlockpt(terminal) != 0) {
        throw std::runtime_error("no terminal");
    }
    const std::string name = ::ptsname(terminal);
    const int other = ::open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    std::vector<std::string> words = {ZAV_TOOL_PATH};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, other, STDERR_FILENO);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t process = -1;
    const int status = ::posix_spawn(&process, pointers.front(), &actions, nullptr, pointers.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(other);
    std::string written;
    char block[4096];
    for (ssize_t count = 0; status == 0 && (count = ::read(terminal, block, sizeof block)) > 0;) {
        written.append(block, static_cast<std::size_t>(count));
    }
    ::close(terminal);
    if (status == 0) {
        ::waitpid(process, nullptr, 0);
    }
    return written;
}

TEST(ToolCompact, ShowsHowFarItIsOnATerminal) {
    const RoomyStore store;
    const std::string written = runAtTerminal({"compact", store.path()});
    EXPECT_NE(written.find("%\r"), std::string::npos) << written;
    EXPECT_NE(written.find("100%\r"), std::string::npos) << written;
    EXPECT_TRUE(written.ends_with("\r\033[K")) << "the line is taken away at the end: " << written;
}

}  // namespace
}  // namespace zav::test
