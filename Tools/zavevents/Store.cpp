#include "Store.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>
#include <utility>

#include "Private/Database/ZAVDatabaseSchema.h"
#include "ToolError.h"

namespace zavevents {

using namespace zav;

namespace {

constexpr std::size_t longestKey = 4096;

/// What `--key-file` says, for all of this process.
std::optional<std::string> key;

bool tracing = false;

void printRun(const FMStatementRun& run) {
    const std::chrono::duration<double, std::milli> milliseconds = run.duration;
    static_cast<void>(std::fprintf(stderr, "%10.3f ms %8llu rows  %.*s%s\n", milliseconds.count(),
                                   static_cast<unsigned long long>(run.rows),
                                   static_cast<int>(run.sql.size()), run.sql.data(),
                                   run.succeeded ? "" : "  -- failed"));
}

std::shared_ptr<FMDatabase> watched(std::shared_ptr<FMDatabase> database) {
    if (tracing) {
        database->setStatementObserver(printRun);
    }
    return database;
}

}  // namespace

void traceStatements() {
    tracing = true;
}

void useKeyFile(const std::string& path) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::string bytes(longestKey + 1, '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (file.bad() || !file.is_open()) {
        throw ToolError(path + ": " + std::strerror(errno));
    }
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    if (bytes.size() > longestKey) {
        throw ToolError(path + ": a key has at most " + std::to_string(longestKey) + " bytes");
    }
    for (const char lineEnd : {'\n', '\r'}) {
        if (bytes.ends_with(lineEnd)) {
            bytes.pop_back();
        }
    }
    key = bytes;
}

std::shared_ptr<FMDatabase> openOrCreateStore(const std::string& path) {
    FMDatabaseOptions options;
    options.key = key;
    ZAVError error;
    auto database = ZAVDatabaseSchema::openDatabase(path, options, &error);
    if (!database) {
        throw ToolError(path, error);
    }
    return watched(std::move(database));
}

std::shared_ptr<FMDatabase> openStore(const std::string& path) {
    FMDatabaseOptions options;
    options.access = FMDatabaseOptions::Access::readWrite;
    options.writeAheadLog = false;
    options.key = key;
    options.newestUserVersion = ZAVDatabaseSchema::currentVersion();
    ZAVError error;
    auto database = FMDatabase::databaseWithPath(path, options, &error);
    if (!database) {
        throw ToolError(path, error);
    }
    const auto version = ZAVDatabaseSchema::versionOfDatabase(*database, &error);
    if (!version) {
        throw ToolError(path, error);
    }
    // Version 0 with the table in place: another owner keeps the schema, and says nothing of its version.
    const bool ownedByOthers =
        *version == 0 &&
        queryNumber(*database,
                    "SELECT COUNT(*) FROM sqlite_master WHERE type = 'table' AND name = 'events'") == 1;
    if (*version != ZAVDatabaseSchema::currentVersion() && !ownedByOthers) {
        throw ToolError(path + ": " +
                        (*version == 0 ? "this is no event store"
                                       : "the schema has version " + std::to_string(*version) + " of " +
                                             std::to_string(ZAVDatabaseSchema::currentVersion())) +
                        "; 'zavevents init' brings an empty or older database up to date");
    }
    return watched(std::move(database));
}

std::int64_t queryNumber(FMDatabase& database, const std::string& sql) {
    auto rows = database.executeQuery(sql);
    if (!rows || !rows->next()) {
        throw ToolError(sql, database.lastError());
    }
    return rows->longLongIntForColumnIndex(0);
}

}  // namespace zavevents
