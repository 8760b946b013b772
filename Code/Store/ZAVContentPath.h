#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// The path of a content part's file as the store keeps it: a relative reference that names a file below the
/// directory of the content, wherever that directory is.
///
/// What it says goes for the text alone. Where links lead that stand in the directory is seen when the file
/// is looked for.
class ZAV_EXPORT ZAVContentPath {
public:
    /// @param fault receives, when `text` is invalid, what is wrong with it, such as "is not a relative
    /// path".
    [[nodiscard]] static std::optional<ZAVContentPath> parse(std::string_view text,
                                                             std::string* fault = nullptr);

    /// The names of the directories on the way, percent escapes decoded, and of the file.
    [[nodiscard]] const std::vector<std::string>& names() const noexcept { return names_; }

private:
    explicit ZAVContentPath(std::vector<std::string> names) : names_(std::move(names)) {}

    std::vector<std::string> names_;  // at least one, none of them empty, "." or ".."
};

}  // namespace zav
