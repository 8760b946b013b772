#include "Support/Tool.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace zav::test {
namespace {

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {
        if (number_ < 0) {
            throw std::runtime_error(std::string("no descriptor: ") + std::strerror(errno));
        }
    }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor() { close(); }

    [[nodiscard]] int number() const { return number_; }
    void close() {
        if (number_ >= 0) {
            ::close(std::exchange(number_, -1));
        }
    }

private:
    int number_;
};

/// The two ends of a channel: the first for this process, the second for the tool.
struct Channel {
    Descriptor ours;
    Descriptor theirs;

    /// Sockets rather than pipes: writing to a tool that has ended is an error then, and no signal.
    static Channel make() {
        int ends[2] = {-1, -1};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            throw std::runtime_error(std::string("no socket pair: ") + std::strerror(errno));
        }
        return {Descriptor(ends[0]), Descriptor(ends[1])};
    }
};

std::vector<std::string> environmentWith(const std::vector<std::pair<std::string, std::string>>& changes) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        bool replaced = false;
        for (const auto& [name, value] : changes) {
            replaced = replaced || text.starts_with(name + "=");
        }
        if (!replaced) {
            result.emplace_back(text);
        }
    }
    for (const auto& [name, value] : changes) {
        result.push_back(name + "=" + value);
    }
    return result;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

bool limitTime(unsigned seconds) {
    const rlimit limit{seconds, seconds};
    ::alarm(5 * seconds);
    return ::setrlimit(RLIMIT_CPU, &limit) == 0;
}

namespace {

/// In the child, where only async-signal-safe calls are allowed.
bool enter(const ToolCircumstances& circumstances) {
    if (circumstances.fileSizeLimit) {
        const rlimit limit{*circumstances.fileSizeLimit, *circumstances.fileSizeLimit};
        if (std::signal(SIGXFSZ, SIG_IGN) == SIG_ERR || ::setrlimit(RLIMIT_FSIZE, &limit) != 0) {
            return false;
        }
    }
    if (!circumstances.directory.empty() && ::chdir(circumstances.directory.c_str()) != 0) {
        return false;
    }
    if (circumstances.memoryLimit) {
        const rlimit limit{*circumstances.memoryLimit, *circumstances.memoryLimit};
        if (::setrlimit(RLIMIT_AS, &limit) != 0) {
            return false;
        }
    }
    if (circumstances.secondsToLive != 0 && !limitTime(circumstances.secondsToLive)) {
        return false;
    }
    if (circumstances.user) {
        const uid_t user = *circumstances.user;
        return ::setgroups(0, nullptr) == 0 && ::setgid(user) == 0 && ::setuid(user) == 0;
    }
    return true;
}

/// Feeds the tool and collects what it says, both at once, so that neither side waits for the other.
void converse(Channel& input, std::string_view toWrite, Channel& output, std::string& out, Channel& errors,
              std::string& err) {
    pollfd states[] = {{input.ours.number(), POLLOUT, 0},
                       {output.ours.number(), POLLIN, 0},
                       {errors.ours.number(), POLLIN, 0}};
    std::string* const texts[] = {nullptr, &out, &err};
    if (toWrite.empty()) {
        ::shutdown(input.ours.number(), SHUT_WR);
        states[0].fd = -1;
    }
    while (states[1].fd >= 0 || states[2].fd >= 0) {
        if (::poll(states, 3, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw std::runtime_error(std::string("poll: ") + std::strerror(errno));
        }
        if (states[0].fd >= 0 && states[0].revents != 0) {
            const ssize_t count =
                ::send(states[0].fd, toWrite.data(), toWrite.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count > 0) {
                toWrite.remove_prefix(static_cast<std::size_t>(count));
            }
            if (toWrite.empty() || (count < 0 && errno != EAGAIN && errno != EINTR)) {
                ::shutdown(states[0].fd, SHUT_WR);
                states[0].fd = -1;
            }
        }
        for (const std::size_t index : {std::size_t{1}, std::size_t{2}}) {
            if (states[index].fd < 0 || states[index].revents == 0) {
                continue;
            }
            char block[65536];
            const ssize_t count = ::read(states[index].fd, block, sizeof block);
            if (count > 0) {
                texts[index]->append(block, static_cast<std::size_t>(count));
            } else if (count == 0 || errno != EINTR) {
                states[index].fd = -1;
            }
        }
    }
}

}  // namespace

ToolRun runTool(const std::vector<std::string>& arguments, const ToolCircumstances& circumstances) {
    static constexpr const char* program = ZAV_TOOL_PATH;
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> variables = environmentWith(circumstances.environment);
    const std::vector<char*> argv = pointersTo(words);
    const std::vector<char*> envp = pointersTo(variables);

    Channel input = Channel::make();
    Channel output = Channel::make();
    Channel errors = Channel::make();
    if (!circumstances.outputPath.empty()) {
        const Descriptor file(::open(circumstances.outputPath.c_str(), O_WRONLY | O_CLOEXEC));
        if (::dup3(file.number(), output.theirs.number(), O_CLOEXEC) < 0) {
            throw std::runtime_error(std::string("dup3: ") + std::strerror(errno));
        }
    }
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    }
    if (child == 0) {
        if (::dup2(input.theirs.number(), STDIN_FILENO) >= 0 &&
            ::dup2(output.theirs.number(), STDOUT_FILENO) >= 0 &&
            ::dup2(errors.theirs.number(), STDERR_FILENO) >= 0 && enter(circumstances)) {
            ::execve(program, argv.data(), envp.data());
        }
        ::_exit(ToolRun::notStarted);
    }
    input.theirs.close();
    output.theirs.close();
    errors.theirs.close();
    ToolRun run;
    converse(input, circumstances.input, output, run.out, errors, run.err);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return run;
}

std::string ToolStore::file(const std::string& name) const {
    return elsewhere_ ? *elsewhere_ + "/" + name : directory_.file(name);
}

std::string ToolStore::write(const std::string& name, const std::string& bytes) const {
    const std::string target = file(name);
    std::ofstream stream(target, std::ios::binary);
    if (!(stream << bytes).flush()) {
        throw std::runtime_error("cannot write " + target);
    }
    return target;
}

ToolRun ToolStore::run(const std::string& command, const std::vector<std::string>& options,
                       const ToolCircumstances& circumstances) const {
    std::vector<std::string> arguments{command, path()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return runTool(arguments, circumstances);
}

ToolRun ToolStore::import(const std::string& lines, const std::vector<std::string>& options,
                          const ToolCircumstances& circumstances) const {
    write("events.jsonl", lines);
    std::vector<std::string> words{importedFile()};
    words.insert(words.end(), options.begin(), options.end());
    return run("import", words, circumstances);
}

void ToolStore::importWell(const std::string& lines, const std::vector<std::string>& options) const {
    const ToolRun imported = import(lines, options);
    EXPECT_EQ(imported.status, 0) << "these lines can be imported";
    EXPECT_EQ(imported.err, "") << "there is nothing to complain about";
}

std::string ToolStore::events(const std::vector<std::string>& selection) const {
    ToolRun listed = run("events", selection);
    EXPECT_EQ(listed.status, 0) << "the events can be listed";
    EXPECT_EQ(listed.err, "") << "there is nothing to complain about";
    return std::move(listed.out);
}

nlohmann::json ToolStore::stats() const {
    const ToolRun counted = run("stats", {"--json"});
    EXPECT_EQ(counted.status, 0) << counted.err;
    return nlohmann::json::parse(counted.out);
}

std::vector<std::string> ToolStore::execute(const std::string& script) const {
    sqlite3* connection = nullptr;
    std::vector<std::string> rows;
    const auto addRow = [](void* target, int count, char** values, char**) {
        std::string row;
        for (int column = 0; column < count; ++column) {
            row += column == 0 ? "" : "|";
            row += values[column] == nullptr ? "NULL" : values[column];
        }
        static_cast<std::vector<std::string>*>(target)->push_back(std::move(row));
        return 0;
    };
    if (sqlite3_open(path().c_str(), &connection) != SQLITE_OK ||
        sqlite3_exec(connection, script.c_str(), addRow, &rows, nullptr) != SQLITE_OK) {
        ADD_FAILURE() << script << ": " << sqlite3_errmsg(connection);
    }
    sqlite3_close(connection);
    return rows;
}

std::string uuidText(int number) {
    static constexpr char digits[] = "0123456789abcdef";
    return std::string("11111111-1111-1111-1111-1111111111") + digits[number / 16 % 16] + digits[number % 16];
}

nlohmann::json eventJSON(int number, const nlohmann::json& changes) {
    nlohmann::json event = {{"stream_id", uuidText(0xAA)}, {"client_id", uuidText(number)}, {"type", 2}};
    event.merge_patch(changes);
    return event;
}

std::string lines(const std::vector<nlohmann::json>& values) {
    std::string text;
    for (const nlohmann::json& value : values) {
        text += value.dump() + "\n";
    }
    return text;
}

std::vector<nlohmann::json> parsedLines(const std::string& text) {
    std::vector<nlohmann::json> values;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        values.push_back(nlohmann::json::parse(line));
    }
    return values;
}

std::vector<nlohmann::json> fieldOfLines(const std::string& text, const std::string& field) {
    std::vector<nlohmann::json> values;
    for (const nlohmann::json& line : parsedLines(text)) {
        values.push_back(line.value(field, nlohmann::json()));
    }
    return values;
}

}  // namespace zav::test
