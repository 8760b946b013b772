#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Support/Sanitizers.h"
#include "Support/Tool.h"

namespace zav::test {
namespace {

using nlohmann::json;
using std::chrono_literals::operator""s;
using std::chrono_literals::operator""ms;

/// A tool under way that reads what it is fed. Its errors go to a pipe or to a terminal.
class RunningTool {
public:
    enum class Errors { toPipe, toTerminal };

    RunningTool(std::vector<std::string> words, Errors errors) {
        int input[2];  // sockets: writing to a tool that has ended is an error then, and no signal
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input) != 0) {
            throw std::runtime_error("no socket pair");
        }
        input_ = input[1];
        const int theirErrors = errors == Errors::toPipe ? openPipe() : openTerminal();
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions, theirErrors, STDERR_FILENO);
        ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        const int status =
            ::posix_spawn(&id_, words.front().c_str(), &actions, nullptr, arguments.data(), environ);
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(input[0]);
        ::close(theirErrors);
        if (status != 0) {
            throw std::runtime_error("cannot start " + words.front());
        }
    }
    RunningTool(const RunningTool&) = delete;
    RunningTool& operator=(const RunningTool&) = delete;
    ~RunningTool() {
        if (id_ > 0) {
            ::kill(id_, SIGKILL);
            wait();
        }
        endInput();
        ::close(errors_);
    }

    void feed(const std::string& text) const {
        for (std::size_t done = 0; done < text.size();) {
            const ssize_t count = ::send(input_, text.data() + done, text.size() - done, MSG_NOSIGNAL);
            if (count < 0) {
                throw std::runtime_error("the tool does not read on");
            }
            done += static_cast<std::size_t>(count);
        }
    }
    void endInput() {
        if (input_ >= 0) {
            ::close(std::exchange(input_, -1));
        }
    }

    void signal(int number) const { ::kill(id_, number); }

    /// All that it says on standard error until its end.
    std::string errors() const {
        std::string text;
        char block[4096];
        for (ssize_t count = 0; (count = ::read(errors_, block, sizeof block)) > 0;) {
            text.append(block, static_cast<std::size_t>(count));
        }
        return text;
    }

    /// Waits for its end; the signal that ended it, or 0.
    int wait() {
        int status = 0;
        while (::waitpid(id_, &status, 0) < 0 && errno == EINTR) {
        }
        id_ = -1;
        exitStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }
    [[nodiscard]] int exitStatus() const { return exitStatus_; }

private:
    int openPipe() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        errors_ = ends[0];
        return ends[1];
    }
    int openTerminal() {
        errors_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (errors_ < 0 || ::grantpt(errors_) != 0 || ::unlockpt(errors_) != 0) {
            throw std::runtime_error("no terminal");
        }
        return ::open(::ptsname(errors_), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }

    pid_t id_ = -1;
    int input_ = -1;
    int errors_ = -1;
    int exitStatus_ = -1;
};

std::vector<std::string> wordsToImport(const ToolStore& store, const std::string& batch) {
    return {ZAV_TOOL_PATH, "import", store.path(), "-", "--batch", batch};
}

/// The same, begun by a shell that does something first.
std::vector<std::string> wordsToImportAfter(const std::string& command, const ToolStore& store,
                                            const std::string& batch) {
    std::vector<std::string> words = {"/bin/sh", "-c", command + "; exec \"$0\" \"$@\""};
    const auto import = wordsToImport(store, batch);
    words.insert(words.end(), import.begin(), import.end());
    return words;
}

std::string numberedLines(int from, int to) {
    std::vector<json> events;
    for (int number = from; number <= to; ++number) {
        events.push_back(eventJSON(1, {{"seq", number}}));
    }
    return lines(events);
}

std::string countOf(const ToolStore& store) {
    return store.execute("SELECT count(*) FROM events").at(0);
}

/// Waits until so many events are stored; bounded.
void waitUntilStored(const ToolStore& store, const std::string& count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!(store.run("check").status == 0 && countOf(store) == count)) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the tool stores what it is fed";
        std::this_thread::sleep_for(20ms);
    }
}

TEST(ToolImportEnd, ASignalSaysWhatIsStoredAndThatTheRestIsNot) {
    for (const auto& [signal, name] : std::vector<std::pair<int, std::string>>{
             {SIGINT, "SIGINT"}, {SIGTERM, "SIGTERM"}, {SIGHUP, "SIGHUP"}}) {
        SCOPED_TRACE(name);
        const ToolStore store;
        RunningTool tool(wordsToImport(store, "10"), RunningTool::Errors::toPipe);
        tool.feed(numberedLines(1, 25) + "{\"client_id\":");
        waitUntilStored(store, "20");
        tool.signal(signal);
        EXPECT_EQ(tool.errors(), "zavevents: standard input:25: stopped by " + name +
                                     "\n20 events of the batches before are stored, none of this batch\n");
        EXPECT_EQ(tool.wait(), signal) << "who started it sees that a signal ended it";
        EXPECT_EQ(countOf(store), "20");
        EXPECT_EQ(store.run("check").status, 0);
    }
}

TEST(ToolImportEnd, ASignalBetweenLinesThatAreThereStopsIt) {
    const ToolStore store;
    RunningTool tool(wordsToImport(store, "1"), RunningTool::Errors::toPipe);
    tool.feed(numberedLines(1, 1));
    waitUntilStored(store, "1");
    tool.feed(numberedLines(2, 300));
    tool.signal(SIGTERM);
    const std::string said = tool.errors();
    EXPECT_EQ(tool.wait(), SIGTERM);
    EXPECT_NE(
        said.find("\n" + countOf(store) + " events of the batches before are stored, none of this batch\n"),
        std::string::npos)
        << said << "while " << countOf(store) << " are stored";
}

TEST(ToolImportEnd, ASignalThatIsIgnoredStaysIgnored) {
    const ToolStore store;
    RunningTool tool(wordsToImportAfter("trap '' HUP", store, "1"), RunningTool::Errors::toPipe);
    tool.feed(numberedLines(1, 1));
    waitUntilStored(store, "1");
    tool.signal(SIGHUP);
    tool.feed(numberedLines(2, 2));
    tool.endInput();
    EXPECT_EQ(tool.errors(), "");
    EXPECT_EQ(tool.wait(), 0) << "no signal ends it";
    EXPECT_EQ(tool.exitStatus(), 0);
    EXPECT_EQ(countOf(store), "2");
}

TEST(ToolImportEnd, AFileSizeLimitIsAFailureThatSaysWhatIsStored) {
    const ToolStore store;
    EXPECT_EQ(store.run("init").status, 0);
    RunningTool tool(wordsToImportAfter("ulimit -f 800", store, "100"), RunningTool::Errors::toPipe);
    std::thread feeder([&] {
        try {
            tool.feed(numberedLines(1, 20000));
        } catch (const std::runtime_error&) {  // as it must be: the tool ends before its input
        }
        tool.endInput();
    });
    const std::string said = tool.errors();
    EXPECT_EQ(tool.wait(), 0) << "no signal ends it";
    feeder.join();
    EXPECT_EQ(tool.exitStatus(), 1) << "it says by itself that it failed";
    const std::string count = countOf(store);
    EXPECT_GE(std::stoi(count), 100) << "some batches fit";
    EXPECT_LT(std::stoi(count), 20000) << "not all fit";
    EXPECT_NE(said.find("\n" + count + " events of the batches before are stored, none of this batch\n"),
              std::string::npos)
        << said << "while " << count << " are stored";
}

TEST(ToolImportEnd, MemoryThatRunsOutIsAFailureThatSaysWhatIsStored) {
    if (isSanitized) {
        GTEST_SKIP() << "the address space that a sanitizer takes cannot be limited";
    }
    const ToolStore store;
    EXPECT_EQ(store.run("init").status, 0);
    RunningTool tool(wordsToImportAfter("ulimit -v 400000", store, "2"), RunningTool::Errors::toPipe);
    std::thread feeder([&] {
        try {
            tool.feed(numberedLines(1, 5) + "{\"creator_id\":\"");
            for (int megabyte = 0; megabyte < 400; ++megabyte) {
                tool.feed(std::string(std::size_t{1} << 20, 'x'));
            }
        } catch (const std::runtime_error&) {  // as it must be
        }
        tool.endInput();
    });
    const std::string said = tool.errors();
    EXPECT_EQ(tool.wait(), 0) << "no signal ends it";
    feeder.join();
    EXPECT_EQ(tool.exitStatus(), 1);
    EXPECT_NE(said.find("out of memory"), std::string::npos) << said;
    EXPECT_NE(said.find("\n4 events of the batches before are stored, none of this batch\n"),
              std::string::npos)
        << said;
    EXPECT_EQ(countOf(store), "4");
}

TEST(ToolImportEnd, ProgressOnATerminalIsErasedBeforeAMessage) {
    const ToolStore store;
    std::vector<std::string> words = wordsToImport(store, "1000");
    words.emplace_back("--skip-bad-lines");
    RunningTool tool(words, RunningTool::Errors::toTerminal);
    std::thread feeder([&] {
        tool.feed(numberedLines(1, 10004) + "x\n" + numberedLines(10006, 20010) + "{\n");
        tool.endInput();
    });
    const std::string shown = tool.errors();
    feeder.join();
    EXPECT_EQ(tool.wait(), 0);
    EXPECT_EQ(tool.exitStatus(), 0);
    const std::string erased = "\r\033[K";
    EXPECT_EQ(shown.find("10000 lines\r" + erased + "standard input:10005: is not JSON: "), 0U)
        << json(shown).dump();
    EXPECT_NE(shown.find("\n20000 lines\r" + erased + "standard input:20011: is not JSON: "),
              std::string::npos)
        << json(shown).dump();
}

TEST(ToolImportEnd, ProgressOnATerminalIsErasedAtTheEnd) {
    const ToolStore store;
    RunningTool tool(wordsToImport(store, "1000"), RunningTool::Errors::toTerminal);
    std::thread feeder([&] {
        tool.feed(numberedLines(1, 10004));
        tool.endInput();
    });
    const std::string shown = tool.errors();
    feeder.join();
    EXPECT_EQ(tool.wait(), 0);
    EXPECT_EQ(shown, "10000 lines\r\r\033[K");
}

}  // namespace
}  // namespace zav::test
