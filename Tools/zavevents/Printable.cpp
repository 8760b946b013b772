#include "Printable.h"

#include <algorithm>
#include <array>
#include <utility>

#include <ZAVEventRepository/ZAVUTF8.h>

namespace zavevents {
namespace {

constexpr std::size_t longestCharacter = 4;

/// The first character of a text; empty when it begins with no UTF-8.
std::string_view firstCharacter(std::string_view text) {
    for (std::size_t length = 1; length <= longestCharacter && length <= text.size(); ++length) {
        if (zav::ZAVIsUTF8(text.substr(0, length))) {
            return text.substr(0, length);
        }
    }
    return {};
}

/// Whether a terminal shows a character, and does nothing else.
bool isShown(std::string_view character) {
    using namespace std::string_view_literals;
    // NOLINTBEGIN(misc-misleading-bidirectional): these are what is not shown
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 7> others{{
        {"\0"sv, "\x1F"sv},                    // controls
        {"\x7F"sv, "\x7F"sv},                  // delete
        {"\xC2\x80"sv, "\xC2\x9F"sv},          // further controls
        {"\xD8\x9C"sv, "\xD8\x9C"sv},          // Arabic letter mark
        {"\xE2\x80\x8E"sv, "\xE2\x80\x8F"sv},  // left-to-right and right-to-left marks
        {"\xE2\x80\xA8"sv, "\xE2\x80\xAE"sv},  // line and paragraph separators, embeddings and overrides
        {"\xE2\x81\xA6"sv, "\xE2\x81\xA9"sv},  // isolates
    }};
    // NOLINTEND(misc-misleading-bidirectional)
    return std::none_of(others.begin(), others.end(), [&](const auto& range) {
        return character >= range.first && character <= range.second &&
               character.size() == range.first.size();
    });
}

void appendEscaped(std::string& result, std::string_view bytes) {
    static constexpr std::string_view digits = "0123456789abcdef";
    for (const char byte : bytes) {
        const auto number = static_cast<unsigned char>(byte);
        result += {'\\', 'x', digits[number >> 4], digits[number & 0x0F]};
    }
}

template <class Keeps>
std::string escaped(std::string_view text, Keeps keeps) {
    std::string result;
    while (!text.empty()) {
        const std::string_view character = firstCharacter(text);
        std::string next;
        if (!character.empty() && keeps(character)) {
            next = character;
        } else {
            appendEscaped(next, character.empty() ? text.substr(0, 1) : character);
        }
        if (result.size() + next.size() > longestText) {
            return result + "...";
        }
        result += next;
        text.remove_prefix(character.empty() ? 1 : character.size());
    }
    return result;
}

}  // namespace

std::string printable(std::string_view text) {
    return escaped(text, isShown);
}

std::string asUTF8(std::string_view text) {
    return escaped(text, [](std::string_view) { return true; });
}

}  // namespace zavevents
