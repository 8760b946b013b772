#include "Store/Internal/ZAVCursorText.h"

#include <charconv>
#include <system_error>

namespace zav {
namespace {

/// FNV-1a, folded to 16 bits: a text that was cut, or mistyped at one place, is told from a cursor.
std::uint32_t checksumOf(std::string_view text) noexcept {
    std::uint32_t hash = 2166136261U;
    for (const char character : text) {
        hash = (hash ^ static_cast<unsigned char>(character)) * 16777619U;
    }
    return (hash >> 16U) ^ (hash & 0xffffU);
}

}  // namespace

std::string ZAVCursorText(char kind, std::span<const std::int64_t> numbers) {
    std::string text(1, kind);
    for (const std::int64_t number : numbers) {
        text += '.' + std::to_string(number);
    }
    constexpr std::string_view digits = "0123456789abcdef";
    const std::uint32_t checksum = checksumOf(text);
    text += '.';
    for (const unsigned shift : {12U, 8U, 4U, 0U}) {
        text += digits[(checksum >> shift) & 0xfU];
    }
    return text;
}

std::optional<std::vector<std::int64_t>> ZAVNumbersFromCursorText(std::string_view text, char kind,
                                                                  std::size_t count) {
    std::vector<std::int64_t> numbers;
    std::string_view rest = text.substr(text.empty() ? 0 : 1);
    while (numbers.size() < count && rest.starts_with('.')) {
        std::int64_t number = 0;
        const auto [end, failure] = std::from_chars(rest.data() + 1, rest.data() + rest.size(), number);
        if (failure != std::errc()) {
            return std::nullopt;
        }
        numbers.push_back(number);
        rest = rest.substr(static_cast<std::size_t>(end - rest.data()));
    }
    // Written anew it is the same, or it was not one.
    return numbers.size() == count && ZAVCursorText(kind, numbers) == text ? std::optional(std::move(numbers))
                                                                           : std::nullopt;
}

}  // namespace zav
