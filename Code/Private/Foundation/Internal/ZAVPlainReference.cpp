#include "Private/Foundation/Internal/ZAVPlainReference.h"

#include <array>
#include <cstddef>

namespace zav {
namespace {

/// Where a character may stand, other than at the beginning.
using Places = std::uint8_t;
constexpr Places inScheme = 1;
constexpr Places inHost = 2;
constexpr Places inRelativePath = 4;
constexpr Places inPath = 8;
constexpr Places inQuery = 16;

constexpr std::array<Places, 256> placesOfCharacters = [] {
    std::array<Places, 256> places{};
    const auto add = [&places](std::string_view characters, Places more) {
        for (const char character : characters) {
            Places& known = places[static_cast<unsigned char>(character)];
            known = static_cast<Places>(known | more);
        }
    };
    constexpr Places inAny = inRelativePath | inPath | inQuery;
    constexpr Places inAll = inScheme | inHost | inAny;
    add("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-.", inAll);
    add("+", inScheme | inAny);
    add("_~!$&'()*,;=@/", inAny);
    add(":", inPath | inQuery);
    add("?", inQuery);
    return places;
}();

bool isLetter(char character) noexcept {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

/// Removes all characters from the beginning that may stand in a place; answers whether there were any.
bool skip(std::string_view& text, Places place) noexcept {
    std::size_t size = 0;
    while (size < text.size() && (placesOfCharacters[static_cast<unsigned char>(text[size])] & place) != 0) {
        ++size;
    }
    text.remove_prefix(size);
    return size != 0;
}

bool isAbsolute(std::string_view text) noexcept {
    if (text.empty() || !isLetter(text.front()) || !skip(text, inScheme) || !text.starts_with("://")) {
        return false;
    }
    text.remove_prefix(3);
    if (!skip(text, inHost)) {
        return false;
    }
    if (text.starts_with('/')) {
        skip(text, inPath);
    }
    if (text.starts_with('?')) {
        skip(text, inQuery);
    }
    return text.empty();
}

bool isRelative(std::string_view text) noexcept {
    return !text.starts_with('/') && skip(text, inRelativePath) && text.empty();
}

}  // namespace

ZAVReferenceForm ZAVFormOfPlainReference(std::string_view text) noexcept {
    if (isAbsolute(text)) {
        return ZAVReferenceForm::absolute;
    }
    return isRelative(text) ? ZAVReferenceForm::relative : ZAVReferenceForm::unknown;
}

}  // namespace zav
