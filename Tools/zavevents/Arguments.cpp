#include "Arguments.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string_view>
#include <system_error>

namespace zavevents {
namespace {

constexpr std::size_t longestName = 127;

bool isRestrictedName(std::string_view name) {
    static constexpr std::string_view alphanumeric =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    static constexpr std::string_view others = "!#$&-^_.+";
    const auto isIn = [](std::string_view characters) {
        return [characters](char character) { return characters.find(character) != std::string_view::npos; };
    };
    return !name.empty() && name.size() <= longestName && isIn(alphanumeric)(name.front()) &&
           std::all_of(name.begin(), name.end(), [&](char character) {
               return isIn(alphanumeric)(character) || isIn(others)(character);
           });
}

bool isMediaTypeName(std::string_view text) {
    const std::size_t slash = text.find('/');
    return slash != std::string_view::npos && isRestrictedName(text.substr(0, slash)) &&
           isRestrictedName(text.substr(slash + 1));
}

template <class Number>
bool isWhole(const std::string& text) {
    Number number{};
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), number);
    return status == std::errc() && end == text.data() + text.size();
}

/// A validator for what `test` accepts, which it calls a `kind`.
template <class Test>
CLI::Validator validator(const char* kind, Test test) {
    return CLI::Validator(
        [kind, test](const std::string& text) {
            return test(text) ? std::string() : text + " is no " + kind;
        },
        "");
}

}  // namespace

void addDatabaseOption(CLI::App& command, std::string& path) {
    command.add_option("DATABASE", path, "The database file")
        ->required()
        ->check(validator("file name", [](const std::string& text) { return !text.empty(); }));
}

CLI::Validator isUUID() {
    return validator("UUID",
                     [](const std::string& text) { return zav::ZAVUUID::fromString(text).has_value(); });
}

CLI::Validator isURL() {
    return validator("URL",
                     [](const std::string& text) { return zav::ZAVURL::URLWithString(text).has_value(); });
}

CLI::Validator isNumber() {
    return validator("64-bit number", isWhole<std::int64_t>);
}

CLI::Validator isAmount() {
    return validator("amount", isWhole<std::uint64_t>);
}

CLI::Validator isMediaType() {
    return validator("media type", [](const std::string& text) { return isMediaTypeName(text); });
}

}  // namespace zavevents
