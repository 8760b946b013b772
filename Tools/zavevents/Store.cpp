#include "Store.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>

#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVPrintable.h>

#include "ToolError.h"

namespace zavevents {

using namespace zav;

namespace {

constexpr std::size_t longestKey = 4096;

void printRun(const FMStatementRun& run) {
    const std::chrono::duration<double, std::milli> milliseconds = run.duration;
    static_cast<void>(std::fprintf(stderr, "%10.3f ms %8llu rows  %.*s%s\n", milliseconds.count(),
                                   static_cast<unsigned long long>(run.rows),
                                   static_cast<int>(run.sql.size()), run.sql.data(),
                                   run.succeeded ? "" : "  -- failed"));
}

/// The path in a form in which the engine takes none for anything else than a file's name, as it does with
/// ":memory:".
std::string pathOf(const DatabaseFile& file) {
    return file.path.starts_with('/') ? file.path : "./" + file.path;
}

FMDatabaseOptions optionsOf(const DatabaseFile& file) {
    FMDatabaseOptions options;
    options.key = file.key;
    return options;
}

/// For a file that exists and stays as it is.
FMDatabaseOptions optionsOfExisting(const DatabaseFile& file) {
    FMDatabaseOptions options = optionsOf(file);
    options.access = FMDatabaseOptions::Access::readWrite;
    options.writeAheadLog = false;
    return options;
}

/// An error that another command can do something about says which.
/// @throws ToolError unless the file was opened.
void requireOpened(bool isOpened, const DatabaseFile& file, const ZAVError& error) {
    const bool isOlder =
        error.domain() == ZAVErrorDomainDatabase && error.code() == ZAVDatabaseErrorOlderSchema;
    require(isOpened, ZAVPrintable(file.path),
            isOlder ? ZAVError(error.domain(), error.code(),
                               error.message() + "; 'zavevents init' brings it up to date")
                    : error);
}

/// What was opened, or the failure.
std::shared_ptr<FMDatabase> opened(const DatabaseFile& file, std::shared_ptr<FMDatabase> database,
                                   const ZAVError& error) {
    requireOpened(database != nullptr, file, error);
    if (file.isTraced) {
        database->setStatementObserver(printRun);
    }
    return database;
}

}  // namespace

std::string readKey(const std::string& path) {
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
    return bytes;
}

std::shared_ptr<FMDatabase> openOrCreateStore(const DatabaseFile& file) {
    ZAVError error;
    return opened(file, ZAVDatabaseSchema::openDatabase(pathOf(file), optionsOf(file), &error), error);
}

std::shared_ptr<FMDatabase> openStore(const DatabaseFile& file) {
    ZAVError error;
    return opened(file, ZAVDatabaseSchema::openCurrentDatabase(pathOf(file), optionsOfExisting(file), &error),
                  error);
}

std::unique_ptr<ZAVEventStore> openClientStore(const DatabaseFile& file, ZAVEventStoreOptions options) {
    // Looked at before: the store would make a file, and bring an old one up to date.
    const auto present = openStore(file);
    if (file.key) {
        options.database.keyProvider = [&file] { return file.key; };
    }
    options.readers = 1;
    ZAVError error;
    auto store = ZAVEventStore::open(pathOf(file), options, &error);
    requireOpened(store != nullptr, file, error);
    if (file.isTraced) {
        const auto trace = [](const ZAVRepositories& repositories) {
            repositories.events.database().setStatementObserver(printRun);
            return true;
        };
        store->write(trace);
        store->read(trace);
    }
    return store;
}

std::shared_ptr<FMDatabase> openAnyDatabase(const DatabaseFile& file) {
    ZAVError error;
    return opened(file, FMDatabase::databaseWithPath(pathOf(file), optionsOfExisting(file), &error), error);
}

}  // namespace zavevents
