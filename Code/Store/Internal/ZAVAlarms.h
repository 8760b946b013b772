#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace zav {

/// Calls functions at given times, on a thread of its own that is started when it is first needed and sleeps
/// in between.
class ZAVAlarms {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Tells alarms apart; a time and a number.
    using Alarm = std::pair<Time, std::uint64_t>;

    ZAVAlarms() = default;
    ~ZAVAlarms() { close(); }
    ZAVAlarms(const ZAVAlarms&) = delete;
    ZAVAlarms& operator=(const ZAVAlarms&) = delete;

    /// Has `ring`, which must not throw, called at a time, or at once when that has gone by. No lock is held
    /// meanwhile.
    /// @throws std::system_error when there can be no thread.
    Alarm set(Time time, std::function<void()> ring);

    /// An alarm that has rung, or was taken away, may be taken away again. One that rings is not waited for.
    void takeAway(const Alarm& alarm) noexcept;

    /// Ends the thread, after the alarm that rings, if one does. Nothing rings any more.
    void close() noexcept;

private:
    void ringAll() noexcept;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<Alarm, std::function<void()>> alarms_;
    std::uint64_t lastNumber_ = 0;
    bool isClosing_ = false;
    std::thread thread_;
};

}  // namespace zav
