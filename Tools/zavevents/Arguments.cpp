#include "Arguments.h"

#include <string_view>

namespace zavevents {
namespace {

constexpr std::size_t longestName = 127;

bool isRestrictedName(std::string_view name) {
    static constexpr std::string_view alphanumeric =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    static constexpr std::string_view others = "!#$&-^_.+";
    if (name.empty() || name.size() > longestName ||
        alphanumeric.find(name.front()) == std::string_view::npos) {
        return false;
    }
    for (const char character : name) {
        if (alphanumeric.find(character) == std::string_view::npos &&
            others.find(character) == std::string_view::npos) {
            return false;
        }
    }
    return true;
}

bool isMediaTypeName(std::string_view text) {
    const std::size_t slash = text.find('/');
    return slash != std::string_view::npos && isRestrictedName(text.substr(0, slash)) &&
           isRestrictedName(text.substr(slash + 1));
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

CLI::Validator isUUID() {
    return validator("UUID",
                     [](const std::string& text) { return zav::ZAVUUID::fromString(text).has_value(); });
}

CLI::Validator isURL() {
    return validator("URL",
                     [](const std::string& text) { return zav::ZAVURL::URLWithString(text).has_value(); });
}

CLI::Validator isMediaType() {
    return validator("media type", [](const std::string& text) { return isMediaTypeName(text); });
}

}  // namespace zavevents
