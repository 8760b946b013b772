#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace zav {

/// Copies `text`, which need not be trusted, so that it stays one line and no terminal obeys it: control
/// characters, line and paragraph separators, marks that turn the direction of writing and bytes of invalid
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
