#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVURL.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

/// The directory below which the files of content parts are kept. Until an application sets its own it is
/// "ZAVEventRepository" in `$XDG_CACHE_HOME`, or in `$HOME/.cache`. When neither variable holds an absolute
/// path it is `/var/tmp/ZAVEventRepository`, where anybody can write: a daemon should set its own. During a
/// work of a `ZAVEventStore` that has a directory of its own it is that, on the thread of the work. Any
/// thread may call it.
[[nodiscard]] ZAV_EXPORT ZAVURL ZAVMessageRepositoryCacheBaseDirectoryURL();

/// Sets the directory for the whole process. `directory` is a URL whose path ends with a slash; see
/// `ZAVURL::fileURLWithDirectoryPath`.
ZAV_EXPORT void ZAVSetMessageRepositoryCacheBaseDirectoryURL(const ZAVURL& directory);

/// The directory of one message's files, relative to the cache directory:
/// `<application>/<user>/<event>/`, with "=XX" for each byte of the user's name that a directory name should
/// not hold. None when the event has no UUID.
[[nodiscard]] ZAV_EXPORT std::optional<ZAVURL> ZAVMessageRepositoryMakeMessagePartBaseDirectoryURL(
    const ZAVUUID& appID, std::string_view authenticatedUserID, const std::optional<ZAVUUID>& eventUUID);

/// The file of the part with the given index inside a message's directory, relative to the cache directory:
/// `<directory>part-<index>`. None when there is no directory.
[[nodiscard]] ZAV_EXPORT std::optional<ZAVURL> ZAVMessageRepositoryMakeMessagePartFileURL(
    std::uint64_t index, const std::optional<ZAVURL>& baseDirectoryURL);

}  // namespace zav
