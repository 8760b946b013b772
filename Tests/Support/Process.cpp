#include "Support/Process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

namespace zav::test {

Process::Process(std::vector<std::string> words) {
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("no pipe: ") + std::strerror(errno));
    }
    output_ = ends[0];
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    const int status = ::posix_spawn(&id_, arguments.front(), &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    if (status != 0) {
        ::close(output_);
        throw std::runtime_error(words.front() + ": " + std::strerror(status));
    }
}

Process::~Process() {
    kill();
    ::close(output_);
}

std::optional<std::string> Process::line() {
    std::size_t end = 0;
    while ((end = unread_.find('\n')) == std::string::npos) {
        char block[4096];
        const ssize_t count = ::read(output_, block, sizeof block);
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return std::nullopt;
        }
        unread_.append(block, count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    std::string first = unread_.substr(0, end);
    unread_.erase(0, end + 1);
    return first;
}

void Process::stopReading() {
    ::close(output_);
    output_ = -1;
}

void Process::signal(int number) const {
    if (id_ > 0) {
        ::kill(id_, number);
    }
}

int Process::wait() {
    if (id_ > 0) {
        while (::waitpid(id_, &status_, 0) < 0 && errno == EINTR) {
        }
        id_ = -1;
    }
    return WIFSIGNALED(status_) ? WTERMSIG(status_) : 0;
}

int Process::kill() {
    signal(SIGKILL);
    return wait();
}

int Process::exitStatus() const {
    return WEXITSTATUS(status_);
}

}  // namespace zav::test
