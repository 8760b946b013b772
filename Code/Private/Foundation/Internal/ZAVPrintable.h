#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace zav {

/// Copies `text`, which may be anybody's, so that it stays one line and commands no terminal: control
/// characters, line and paragraph separators, marks that turn the direction of writing and bytes that are no
/// UTF-8 become escapes such as `\n`, `\x1b` and `\u2028`. What finds no room is left out, and how large the
/// whole is stands in its place: "…(1000000 bytes in all)". Needs no memory.
///
/// @param destination at least 64 bytes.
/// @return how many bytes were written.
[[nodiscard]] std::size_t ZAVCopyPrintable(std::string_view text, std::span<char> destination) noexcept;

/// Appends a text as it stands in the description of a record: as `ZAVCopyPrintable` makes it, in no more
/// than 256 bytes.
void ZAVAppendPrintable(std::string& description, std::string_view text);

}  // namespace zav
