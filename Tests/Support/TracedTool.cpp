#include "Support/TracedTool.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

#include "Support/Tool.h"

namespace zav::test {

TracedTool::TracedTool(const std::vector<std::string>& arguments, const std::string& output) {
    std::vector<std::string> words{ZAV_TOOL_PATH, "--trace"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    // Each line is a packet, and there is room for one.
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_DIRECT | O_CLOEXEC) != 0 || ::fcntl(ends[1], F_SETPIPE_SZ, 4096) < 0) {
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    }
    process_ = ::fork();
    if (process_ == 0) {
        const int printed = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        ::dup2(printed, STDOUT_FILENO);
        ::dup2(ends[1], STDERR_FILENO);
        ::execv(argv.front(), argv.data());
        ::_exit(ToolRun::notStarted);
    }
    ::close(ends[1]);
    statements_ = ends[0];
}

TracedTool::~TracedTool() {
    ::close(statements_);
    if (process_ > 0) {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
}

bool TracedTool::nextStatement() const {
    std::array<char, 4096> line{};
    return ::read(statements_, line.data(), line.size()) > 0;
}

bool TracedTool::stop() const {
    ::kill(process_, SIGSTOP);
    siginfo_t change{};
    ::waitid(P_PID, static_cast<id_t>(process_), &change, WSTOPPED | WEXITED | WNOWAIT);
    return change.si_code == CLD_STOPPED;
}

void TracedTool::goOn() const {
    ::kill(process_, SIGCONT);
}

int TracedTool::exitStatus() {
    while (nextStatement()) {
    }
    int status = 0;
    ::waitpid(process_, &status, 0);
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace zav::test
