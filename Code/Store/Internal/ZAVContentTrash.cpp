#include "Store/Internal/ZAVContentTrash.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "Store/Internal/ZAVContentNames.h"

namespace zav {

void ZAVContentTrash::settle(const ZAVContentRows& rows) const {
    const auto naming = rows.naming(location);
    const bool isNeeded =
        naming.empty() || std::any_of(naming.begin(), naming.end(), [](const ZAVContentRow& row) {
            return !row.isPurged && !row.isToDownload;
        });
    if (isNeeded && directory.renameToFreeName(trashName, name)) {
        return;
    }
    const auto old = directory.status(trashName);
    const auto present = directory.status(name);
    const bool isSecondName = old && present && old->identity == present->identity;
    // What has the name now is the file of the rows. Where no row says so, it is not for this store to
    // choose.
    if (!isNeeded || isSecondName || (!naming.empty() && present && !present->isDirectory)) {
        directory.remove(trashName);
    }
}

std::vector<ZAVContentTrash> ZAVFindTrash(const ZAVContentDirectory& root, const std::string& mark) {
    namespace fs = std::filesystem;
    std::vector<ZAVContentTrash> result;
    std::vector<std::vector<std::string>> toVisit{{}};
    while (!toVisit.empty()) {
        const std::vector<std::string> names = std::move(toVisit.back());
        toVisit.pop_back();
        fs::path path = root.path();
        for (const std::string& name : names) {
            path /= name;
        }
        std::error_code failure;
        for (fs::directory_iterator entry(path, failure), end; !failure && entry != end;
             entry.increment(failure)) {
            std::error_code ignored;
            const std::string name = entry->path().filename().string();
            if (fs::is_directory(entry->symlink_status(ignored))) {
                toVisit.push_back(names);
                toVisit.back().push_back(name);
            } else if (const auto before = ZAVNameBeforeTrash(name, mark)) {
                try {
                    if (auto directory = root.open(names)) {
                        result.push_back({*std::move(directory), (path / *before).lexically_normal().string(),
                                          *before, name});
                    }
                } catch (const std::system_error&) {
                    continue;  // it cannot be reached any more
                }
            }
        }
    }
    return result;
}

}  // namespace zav
