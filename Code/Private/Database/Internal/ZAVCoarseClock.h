#pragma once

#include <time.h>  // NOLINT(modernize-deprecated-headers): the clocks of POSIX are in no header of C++

#include <chrono>

namespace zav {

/// A steady clock that costs next to nothing, exact to some milliseconds. Each query asks for the time.
struct ZAVCoarseClock {
    using duration = std::chrono::nanoseconds;
    using time_point = std::chrono::time_point<std::chrono::steady_clock, duration>;

    [[nodiscard]] static time_point now() noexcept {
#ifdef CLOCK_MONOTONIC_COARSE
        timespec time{};
        ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
        return time_point(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
#else
        return std::chrono::steady_clock::now();
#endif
    }
};

}  // namespace zav
