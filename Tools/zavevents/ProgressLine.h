#pragma once

#include <cstdint>
#include <string>

namespace zavevents {

/// Standard error during a long command: messages, and on a terminal a line that shows how far it is.
class ProgressLine {
public:
    ProgressLine();
    ~ProgressLine() { finish(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    /// Shows now and then, on a terminal only, how many lines are done.
    void show(std::uint64_t lines);

    /// Shows on a terminal how much of the work is done, from 0 to 1.
    void showShare(double share);

    /// Takes the line away.
    void finish();

    /// Prints a message as a line of its own.
    void say(const std::string& message);

private:
    bool isTerminal_;
    bool isShown_ = false;
    int percent_ = -1;
};

}  // namespace zavevents
