#include "Store.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>
#include <utility>

#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVPrintable.h>

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

FMDatabaseOptions optionsWithKey() {
    FMDatabaseOptions options;
    options.key = key;
    return options;
}

/// The path in a form in which the engine takes none for anything else than a file's name, as it does with
/// ":memory:".
std::string fileAt(const std::string& path) {
    return path.starts_with('/') ? path : "./" + path;
}

/// An error that another command can do something about says which.
ZAVError withAdvice(const ZAVError& error) {
    const bool isOlder =
        error.domain() == ZAVErrorDomainDatabase && error.code() == ZAVDatabaseErrorOlderSchema;
    return isOlder ? ZAVError(error.domain(), error.code(),
                              error.message() + "; 'zavevents init' brings it up to date")
                   : error;
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
        throw ToolError(ZAVPrintable(path) + ": " + std::strerror(errno));
    }
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    if (bytes.size() > longestKey) {
        throw ToolError(ZAVPrintable(path) + ": a key has at most " + std::to_string(longestKey) + " bytes");
    }
    for (const char lineEnd : {'\n', '\r'}) {
        if (bytes.ends_with(lineEnd)) {
            bytes.pop_back();
        }
    }
    key = bytes;
}

std::shared_ptr<FMDatabase> openOrCreateStore(const std::string& path) {
    ZAVError error;
    auto database = ZAVDatabaseSchema::openDatabase(fileAt(path), optionsWithKey(), &error);
    if (!database) {
        throw ToolError(ZAVPrintable(path), error);
    }
    return watched(std::move(database));
}

std::shared_ptr<FMDatabase> openStore(const std::string& path) {
    FMDatabaseOptions options = optionsWithKey();
    options.access = FMDatabaseOptions::Access::readWrite;
    options.writeAheadLog = false;
    ZAVError error;
    auto database = ZAVDatabaseSchema::openCurrentDatabase(fileAt(path), options, &error);
    if (!database) {
        throw ToolError(ZAVPrintable(path), withAdvice(error));
    }
    return watched(std::move(database));
}

std::shared_ptr<FMDatabase> openAnyDatabase(const std::string& path) {
    FMDatabaseOptions options = optionsWithKey();
    options.access = FMDatabaseOptions::Access::readWrite;
    options.writeAheadLog = false;
    ZAVError error;
    auto database = FMDatabase::databaseWithPath(fileAt(path), options, &error);
    if (!database) {
        throw ToolError(ZAVPrintable(path), error);
    }
    return watched(std::move(database));
}

std::int64_t queryNumber(FMDatabase& database, const std::string& sql, const std::string& what) {
    auto rows = database.executeBoundedQuery(sql);
    ZAVError error = rows ? ZAVError() : database.lastError();
    if (!rows || !rows->nextWithError(&error)) {
        throw ToolError(what.empty() ? sql : what, error);
    }
    return rows->longLongIntForColumnIndex(0);
}

}  // namespace zavevents
