#pragma once

#include <memory>
#include <optional>
#include <string>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVEventStore.h>

namespace zavevents {

/// A database file, and how it is opened.
struct DatabaseFile {
    std::string path;                  ///< of a file, whatever it looks like
    std::optional<std::string> key{};  ///< of an encrypted one
    bool isTraced = false;  ///< whether each statement is printed to standard error, with its time and rows
};

/// The key that a file holds: its bytes without a line break at the end.
/// @throws ToolError when the file cannot be read or is too long for a key.
[[nodiscard]] std::string readKey(const std::string& path);

/// Opens a database file, makes it when there is none, and brings its schema up to date.
/// @throws ToolError
[[nodiscard]] std::shared_ptr<zav::FMDatabase> openOrCreateStore(const DatabaseFile& file);

/// Opens an existing event store as it is.
/// @throws ToolError when there is none, or the library would not open it or would have to change its schema;
/// the file is then left untouched.
[[nodiscard]] std::shared_ptr<zav::FMDatabase> openStore(const DatabaseFile& file);

/// Opens an existing event store as it is, for what a client does with it.
/// @throws ToolError as `openStore`.
[[nodiscard]] std::unique_ptr<zav::ZAVEventStore> openClientStore(const DatabaseFile& file,
                                                                  zav::ZAVEventStoreOptions options);

/// Opens an existing database of whatever schema, to look at it.
/// @throws ToolError
[[nodiscard]] std::shared_ptr<zav::FMDatabase> openAnyDatabase(const DatabaseFile& file);

}  // namespace zavevents
