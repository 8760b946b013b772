#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <ZAVEventRepository/ZAVExport.h>

/// A text that may be anybody's, such as one in a database or on a command line, made fit to be shown: it
/// stays one line and commands no terminal. Not shown as they are: control characters, separators of lines
/// and paragraphs, marks that change the direction of writing, and bytes that are not UTF-8.
namespace zav {

/// What is written in place of what is not shown.
enum ZAVEscapes : std::uint8_t {
    ZAVEscapesCharacters = 0,   ///< each character by its short name: `\n`, `\x1b`, `\u2028`
    ZAVEscapesBytes = 1,        ///< each byte by itself: `\x0a`, `\x1b`, `\xe2\x80\xa8`
    ZAVEscapesInvalidUTF8 = 2,  ///< only bytes that are not UTF-8, `\xff`: for JSON, which escapes the rest
};

/// How long a text becomes in `ZAVPrintable`, in bytes, without the mark of a cut.
inline constexpr std::size_t ZAVPrintableSize = 1000;

/// The text with its escapes; what comes after `ZAVPrintableSize` bytes is cut, and "..." stands in its
/// place.
[[nodiscard]] ZAV_EXPORT std::string ZAVPrintable(std::string_view text,
                                                  ZAVEscapes escapes = ZAVEscapesBytes);

/// Copies the text with `ZAVEscapesCharacters`. What finds no room is cut, and the size of the whole stands
/// in its place: "…(1000000 bytes in all)". Needs no memory.
///
/// @param destination at least 64 bytes.
/// @return how many bytes were written.
[[nodiscard]] ZAV_EXPORT std::size_t ZAVCopyPrintable(std::string_view text,
                                                      std::span<char> destination) noexcept;

/// Appends a text as it stands in the description of a record: as `ZAVCopyPrintable` makes it, in no more
/// than 256 bytes.
ZAV_EXPORT void ZAVAppendPrintable(std::string& description, std::string_view text);

}  // namespace zav
