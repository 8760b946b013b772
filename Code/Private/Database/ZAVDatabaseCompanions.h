#pragma once

#include <optional>
#include <string>

namespace zav {

/// Looks at the files that the engine would take for the journal, the log and the shared memory of the
/// database file `path`, before it does.
/// @return what makes them unsafe to use, if anything: one that is no ordinary file, for which the engine
/// might wait forever; or a journal that names a further journal, a file anywhere which the engine would
/// remove.
[[nodiscard]] std::optional<std::string> ZAVHazardBesideDatabase(const std::string& path);

}  // namespace zav
