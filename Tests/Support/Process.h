#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace zav::test {

/// A program under way. It is killed when it is still running at the end.
class Process {
public:
    /// @param words the program's path and its arguments. Its standard output is read from here.
    explicit Process(std::vector<std::string> words);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// The next line that it writes; none when it has ended and all lines were read.
    std::optional<std::string> line();

    /// Reads no more: what it writes from now on goes nowhere.
    void stopReading();

    /// Asks it to end by a signal.
    void signal(int number) const;

    /// Waits for its end; answers the signal that ended it, or 0 when it ended by itself.
    int wait();

    /// Kills it, unless it has ended; answers as `wait`.
    int kill();

    /// The exit status of one that ended by itself.
    [[nodiscard]] int exitStatus() const;

private:
    pid_t id_ = -1;
    int status_ = 0;
    int output_ = -1;
    std::string unread_;
};

}  // namespace zav::test
