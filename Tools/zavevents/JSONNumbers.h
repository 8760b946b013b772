#pragma once

#include <string>
#include <string_view>

namespace zavevents {

/// Whether a text is a number in decimal digits, with a fraction and an exponent perhaps. Zeros may lead it.
[[nodiscard]] bool isDecimal(std::string_view text);

/// What `withReadableNumbers` writes for a number that is beyond every double.
inline constexpr double beyondEveryDouble = 1.7976931348623157e308;

/// A line of JSON with its numbers within what the parser reads, which refuses a whole line for one that is
/// not: an integer beyond 64 bits becomes a floating-point number, one beyond those `beyondEveryDouble`. What
/// is not a number by JSON's rules stays as it is.
[[nodiscard]] std::string withReadableNumbers(std::string_view line);

}  // namespace zavevents
