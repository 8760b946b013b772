#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zav {

/// The name under which a file called `name` waits in its directory to be removed: another at each call, so
/// that nobody who removes what has such a name removes another's file. The name that the file had can be
/// read from it.
[[nodiscard]] std::string ZAVMakeTrashName(const std::string& name);

/// The name that the file had before, when `name` is one that `ZAVMakeTrashName` makes.
[[nodiscard]] std::optional<std::string> ZAVNameBeforeTrash(std::string_view name);

/// The name under which a file that will be called `name` is written: another at each call.
[[nodiscard]] std::string ZAVMakePartialName(const std::string& name);

/// Whether `name` is one that `ZAVMakePartialName` makes.
[[nodiscard]] bool ZAVIsPartialName(std::string_view name);

}  // namespace zav
