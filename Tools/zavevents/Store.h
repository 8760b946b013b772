#pragma once

#include <memory>
#include <string>

#include <ZAVEventRepository/FMDatabase.h>

namespace zavevents {

/// Has each statement that runs in a store opened from now on printed to standard error, with its time and
/// rows.
void traceStatements();

/// Opens every database from now on with the key that a file holds: its bytes without a line break at the
/// end.
/// @throws ToolError when the file cannot be read or is too long for a key.
void useKeyFile(const std::string& path);

/// Opens a database file, makes it when there is none, and brings its schema up to date. As in the other
/// functions here the path is that of a file, whatever it looks like.
/// @throws ToolError
[[nodiscard]] std::shared_ptr<zav::FMDatabase> openOrCreateStore(const std::string& path);

/// Opens an existing event store as it is.
/// @throws ToolError when there is none, or the library would not open it or would have to change its schema;
/// the file is then left untouched.
[[nodiscard]] std::shared_ptr<zav::FMDatabase> openStore(const std::string& path);

/// Opens an existing database of whatever schema, to look at it.
/// @throws ToolError
[[nodiscard]] std::shared_ptr<zav::FMDatabase> openAnyDatabase(const std::string& path);

/// The first column of the only row of a query without values, as a number.
/// @param what what cannot be done when the query fails; by default the query itself.
/// @throws ToolError
[[nodiscard]] std::int64_t queryNumber(zav::FMDatabase& database, const std::string& sql,
                                       const std::string& what = "");

}  // namespace zavevents
