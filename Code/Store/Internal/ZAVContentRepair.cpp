#include "Store/Internal/ZAVContentRepair.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include <ZAVEventRepository/ZAVContentPath.h>
#include <ZAVEventRepository/ZAVUUID.h>

#include "Store/Internal/ZAVContentNames.h"
#include "Store/Internal/ZAVContentTrash.h"
#include "Store/Internal/ZAVFilesWithoutRow.h"

namespace zav {
namespace {

namespace fs = std::filesystem;

/// How many files or rows go under one lock, for which others wait.
constexpr std::size_t perLock = 128;

/// Whether the library gives this name to the file of a part.
bool isNameOfPart(std::string_view name) {
    constexpr std::string_view prefix = "part-";
    return name.starts_with(prefix) && name.size() > prefix.size() &&
           name.find_first_not_of("0123456789", prefix.size()) == std::string_view::npos;
}

/// The names in a directory that is reached without links; none when it is not.
std::vector<std::string> entriesOf(const fs::path& directory) {
    std::vector<std::string> names;
    std::error_code failure;
    if (!fs::is_directory(fs::symlink_status(directory, failure))) {
        return names;
    }
    for (fs::directory_iterator entry(directory, failure), end; !failure && entry != end;
         entry.increment(failure)) {
        names.push_back(entry->path().filename().string());
    }
    return names;
}

/// Calls `work` with some of the items at a time.
template <class Item, class Work>
void inBatches(const std::vector<Item>& items, const Work& work) {
    for (std::size_t begin = 0; begin < items.size(); begin += perLock) {
        work(std::span(items).subspan(begin, std::min(perLock, items.size() - begin)));
    }
}

}  // namespace

struct ZAVContentRepair::File {
    std::vector<std::string> names;
    std::string place;

    /// Its path below the directory.
    [[nodiscard]] std::string path() const {
        std::string path;
        for (const std::string& name : names) {
            path += (path.empty() ? "" : "/") + name;
        }
        return path;
    }
};

ZAVContentRepair::ZAVContentRepair(ZAVContentSession& session, std::vector<std::string> folders,
                                   std::time_t unchangedSince)
    : session_(session), folders_(std::move(folders)), unchangedSince_(unchangedSince) {}

/// Those that are old enough.
std::vector<ZAVContentRepair::File> ZAVContentRepair::filesOfLibrary() const {
    std::vector<File> files;
    fs::path root = session_.directory().path();
    for (const std::string& folder : folders_) {
        root /= folder;
        std::error_code failure;
        if (!fs::is_directory(fs::symlink_status(root, failure))) {
            return files;
        }
    }
    for (const std::string& event : entriesOf(root)) {
        if (!ZAVUUID::fromString(event)) {
            continue;
        }
        for (const std::string& name : entriesOf(root / event)) {
            if (!isNameOfPart(name) && !ZAVNameAfterPartial(name)) {
                continue;
            }
            File file{folders_, (root / event / name).string()};
            file.names.insert(file.names.end(), {event, name});
            const auto status = ZAVStatusOfFile(file.place, false);
            if (status && !status->isDirectory && status->changed <= unchangedSince_) {
                files.push_back(std::move(file));
            }
        }
    }
    return files;
}

/// Whether the file of a row is there, as far as its path leads to a place of content at all.
bool ZAVContentRepair::hasFile(const ZAVContentRow& row) const {
    const auto path = ZAVContentPath::parse(row.filePath);
    if (!path) {
        return true;
    }
    try {
        return session_.directory().find(path->names()).has_value();
    } catch (const std::system_error&) {
        return true;  // it cannot be known
    }
}

ZAVContentOrphans ZAVContentRepair::find() {
    ZAVContentOrphans found;
    const std::vector<File> files = filesOfLibrary();
    session_.inSnapshot([&](const ZAVContentRows& rows) {
        for (const File& file : files) {
            const auto status = ZAVStatusOfFile(file.place, false);
            if (status && rows.naming(file.place).empty() && !rows.isNeeded(status->identity) &&
                !rows.isOfDatabase(status->identity)) {
                found.files.push_back(file.path());
                found.bytes += status->names == 1 ? status->size : 0;
            }
        }
        for (const std::int64_t row : rows.present()) {
            if (const auto part = rows.row(row); part && !hasFile(*part)) {
                (part->isComplete ? found.partsWithoutFile : found.uploadsWithoutFile).push_back(row);
            }
        }
    });
    return found;
}

ZAVContentOrphans ZAVContentRepair::repair() {
    settleTrash();
    ZAVContentOrphans settled;
    removeFiles(settled);
    markParts(settled);
    return settled;
}

void ZAVContentRepair::settleTrash() {
    const auto mark = session_.trashMark();
    const auto trash = mark ? ZAVFindTrash(session_.directory(), *mark) : std::vector<ZAVContentTrash>();
    inBatches(trash, [&](std::span<const ZAVContentTrash> some) {
        session_.underLock([&](const ZAVContentRows& rows) {
            for (const ZAVContentTrash& file : some) {
                try {
                    file.settle(rows);
                } catch (const std::system_error&) {
                    continue;  // the file system refuses; the others are settled all the same
                }
            }
        });
    });
}

void ZAVContentRepair::removeFiles(ZAVContentOrphans& settled) {
    inBatches(filesOfLibrary(), [&](std::span<const File> some) {
        session_.underLock([&](const ZAVContentRows& rows) {
            for (const File& file : some) {
                try {
                    if (const auto bytes = ZAVRemoveFileWithoutRow(rows, session_.directory(), file.names,
                                                                   unchangedSince_)) {
                        settled.files.push_back(file.path());
                        settled.bytes += *bytes;
                    }
                } catch (const std::system_error&) {
                    continue;
                }
            }
        });
    });
}

void ZAVContentRepair::markParts(ZAVContentOrphans& settled) {
    const ZAVContentOrphans found = find();
    settled.uploadsWithoutFile = found.uploadsWithoutFile;
    inBatches(found.partsWithoutFile, [&](std::span<const ZAVDatabaseIdentifier> some) {
        session_.underLock([&](ZAVContentRows& rows) {
            for (const ZAVDatabaseIdentifier row : some) {
                const auto part = rows.row(row);
                if (part && part->isComplete && !part->isPurged && !hasFile(*part)) {
                    rows.markPurged(row);
                    settled.partsWithoutFile.push_back(row);
                }
            }
        });
    });
}

}  // namespace zav
