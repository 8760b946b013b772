#include "ProgressLine.h"

#include <unistd.h>

#include <iostream>

namespace zavevents {

ProgressLine::ProgressLine() : isTerminal_(isatty(STDERR_FILENO) != 0) {}

void ProgressLine::show(std::uint64_t lines) {
    constexpr std::uint64_t interval = 10000;
    if (isTerminal_ && lines % interval == 0) {
        // The cursor goes back to the beginning: what the library logs then overwrites the line.
        std::cerr << lines << " lines\r";
        isShown_ = true;
    }
}

void ProgressLine::showShare(double share) {
    const int percent = static_cast<int>(share * 100);
    if (isTerminal_ && percent != percent_) {
        percent_ = percent;
        std::cerr << percent << "%\r";
        isShown_ = true;
    }
}

void ProgressLine::say(const std::string& message) {
    finish();
    std::cerr << message + '\n';
}

void ProgressLine::finish() {
    if (isShown_) {
        std::cerr << "\r\033[K";
        isShown_ = false;
    }
}

}  // namespace zavevents
