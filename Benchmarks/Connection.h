#pragma once

#include <string>

struct sqlite3;

namespace zav::bench {

/// Sets a connection up as the library sets up its own.
void configure(sqlite3* connection);

/// Runs a script; throws when it fails.
void execute(sqlite3* connection, const std::string& script);

/// Removes the indexes of all tables, and answers the script that makes them again: one that is built when
/// its table is filled is built by one sort.
std::string dropIndexes(sqlite3* connection);

/// A digest of all that the store holds, and how many rows that is.
std::string digestOfTables(sqlite3* connection);

}  // namespace zav::bench
