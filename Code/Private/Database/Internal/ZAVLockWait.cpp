#include "Private/Database/Internal/ZAVLockWait.h"

#include <sqlite3.h>

#include <algorithm>
#include <thread>

namespace zav {
namespace {

/// How long somebody is let go first. One that the system does not let run while it waits keeps its place.
constexpr std::chrono::milliseconds longestPatience(20);

constexpr std::chrono::microseconds shortestPause(100);

void pause(int count, int longestPauses) noexcept {
    std::this_thread::sleep_for(shortestPause * std::min(count + 1, longestPauses));
}

}  // namespace

ZAVLockWait::ZAVLockWait(sqlite3* connection, std::chrono::milliseconds longest) noexcept
    : nextWriter_(longest > std::chrono::milliseconds::zero() ? connection : nullptr), longest_(longest) {
    if (longest > std::chrono::milliseconds::zero()) {
        sqlite3_busy_handler(connection, wait, this);
    }
}

void ZAVLockWait::letAnotherGoFirst() noexcept {
    constexpr int longestPauses = 3;
    if (!nextWriter_.isAnother()) {
        return;
    }
    const auto end = Clock::now() + std::min(longest_, longestPatience);
    for (int count = 0; !isOver(end) && nextWriter_.isAnother(); ++count) {
        pause(count, longestPauses);
    }
}

/// @param count how often the lock was asked for in vain since the wait began.
int ZAVLockWait::wait(void* lockWait, int count) noexcept {
    auto& self = *static_cast<ZAVLockWait*>(lockWait);
    if (count == 0) {
        const auto now = Clock::now();
        self.end_ = now + self.longest_;
        self.endOfPatience_ = now + longestPatience;
    }
    if (self.isOver(self.end_)) {
        return 0;
    }
    self.pauseInLine(count);
    return 1;
}

void ZAVLockWait::pauseInLine(int count) noexcept {
    constexpr int mostForTheNext = 3;
    constexpr int mostForOthers = 10;
    auto attempt = nextWriter_.take();
    const auto end = std::min(end_, endOfPatience_);
    for (int round = 0; attempt == ZAVNextWriter::Attempt::isAnother && !isOver(end); ++round) {
        pause(round, mostForTheNext);
        attempt = nextWriter_.take();
    }
    pause(count, attempt == ZAVNextWriter::Attempt::impossible ? mostForOthers : mostForTheNext);
    if (attempt == ZAVNextWriter::Attempt::taken) {
        nextWriter_.giveUp();
    }
}

}  // namespace zav
