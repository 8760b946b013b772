#pragma once

#include <time.h>  // NOLINT(modernize-deprecated-headers): the clocks of POSIX are in no header of C++

#include <chrono>

namespace zav {

/// A moment by a steady clock that costs next to nothing, exact to some milliseconds. Each query notes one,
/// as the clock tells it: what it means is reckoned only when somebody asks.
class ZAVCoarseMoment {
public:
    /// Becomes the present moment.
    void note() noexcept { ::clock_gettime(clock, &time_); }

    /// How long ago it was.
    [[nodiscard]] std::chrono::milliseconds age() const noexcept {
        ZAVCoarseMoment now;
        now.note();
        return std::chrono::duration_cast<std::chrono::milliseconds>(now.reading() - reading());
    }

    [[nodiscard]] bool isBefore(const ZAVCoarseMoment& other) const noexcept {
        return reading() < other.reading();
    }

private:
#ifdef CLOCK_MONOTONIC_COARSE
    static constexpr clockid_t clock = CLOCK_MONOTONIC_COARSE;
#else
    static constexpr clockid_t clock = CLOCK_MONOTONIC;
#endif

    [[nodiscard]] std::chrono::nanoseconds reading() const noexcept {
        return std::chrono::seconds(time_.tv_sec) + std::chrono::nanoseconds(time_.tv_nsec);
    }

    timespec time_{};
};

}  // namespace zav
