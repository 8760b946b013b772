#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zavevents {

/// How long a text of others may become, in bytes.
inline constexpr std::size_t longestText = 1000;

/// A text of others, such as a name in a database or on the command line, as it may be shown: on one line, of
/// bounded length, with nothing in it that a terminal acts upon. Control characters, those that change the
/// direction of writing or break a line, and bytes that are not UTF-8 become `\x` and two digits a byte; a
/// text that is cut ends in "...".
[[nodiscard]] std::string printable(std::string_view text);

/// A text of others as JSON can hold it: as `printable`, but of all characters only what is not UTF-8 is
/// rewritten, since JSON has its own way with the others.
[[nodiscard]] std::string asUTF8(std::string_view text);

}  // namespace zavevents
