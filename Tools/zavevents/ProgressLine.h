#pragma once

#include <cstdint>
#include <string>

namespace zavevents {

/// Standard error during a long command: messages, and on a terminal a line that shows how far it is.
class ProgressLine {
public:
    ProgressLine();
    ~ProgressLine() { erase(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    /// Shows now and then, on a terminal only, how many lines are done.
    void show(std::uint64_t lines);

    /// Prints a message as a line of its own.
    void say(const std::string& message);

private:
    void erase();

    bool isTerminal_;
    bool isShown_ = false;
};

}  // namespace zavevents
