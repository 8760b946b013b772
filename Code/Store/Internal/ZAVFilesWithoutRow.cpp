#include "Store/Internal/ZAVFilesWithoutRow.h"

#include <set>
#include <system_error>

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

/// Removes a file, if it may go as it is now, with a directory of an event that is empty then. Answers its
/// size; none when it stays.
template <class MayGo>
std::optional<std::uint64_t> removeFile(const ZAVContentDirectory& directory,
                                        ZAVContentDirectory::Names names, const MayGo& mayGo) {
    const auto found = directory.find(names);
    if (!found || found->status.isDirectory || !mayGo(found->status)) {
        return std::nullopt;
    }
    found->directory.remove(names.back());
    const auto parents = names.first(names.size() - 1);
    if (!parents.empty() && ZAVUUID::fromString(parents.back())) {
        if (const auto above = directory.open(parents.first(parents.size() - 1))) {
            above->removeIfEmpty(parents.back());
        }
    }
    return found->status.names == 1 ? found->status.size : 0;
}

bool isWithoutRow(const ZAVContentRows& rows, const std::string& place, const ZAVFileIdentity& file) {
    return rows.naming(place).empty() && !rows.isNeeded(file) && !rows.isOfDatabase(file);
}

}  // namespace

std::optional<std::uint64_t> ZAVRemoveFileWithoutRow(const ZAVContentRows& rows,
                                                     const ZAVContentDirectory& directory,
                                                     ZAVContentDirectory::Names names,
                                                     std::optional<std::time_t> unchangedSince) {
    return removeFile(directory, names, [&](const ZAVFileStatus& status) {
        return (!unchangedSince || status.changed <= *unchangedSince) &&
               isWithoutRow(rows, placeOfFile(directory, names), status.identity);
    });
}

ZAVFilesWithoutRow::ZAVFilesWithoutRow(const ZAVStoreOwner& owner,
                                       const std::vector<ZAVFileWithoutRow>& files)
    : directory_(owner.contentDirectoryPath()) {
    for (const ZAVFileWithoutRow& file : files) {
        const auto path = ZAVContentPath::parse(file.path);
        if (!path) {
            continue;
        }
        const std::string place = placeOfFile(directory_, path->names());
        std::vector<std::string> partial = path->names();
        partial.back() = ZAVPartialNameOfPart(partial.back(), file.part);
        for (const std::vector<std::string>& names : {path->names(), partial}) {
            if (ZAVStatusOfFile(placeOfFile(directory_, names), false)) {
                present_.push_back({place, names});
            }
        }
    }
}

void ZAVFilesWithoutRow::ask(FMDatabase& database) {
    std::set<std::string> places;
    for (const File& file : present_) {
        places.insert({file.place, placeOfFile(directory_, file.names)});
    }
    ZAVContentRows rows(database, directory_.path());
    rows.readThoseNaming(places);
    unnamed_.clear();
    for (const File& file : present_) {
        const std::string place = placeOfFile(directory_, file.names);
        const auto status = ZAVStatusOfFile(place, false);
        if (status && rows.naming(file.place).empty() && isWithoutRow(rows, place, status->identity)) {
            unnamed_.emplace_back(&file, status->identity);
        }
    }
}

void ZAVFilesWithoutRow::remove() const {
    for (const auto& asked : unnamed_) {
        try {
            removeFile(directory_, asked.first->names,
                       [&](const ZAVFileStatus& status) { return status.identity == asked.second; });
        } catch (const std::system_error&) {
            continue;  // the others go all the same
        }
    }
}

}  // namespace zav
