#include "Store/Internal/ZAVContentNames.h"

#include <random>

namespace zav {
namespace {

// .zav-trash-<digits>-<name>
constexpr std::string_view trashPrefix = ".zav-trash-";
constexpr std::string_view partialPrefix = ".zav-partial-";
constexpr std::string_view hexDigits = "0123456789abcdef";
constexpr std::size_t digitCount = 16;

std::string markedName(std::string_view prefix, const std::string& name) {
    std::random_device random;
    std::string result(prefix);
    for (std::size_t count = 0; count < digitCount; ++count) {
        result += hexDigits[random() % hexDigits.size()];
    }
    return result + "-" + name;
}

/// The name that was marked with a prefix, if one was.
std::optional<std::string> unmarkedName(std::string_view prefix, std::string_view name) {
    const std::size_t start = prefix.size() + digitCount;
    if (!name.starts_with(prefix) || name.size() <= start || name[start] != '-' ||
        name.substr(prefix.size(), digitCount).find_first_not_of(hexDigits) != std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view before = name.substr(start + 1);
    if (before.empty() || before == "." || before == "..") {
        return std::nullopt;
    }
    return std::string(before);
}

}  // namespace

std::string ZAVMakeTrashName(const std::string& name) {
    return markedName(trashPrefix, name);
}

std::optional<std::string> ZAVNameBeforeTrash(std::string_view name) {
    return unmarkedName(trashPrefix, name);
}

std::string ZAVMakePartialName(const std::string& name) {
    return markedName(partialPrefix, name);
}

bool ZAVIsPartialName(std::string_view name) {
    return unmarkedName(partialPrefix, name).has_value();
}

}  // namespace zav
