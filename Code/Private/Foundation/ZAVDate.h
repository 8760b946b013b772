#pragma once

#include <chrono>

namespace zav {

/// A moment: fractional seconds since 1 January 1970 UTC.
using ZAVDate = std::chrono::time_point<std::chrono::system_clock, std::chrono::duration<double>>;

/// The moment so many seconds after 1 January 1970 UTC, or before it when negative.
[[nodiscard]] constexpr ZAVDate ZAVDateFromSecondsSince1970(double seconds) noexcept {
    return ZAVDate(std::chrono::duration<double>(seconds));
}

/// How many seconds after 1 January 1970 UTC a moment is.
[[nodiscard]] constexpr double ZAVSecondsSince1970(ZAVDate date) noexcept {
    return date.time_since_epoch().count();
}

/// The current time of the system clock.
[[nodiscard]] inline ZAVDate ZAVNow() noexcept {
    return std::chrono::system_clock::now();
}

}  // namespace zav
