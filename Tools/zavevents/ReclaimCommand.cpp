#include <iostream>
#include <memory>
#include <string>

#include "Arguments.h"
#include "CacheDirectory.h"
#include "Commands.h"
#include "Help.h"
#include "Printable.h"
#include "Private/Model/Repositories/ZAVEventRepository.h"
#include "Private/Model/Repositories/ZAVMessageRepositoryCache.h"
#include "Store.h"
#include "StoredPart.h"
#include "ToolError.h"

namespace zavevents {
namespace {

using namespace zav;

struct ReclaimOptions {
    std::string database;
    std::uint64_t bytes = 0;
    std::string cache;
    bool dryRun = false;
};

/// Removes a part's file and marks the part purged. Returns the bytes that this freed.
std::uint64_t reclaimPart(const ZAVEventRepository& repository, const CacheDirectory& cache,
                          ZAVEventContent& part, bool dryRun) {
    keepStoredFields(repository.database(), part, false, false);
    const auto size = cache.removeFile(*part.fileURL(), dryRun);
    std::cout << printable(part.fileURL()->relativePath()) << ": "
              << (size ? std::to_string(*size) + " bytes" : std::string("was gone already")) << '\n';
    if (!dryRun) {
        part.setIsPurged(true);
        ZAVError error;
        if (!repository.persistEventContentUpdate(part, &error)) {
            throw ToolError("cannot mark the part as purged", error);
        }
    }
    return size.value_or(0);
}

void reclaim(const ReclaimOptions& options) {
    const CacheDirectory cache(options.cache);
    ZAVSetMessageRepositoryCacheBaseDirectoryURL(cache.url());
    const ZAVEventRepository repository(openStore(options.database));
    ZAVError error;
    const auto parts = repository.leastRecentlyAccessedEventContentPartsForSize(options.bytes, &error);
    if (!parts) {
        throw ToolError("cannot choose content parts", error);
    }
    std::uint64_t freed = 0;
    std::size_t done = 0;
    for (const auto& part : *parts) {
        try {
            freed += reclaimPart(repository, cache, *part, options.dryRun);
            ++done;
        } catch (const ToolError& refusal) {
            std::cerr << refusal.what() << '\n';
        }
    }
    std::cout << done << " parts, " << freed << (options.dryRun ? " bytes to free\n" : " bytes freed\n");
    if (done != parts->size()) {
        throw ToolError(std::to_string(parts->size() - done) + " parts could not be reclaimed");
    }
}

}  // namespace

void addReclaimCommand(CLI::App& app, Action& action) {
    auto* const command = app.add_subcommand(
        "reclaim", "Remove the files of the least recently accessed parts and mark them purged");
    const auto options = std::make_shared<ReclaimOptions>();
    addDatabaseOption(*command, options->database);
    addOption(*command, "--bytes", options->bytes, amount(), "How much to free")->required();
    addOption(*command, "--cache", options->cache, fileName(),
              "The cache directory; nothing outside it is touched")
        ->required();
    command->add_flag("--dry-run", options->dryRun, "Say what would be removed, and remove nothing");
    setExample(*command, "chat.db --bytes 100000000 --cache ~/.cache/ZAVEventRepository --dry-run");
    command->callback([options, &action] { action = [options] { reclaim(*options); }; });
}

}  // namespace zavevents
