#include "TrashName.h"

#include <random>

namespace zavevents {
namespace {

// .zav-trash-<digits>-<name>
constexpr std::string_view prefix = ".zav-trash-";
constexpr std::string_view digits = "0123456789abcdef";
constexpr std::size_t digitCount = 16;

}  // namespace

std::string makeTrashName(const std::string& name) {
    std::random_device random;
    std::string result(prefix);
    for (std::size_t count = 0; count < digitCount; ++count) {
        result += digits[random() % digits.size()];
    }
    return result + "-" + name;
}

std::optional<std::string> nameBeforeTrash(std::string_view name) {
    constexpr std::size_t start = prefix.size() + digitCount;
    if (!name.starts_with(prefix) || name.size() <= start || name[start] != '-' ||
        name.substr(prefix.size(), digitCount).find_first_not_of(digits) != std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view before = name.substr(start + 1);
    if (before.empty() || before == "." || before == "..") {
        return std::nullopt;
    }
    return std::string(before);
}

}  // namespace zavevents
