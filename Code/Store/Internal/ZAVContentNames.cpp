#include "Store/Internal/ZAVContentNames.h"

#include <cstddef>
#include <random>

namespace zav {
namespace {

// .zav-trash-<digits>-<name>, of which digits the first are the mark of a store
constexpr std::string_view trashPrefix = ".zav-trash-";
constexpr std::string_view partialPrefix = ".zav-partial-";
constexpr std::string_view hexDigits = "0123456789abcdef";
constexpr std::size_t digitCount = 16;
constexpr std::size_t markDigitCount = 8;

std::string randomDigits(std::size_t count) {
    std::random_device random;
    std::string result;
    while (result.size() < count) {
        result += hexDigits[random() % hexDigits.size()];
    }
    return result;
}

std::string markedName(std::string_view prefix, const std::string& digits, const std::string& name) {
    return std::string(prefix) + digits + "-" + name;
}

bool areHexDigits(std::string_view text) {
    return text.find_first_not_of(hexDigits) == std::string_view::npos;
}

/// The name that was marked with a prefix, if one was.
std::optional<std::string> unmarkedName(std::string_view prefix, std::string_view name) {
    const std::size_t start = prefix.size() + digitCount;
    if (!name.starts_with(prefix) || name.size() <= start || name[start] != '-' ||
        !areHexDigits(name.substr(prefix.size(), digitCount))) {
        return std::nullopt;
    }
    const std::string_view before = name.substr(start + 1);
    if (before.empty() || before == "." || before == "..") {
        return std::nullopt;
    }
    return std::string(before);
}

}  // namespace

std::string ZAVMakeTrashMark() {
    return randomDigits(markDigitCount);
}

bool ZAVIsTrashMark(std::string_view text) {
    return text.size() == markDigitCount && areHexDigits(text);
}

std::string ZAVMakeTrashName(const std::string& mark, const std::string& name) {
    return markedName(trashPrefix, mark + randomDigits(digitCount - markDigitCount), name);
}

std::optional<std::string> ZAVNameBeforeTrash(std::string_view name, std::string_view mark) {
    auto before = unmarkedName(trashPrefix, name);
    const bool isOfMark = before && name.substr(trashPrefix.size()).starts_with(mark);
    return isOfMark ? before : std::nullopt;
}

std::string ZAVMakePartialName(const std::string& name) {
    return markedName(partialPrefix, randomDigits(digitCount), name);
}

std::string ZAVPartialNameOfPart(const std::string& name, std::uint64_t part) {
    std::string digits;
    for (; digits.size() < digitCount; part /= hexDigits.size()) {
        digits += hexDigits[static_cast<std::size_t>(part % hexDigits.size())];
    }
    return markedName(partialPrefix, digits, name);
}

std::optional<std::string> ZAVNameAfterPartial(std::string_view name) {
    return unmarkedName(partialPrefix, name);
}

}  // namespace zav
