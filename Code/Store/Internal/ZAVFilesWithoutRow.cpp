#include "Store/Internal/ZAVFilesWithoutRow.h"

#include <set>
#include <system_error>
#include <utility>

#include <ZAVEventRepository/ZAVContentPath.h>
#include <ZAVEventRepository/ZAVUUID.h>

#include "Store/Internal/ZAVContentNames.h"

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
                              const std::vector<ZAVFileWithoutRow>& files) {
    const ZAVContentDirectory directory(owner.contentDirectoryPath());
    using Names = std::vector<std::string>;
    std::vector<std::pair<std::string, Names>> present;  // the place of the part's file, and what is there
    for (const ZAVFileWithoutRow& file : files) {
        const auto path = ZAVContentPath::parse(file.path);
        if (!path) {
            continue;
        }
        const std::string place = placeOfFile(directory, path->names());
        Names partial = path->names();
        partial.back() = ZAVPartialNameOfPart(partial.back(), file.part);
        for (const Names& names : {path->names(), partial}) {
            if (ZAVStatusOfFile(placeOfFile(directory, names), false)) {
                present.emplace_back(place, names);
            }
        }
    }
    if (present.empty()) {
        return;
    }
    std::set<std::string> places;
    for (const auto& [place, names] : present) {
        places.insert({place, placeOfFile(directory, names)});
    }
    ZAVContentRows rows(database, directory.path());
    rows.readThoseNaming(places);
    for (const auto& [place, names] : present) {
        try {
            if (rows.naming(place).empty()) {
                ZAVRemoveFileWithoutRow(rows, directory, names, std::nullopt);
            }
        } catch (const std::system_error&) {
            continue;  // the others go all the same
        }
    }
}

}  // namespace zav
