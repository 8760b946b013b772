#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zav {

/// The text of a cursor: its kind, its numbers, and a checksum of both, with dots between them.
[[nodiscard]] std::string ZAVCursorText(char kind, std::span<const std::int64_t> numbers);

/// The numbers of the cursor of this kind that a text is.
/// @return none for a text that `ZAVCursorText` does not make of a cursor of this kind with as many numbers.
[[nodiscard]] std::optional<std::vector<std::int64_t>> ZAVNumbersFromCursorText(std::string_view text,
                                                                                char kind, std::size_t count);

}  // namespace zav
