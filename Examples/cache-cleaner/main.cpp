// Brings the content cache below a limit: removes the files that were not used for longest, and nothing else.

#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>

#include <charconv>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

using namespace zav;
namespace fs = std::filesystem;

class CacheCleaner {
public:
    /// @param cache the cache directory, without links on the way.
    CacheCleaner(std::shared_ptr<FMDatabase> database, fs::path cache)
        : repository_(std::move(database)), cache_(std::move(cache)) {}

    /// Bytes that the files occupy, as the database knows them. The library's own total is read as 32 bits,
    /// which a cache of 2 GiB exceeds.
    [[nodiscard]] ZAVSize occupied() const {
        FMDatabase& database = repository_.database();
        auto rows = database.executeQuery(
            "SELECT SUM(size) FROM event_content_parts WHERE transfer_status IN (?, ?, ?) AND file_path IS NOT NULL "
            "AND (purged = 0 OR purged IS NULL)",
            ZAVContentTransferAwaitingUpload, ZAVContentTransferUploading, ZAVContentTransferComplete);
        require(rows && rows->next(), database.lastError());
        const std::int64_t bytes = rows->longLongIntForColumnIndex(0);
        if (bytes < 0) {
            throw std::runtime_error("the stored sizes make up no size");
        }
        return static_cast<ZAVSize>(bytes);
    }

    /// Removes files until at most `limit` bytes are occupied, or nothing is left that may go.
    /// @return whether the limit was reached.
    bool clean(ZAVSize limit) const {
        ZAVSize refused = 0;
        for (ZAVSize bytes = occupied(); bytes > limit; bytes = occupied()) {
            // The choice goes on until its sum is greater than what is asked for. Parts that were refused
            // stay in the way: as many bytes more are asked for.
            const ZAVSize refusedBefore = std::exchange(refused, 0);
            ZAVError error;
            const auto parts = repository_.leastRecentlyAccessedEventContentPartsForSize(
                bytes - limit - 1 + refusedBefore, &error);
            require(parts.has_value(), error);
            bool anyRemoved = false;
            for (const auto& part : *parts) {
                if (purge(*part)) {
                    anyRemoved = true;
                } else {
                    refused += static_cast<ZAVSize>(part->size());
                }
            }
            if (!anyRemoved && refused == refusedBefore) {
                return false;
            }
        }
        return true;
    }

private:
    static void require(bool succeeded, const ZAVError& error) {
        if (!succeeded) {
            throw std::runtime_error(error.description());
        }
    }

    /// Removes a part's file, then marks the part: who is interrupted in between finds the file gone next
    /// time, and marks the part then. False for a file that is not ours to remove.
    bool purge(ZAVEventContent& part) const {
        if (part.transferStatus() != ZAVContentTransferComplete) {
            std::cerr << "left alone: event " << part.eventDatabaseIdentifier() << " part " << part.index()
                      << " is not here as a whole\n";
            return false;
        }
        const auto file = fileInCache(part);
        if (!file) {
            std::cerr << "left alone: the file of event " << part.eventDatabaseIdentifier() << " part "
                      << part.index() << " is not in the cache\n";
            return false;
        }
        std::error_code failure;
        fs::remove(*file, failure);
        if (failure) {
            std::cerr << "left alone: " << file->string() << ": " << failure.message() << '\n';
            return false;
        }
        part.setIsPurged(true);
        ZAVError error;
        require(repository_.persistEventContentUpdate(part, &error), error);
        std::cout << "removed " << part.size() << " bytes: " << fs::relative(*file, cache_).string() << '\n';
        return true;
    }

    /// Where the file is; none when the stored path leads out of the cache, by its text or through a link.
    /// Nobody else may change directories of the cache meanwhile.
    [[nodiscard]] std::optional<fs::path> fileInCache(const ZAVEventContent& part) const {
        if (!part.fileURL()) {
            return std::nullopt;
        }
        const fs::path path(part.fileURL()->filePath());
        std::error_code failure;
        const fs::path directory = fs::weakly_canonical(path.parent_path(), failure);
        const fs::path name = path.filename();
        if (failure || name.empty() || name == "." || name == ".." ||
            path.native().find('\0') != std::string::npos ||
            fs::is_directory(fs::symlink_status(path, failure))) {
            return std::nullopt;
        }
        const auto [inCache, rest] =
            std::mismatch(cache_.begin(), cache_.end(), directory.begin(), directory.end());
        return inCache == cache_.end() ? std::optional(directory / name) : std::nullopt;
    }

    ZAVEventRepository repository_;
    fs::path cache_;
};

int run(const char* databasePath, const char* cachePath, ZAVSize limit) {
    const fs::path cache = fs::canonical(cachePath);
    ZAVSetMessageRepositoryCacheBaseDirectoryURL(ZAVURL::fileURLWithDirectoryPath(cache.string()));
    FMDatabaseOptions options;
    options.access = FMDatabaseOptions::Access::readWrite;
    ZAVError error;
    const auto database = ZAVDatabaseSchema::openDatabase(databasePath, options, &error);
    if (!database) {
        std::cerr << databasePath << ": " << error.description() << '\n';
        return 1;
    }
    const CacheCleaner cleaner(database, cache);
    const bool reached = cleaner.clean(limit);
    std::cout << cleaner.occupied() << " bytes remain\n";
    return reached ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    ZAVSize limit = 0;
    const char* const end = argc == 4 ? argv[3] + std::strlen(argv[3]) : nullptr;
    if (argc != 4 || std::from_chars(argv[3], end, limit).ptr != end || *argv[3] == '\0') {
        std::cerr << "cache-cleaner DATABASE CACHE-DIRECTORY BYTES\n";
        return 2;
    }
    try {
        return run(argv[1], argv[2], limit);
    } catch (const std::exception& reason) {
        std::cerr << reason.what() << '\n';
        return 1;
    }
}
