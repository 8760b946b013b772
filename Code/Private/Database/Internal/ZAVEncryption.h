#pragma once

#include <optional>
#include <string>

#include <ZAVEventRepository/ZAVError.h>

struct sqlite3;

namespace zav {

/// Whether a database may be opened with such a key: none, or one that the engine can use.
/// @return what speaks against it; empty when nothing does.
[[nodiscard]] ZAVError ZAVObjectionToKey(const std::optional<std::string>& key);

/// Gives a connection the key of its database, before anything is read. The key must be acceptable.
/// @return the engine's result code.
[[nodiscard]] int ZAVUseKey(sqlite3* connection, const std::string& key) noexcept;

/// Says of a file that the engine takes for no database what has to do with its key, if anything: it has
/// another one, or none, or needs one. Any other error is returned as it is.
[[nodiscard]] ZAVError ZAVErrorOfKey(const ZAVError& error, sqlite3* connection, const std::string& path,
                                     bool keyWasGiven);

}  // namespace zav
