#include "Store/Internal/ZAVFilesWithoutRow.h"

#include <system_error>

#include <ZAVEventRepository/ZAVContentPath.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {
namespace {

std::string placeOfFile(const ZAVContentDirectory& directory, ZAVContentDirectory::Names names) {
    std::string place = directory.path();
    for (const std::string& name : names) {
        place += (place.ends_with('/') ? "" : "/") + name;
    }
    return place;
}

}  // namespace

std::optional<std::uint64_t> ZAVRemoveFileWithoutRow(const ZAVContentRows& rows,
                                                     const ZAVContentDirectory& directory,
                                                     ZAVContentDirectory::Names names,
                                                     std::optional<std::time_t> unchangedSince) {
    const auto parents = names.first(names.size() - 1);
    const auto parent = directory.open(parents);
    const auto status = parent ? parent->status(names.back()) : std::nullopt;
    if (!status || status->isDirectory || (unchangedSince && status->changed > *unchangedSince) ||
        !rows.naming(placeOfFile(directory, names)).empty() || rows.isNeeded(status->identity) ||
        rows.isOfDatabase(status->identity)) {
        return std::nullopt;
    }
    parent->remove(names.back());
    if (!parents.empty() && ZAVUUID::fromString(parents.back())) {
        if (const auto above = directory.open(parents.first(parents.size() - 1))) {
            above->removeIfEmpty(parents.back());
        }
    }
    return status->names == 1 ? status->size : 0;
}

void ZAVRemoveFilesWithoutRow(FMDatabase& database, const ZAVStoreOwner& owner,
                              const std::vector<std::string>& paths) {
    const ZAVContentDirectory directory(owner.contentDirectoryPath());
    std::vector<ZAVContentPath> present;
    for (const std::string& text : paths) {
        const auto path = ZAVContentPath::parse(text);
        if (path && ZAVStatusOfFile(placeOfFile(directory, path->names()), false)) {
            present.push_back(*path);
        }
    }
    if (present.empty()) {
        return;
    }
    ZAVContentRows rows(database, directory.path());
    rows.refresh();
    for (const ZAVContentPath& path : present) {
        try {
            ZAVRemoveFileWithoutRow(rows, directory, path.names(), std::nullopt);
        } catch (const std::system_error&) {
            continue;  // the others go all the same
        }
    }
}

}  // namespace zav
