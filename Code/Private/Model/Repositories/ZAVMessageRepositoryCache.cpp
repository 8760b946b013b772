#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>

#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <utility>

#include "Private/Model/Repositories/Internal/ZAVCacheDirectoryOfThread.h"

namespace zav {
namespace {

thread_local const ZAVURL* directoryOfThread = nullptr;

ZAVURL defaultDirectory() {
    std::filesystem::path directory;
    if (const char* cache = std::getenv("XDG_CACHE_HOME"); cache != nullptr && *cache == '/') {
        directory = cache;
    } else if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/') {
        directory = std::filesystem::path(home) / ".cache";
    } else {
        directory = "/var/tmp";
    }
    return ZAVURL::fileURLWithDirectoryPath((directory / "ZAVEventRepository").string());
}

std::mutex directoryMutex;

ZAVURL& currentDirectory() {
    // Never destroyed: a thread may read while the process ends.
    static ZAVURL& directory = *new ZAVURL(defaultDirectory());
    return directory;
}

/// `text` as the name of one directory. Percent escapes would not do: they are undone on the way to the file
/// system, where a user called "../x" would then name another directory. "." and ".." are escaped for the
/// same reason.
std::string directoryName(std::string_view text) {
    static constexpr std::string_view plain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_~";
    static constexpr std::string_view digits = "0123456789ABCDEF";
    const bool onlyDots = text.find_first_not_of('.') == std::string_view::npos;
    std::string name;
    for (const char character : text) {
        if (plain.find(character) != std::string_view::npos || (character == '.' && !onlyDots)) {
            name += character;
        } else {
            const auto byte = static_cast<unsigned char>(character);
            name += '=';
            name += digits[byte >> 4];
            name += digits[byte & 0x0F];
        }
    }
    return name.empty() ? "=" : name;
}

}  // namespace

ZAVCacheDirectoryOfThread::ZAVCacheDirectoryOfThread(const ZAVURL* directory) noexcept
    : before_(std::exchange(directoryOfThread, directory == nullptr ? directoryOfThread : directory)) {}

ZAVCacheDirectoryOfThread::~ZAVCacheDirectoryOfThread() {
    directoryOfThread = before_;
}

ZAVURL ZAVMessageRepositoryCacheBaseDirectoryURL() {
    if (directoryOfThread != nullptr) {
        return *directoryOfThread;
    }
    const std::lock_guard lock(directoryMutex);
    return currentDirectory();
}

void ZAVSetMessageRepositoryCacheBaseDirectoryURL(const ZAVURL& directory) {
    const std::lock_guard lock(directoryMutex);
    currentDirectory() = directory;
}

std::optional<ZAVURL> ZAVMessageRepositoryMakeMessagePartBaseDirectoryURL(
    const ZAVUUID& appID, std::string_view authenticatedUserID, const std::optional<ZAVUUID>& eventUUID) {
    if (!eventUUID) {
        return std::nullopt;
    }
    return ZAVURL::URLWithString(
        appID.UUIDString() + "/" + directoryName(authenticatedUserID) + "/" + eventUUID->UUIDString() + "/",
        ZAVMessageRepositoryCacheBaseDirectoryURL());
}

std::optional<ZAVURL> ZAVMessageRepositoryMakeMessagePartFileURL(
    std::uint64_t index, const std::optional<ZAVURL>& baseDirectoryURL) {
    if (!baseDirectoryURL) {
        return std::nullopt;
    }
    const std::string path = baseDirectoryURL->relativePath() + "part-" + std::to_string(index);
    return ZAVURL::URLWithString(path, baseDirectoryURL->baseURL().value_or(*baseDirectoryURL));
}

}  // namespace zav
