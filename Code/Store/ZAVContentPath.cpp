#include <ZAVEventRepository/ZAVContentPath.h>

#include <algorithm>
#include <utility>

#include <ZAVEventRepository/ZAVURL.h>

#include "Store/Internal/ZAVContentNames.h"

namespace zav {
namespace {

/// Where a reference leads from a directory, relative to it; none when that is outside of it.
std::optional<std::string> pathBelow(const std::string& directory, std::string_view text) {
    const auto url = ZAVURL::URLWithString(text, ZAVURL::fileURLWithDirectoryPath(directory));
    const std::string path = url->filePath();
    return path.starts_with(directory) ? std::optional(path.substr(directory.size())) : std::nullopt;
}

std::vector<std::string> namesIn(std::string_view path) {
    std::vector<std::string> names;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find('/'), path.size());
        if (const std::string_view name = path.substr(0, end); !name.empty() && name != ".") {
            names.emplace_back(name);
        }
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return names;
}

}  // namespace

std::optional<ZAVContentPath> ZAVContentPath::parse(std::string_view text, std::string* fault) {
    const auto refuse = [fault](const char* reason) {
        if (fault != nullptr) {
            *fault = reason;
        }
        return std::nullopt;
    };
    const std::string one = "/a/";
    const auto url = ZAVURL::URLWithString(text, ZAVURL::fileURLWithDirectoryPath(one));
    if (!url || !url->baseURL() || text.starts_with('/')) {
        return refuse("is not a relative path");
    }
    // "../a/x" leads back into a directory that happens to be called "a": what stays below its directory
    // does so from any.
    const auto path = pathBelow(one, text);
    if (!path || !pathBelow("/b/", text)) {
        return refuse("leads out of the cache directory");
    }
    std::vector<std::string> names = namesIn(*path);
    if (std::find(names.begin(), names.end(), "..") != names.end()) {
        return refuse("leads out of the cache directory");  // escaped, so that resolving the URL left them
    }
    if (names.empty() || !path->ends_with(names.back()) || path->find('\0') != std::string::npos) {
        return refuse("names no file");  // a directory, such as "a/" or "."; no name holds a zero byte
    }
    if (ZAVNameBeforeTrash(names.back())) {
        return refuse("is a name of files that are being removed");
    }
    if (ZAVNameAfterPartial(names.back())) {
        return refuse("is a name of files that are being written");
    }
    return ZAVContentPath(std::move(names));
}

}  // namespace zav
