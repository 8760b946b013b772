#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zavevents {

/// The name under which a file called `name` waits in its directory to be removed: another at each call, so
/// that nobody who removes what has such a name removes another's file. The name that the file had can be
/// read from it.
[[nodiscard]] std::string makeTrashName(const std::string& name);

/// The name that the file had before, when `name` is one that `makeTrashName` makes.
[[nodiscard]] std::optional<std::string> nameBeforeTrash(std::string_view name);

}  // namespace zavevents
