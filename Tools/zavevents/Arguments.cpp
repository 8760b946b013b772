#include "Arguments.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include <ZAVEventRepository/ZAVPrintable.h>
#include <ZAVEventRepository/ZAVUTF8.h>

#include "JSONNumbers.h"

namespace zavevents {
namespace {

constexpr std::size_t longestName = 127;

bool isRestrictedName(std::string_view name) {
    static constexpr std::string_view characters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789!#$&-^_.+";
    static constexpr std::string_view firsts = characters.substr(0, characters.find('!'));
    return !name.empty() && name.size() <= longestName &&
           firsts.find(name.front()) != std::string_view::npos &&
           name.find_first_not_of(characters) == std::string_view::npos;
}

bool isMediaTypeName(std::string_view text) {
    const std::size_t slash = text.find('/');
    return slash != std::string_view::npos && isRestrictedName(text.substr(0, slash)) &&
           isRestrictedName(text.substr(slash + 1));
}

std::optional<zav::ZAVDate> dateFrom(const std::string& text) {
    if (!isDecimal(text)) {  // the C library takes more: hexadecimal numbers, blanks, "nan" and "inf"
        return std::nullopt;
    }
    const double number = std::strtod(text.c_str(), nullptr);
    return std::isfinite(number) ? std::optional(zav::ZAVDateFromSecondsSince1970(number)) : std::nullopt;
}

}  // namespace

template <class Number>
Kind<Number> wholeNumber(Number low, Number high) {
    const auto read = [low, high](const std::string& text) -> std::optional<Number> {
        Number number{};
        const char* const end = text.data() + text.size();
        const auto [rest, status] = std::from_chars(text.data(), end, number);
        const bool isRead = status == std::errc() && rest == end && number >= low && number <= high;
        return isRead ? std::optional(number) : std::nullopt;
    };
    return {"NUMBER", "a whole number from " + std::to_string(low) + " to " + std::to_string(high), read};
}

template Kind<int> wholeNumber(int, int);
template Kind<std::int64_t> wholeNumber(std::int64_t, std::int64_t);
template Kind<std::uint64_t> wholeNumber(std::uint64_t, std::uint64_t);

Kind<std::int64_t> row() {
    return wholeNumber<std::int64_t>();
}

Kind<std::int64_t> position() {
    return wholeNumber<std::int64_t>(0);
}

Kind<std::uint64_t> amount() {
    // What is stored, and what a statement is given, has a sign.
    return wholeNumber<std::uint64_t>(0, std::numeric_limits<std::int64_t>::max());
}

Kind<zav::ZAVSequence> sequence() {
    return wholeNumber<zav::ZAVSequence>();
}

Kind<zav::ZAVSequence> assignedSequence() {
    return wholeNumber<zav::ZAVSequence>(std::numeric_limits<zav::ZAVSequence>::min(),
                                         zav::ZAVSequenceNotSet - 1);
}

Kind<zav::ZAVDate> seconds() {
    return {"SECONDS", "a finite number in decimal digits", dateFrom};
}

Kind<zav::ZAVUUID> uuid() {
    return {"UUID", "a UUID", [](const std::string& text) { return zav::ZAVUUID::fromString(text); }};
}

Kind<zav::ZAVTimelineCursor> cursor() {
    return {"CURSOR", "the cursor of an event",
            [](const std::string& text) { return zav::ZAVTimelineCursor::fromText(text); }};
}

Kind<zav::ZAVConversationCursor> conversationCursor() {
    return {"CURSOR", "the cursor of a conversation",
            [](const std::string& text) { return zav::ZAVConversationCursor::fromText(text); }};
}

Kind<zav::ZAVURL> url() {
    // The empty reference is one too, and names nothing.
    return {"URL", "a URL", [](const std::string& text) {
                return text.empty() ? std::nullopt : zav::ZAVURL::URLWithString(text);
            }};
}

Kind<std::string> text() {
    return {"TEXT", "a text in UTF-8", [](const std::string& text) {
                return !text.empty() && zav::ZAVIsUTF8(text) ? std::optional(text) : std::nullopt;
            }};
}

Kind<std::string> fileName() {
    return {"TEXT", "a file name",
            [](const std::string& text) { return text.empty() ? std::nullopt : std::optional(text); }};
}

Kind<std::string> mediaType() {
    return {"TYPE", "a media type", [](const std::string& text) {
                return isMediaTypeName(text) ? std::optional(text) : std::nullopt;
            }};
}

void refuseWord(const std::string& option, const std::string& word, const std::string& wanted) {
    throw CLI::ValidationError(option, "'" + zav::ZAVPrintable(word) + "' is not " + wanted);
}

void requireOneOf(const CLI::Option* option, const std::vector<const CLI::Option*>& selections) {
    const auto isGiven = [](const CLI::Option* selection) { return selection->count() != 0; };
    if (isGiven(option) && std::none_of(selections.begin(), selections.end(), isGiven)) {
        throw CLI::ValidationError(option->get_name(), "this selection does not take it");
    }
}

}  // namespace zavevents
