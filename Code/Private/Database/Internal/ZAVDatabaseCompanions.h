#pragma once

#include <optional>
#include <string>

namespace zav {

/// Looks at the files that the engine would take for the journal, the log and the shared memory of the
/// database file `path`, before it does.
/// @param path what the engine's file system makes of the path to open.
/// @return what makes them unsafe to use, if anything: one that is not a regular file, for which the engine
/// might wait forever; one that has another name too, under which it is somebody else's file; or a journal
/// that names a further journal, a file anywhere which the engine would remove.
[[nodiscard]] std::optional<std::string> ZAVHazardBesideDatabase(const std::string& path);

}  // namespace zav
