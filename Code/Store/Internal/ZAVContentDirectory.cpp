#include "Store/Internal/ZAVContentDirectory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace zav {
namespace {

constexpr int directoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t ownersDirectory = 0700;
constexpr mode_t ownersFile = 0600;

ZAVFileStatus statusFrom(const struct stat& status) {
    return {{status.st_dev, status.st_ino},
            static_cast<std::uint64_t>(status.st_size),
            static_cast<std::uint64_t>(status.st_nlink),
            S_ISDIR(status.st_mode),
            S_ISREG(status.st_mode),
            std::max(status.st_mtime, status.st_ctime)};
}

std::optional<ZAVFileStatus> statusAt(int directory, const char* path, int flags) {
    struct stat status {};
    return ::fstatat(directory, path, &status, flags) == 0 ? std::optional(statusFrom(status)) : std::nullopt;
}

[[noreturn]] void throwError(int error) {
    throw std::system_error(error, std::generic_category());
}

std::string pathWithoutLinks(const std::string& path) {
    std::error_code error;
    std::string result = std::filesystem::canonical(path, error).string();
    if (error) {
        throw std::system_error(error, path);
    }
    return result;
}

/// A descriptor of the directory, which the user calls `name`.
int openRoot(const std::string& path, const std::string& name) {
    const int descriptor = ::open(path.c_str(), directoryFlags);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    return descriptor;
}

}  // namespace

std::optional<ZAVFileStatus> ZAVStatusOfFile(const std::string& path, bool followLink) {
    return statusAt(AT_FDCWD, path.c_str(), followLink ? 0 : AT_SYMLINK_NOFOLLOW);
}

bool ZAVIsFileOfDatabase(const ZAVFileIdentity& file, const std::string& database) {
    constexpr std::array<const char*, 4> suffixes{"", "-wal", "-shm", "-journal"};
    return std::any_of(suffixes.begin(), suffixes.end(), [&](const char* suffix) {
        const auto status = ZAVStatusOfFile(database + suffix);
        return status && status->identity == file;
    });
}

ZAVFileDescriptor::~ZAVFileDescriptor() {
    if (number_ >= 0) {
        ::close(number_);
    }
}

ZAVOpenDirectory::ZAVOpenDirectory(int descriptor) : descriptor_(descriptor) {
    if (descriptor < 0) {
        throwError(errno);
    }
}

std::optional<ZAVFileStatus> ZAVOpenDirectory::status(const std::string& name) const {
    auto result = statusAt(descriptor_.number(), name.c_str(), AT_SYMLINK_NOFOLLOW);
    if (!result && errno != ENOENT) {
        throwError(errno);
    }
    return result;
}

std::optional<ZAVFileDescriptor> ZAVOpenDirectory::openForReading(const std::string& name,
                                                                  const ZAVFileIdentity& identity) const {
    return open(name, identity, O_RDONLY);
}

std::optional<ZAVFileDescriptor> ZAVOpenDirectory::openForWriting(const std::string& name,
                                                                  const ZAVFileIdentity& identity) const {
    return open(name, identity, O_WRONLY);
}

std::optional<ZAVFileDescriptor> ZAVOpenDirectory::open(const std::string& name,
                                                        const ZAVFileIdentity& identity, int flags) const {
    // Such a descriptor is of the name alone: no lock is dropped when it is closed.
    const ZAVFileDescriptor looked(
        ::openat(descriptor_.number(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (looked.number() < 0 || ::fstat(looked.number(), &status) != 0) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        throwError(errno);
    }
    if (!S_ISREG(status.st_mode) || statusFrom(status).identity != identity) {
        return std::nullopt;
    }
    const std::string path = "/proc/self/fd/" + std::to_string(looked.number());
    ZAVFileDescriptor opened(::open(path.c_str(), flags | O_CLOEXEC));
    if (opened.number() < 0) {
        throwError(errno);
    }
    return opened;
}

ZAVFileDescriptor ZAVOpenDirectory::make(const std::string& name) const {
    ZAVFileDescriptor made(::openat(descriptor_.number(), name.c_str(),
                                    O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, ownersFile));
    if (made.number() < 0) {
        throwError(errno);
    }
    return made;
}

bool ZAVOpenDirectory::rename(const std::string& from, const std::string& target) const {
    if (::renameat(descriptor_.number(), from.c_str(), descriptor_.number(), target.c_str()) == 0) {
        return true;
    }
    if (errno != ENOENT) {
        throwError(errno);
    }
    return false;
}

bool ZAVOpenDirectory::renameToFreeName(const std::string& from, const std::string& target) const {
    if (::linkat(descriptor_.number(), from.c_str(), descriptor_.number(), target.c_str(), 0) == 0) {
        remove(from);
        return true;
    }
    if (errno == EEXIST || status(target)) {
        return false;
    }
    return rename(from, target);  // a file system without links
}

void ZAVOpenDirectory::remove(const std::string& name) const {
    if (::unlinkat(descriptor_.number(), name.c_str(), 0) != 0 && errno != ENOENT) {
        throwError(errno);
    }
}

void ZAVOpenDirectory::removeIfEmpty(const std::string& name) const noexcept {
    static_cast<void>(::unlinkat(descriptor_.number(), name.c_str(), AT_REMOVEDIR));
}

void ZAVOpenDirectory::sync() const noexcept {
    // Not every file system can. Whichever of a name and a mark is kept alone, no file is lost.
    static_cast<void>(::fsync(descriptor_.number()));
}

ZAVContentDirectory::ZAVContentDirectory(const std::string& path)
    : path_(pathWithoutLinks(path)), root_(openRoot(path_, path)) {}

ZAVContentDirectory ZAVContentDirectory::make(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) {
        throw std::system_error(error, path);
    }
    return ZAVContentDirectory(path);
}

std::optional<ZAVOpenDirectory> ZAVContentDirectory::open(Names names) const {
    ZAVOpenDirectory directory(::fcntl(root_.descriptor_.number(), F_DUPFD_CLOEXEC, 0));
    for (const std::string& name : names) {
        const int next = ::openat(directory.descriptor_.number(), name.c_str(), directoryFlags | O_NOFOLLOW);
        if (next < 0 && errno == ENOENT) {
            return std::nullopt;
        }
        directory = ZAVOpenDirectory(next);
    }
    return directory;
}

ZAVOpenDirectory ZAVContentDirectory::openOrMake(Names names) const {
    constexpr int attempts = 100;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        for (std::size_t depth = 0; depth < names.size(); ++depth) {
            const auto parent = open(names.first(depth));
            if (!parent) {
                break;  // somebody has removed what was empty
            }
            if (::mkdirat(parent->descriptor_.number(), names[depth].c_str(), ownersDirectory) != 0 &&
                errno != EEXIST && errno != ENOENT) {
                throwError(errno);
            }
        }
        if (auto directory = open(names)) {
            return *std::move(directory);
        }
    }
    throwError(ENOENT);
}

std::optional<ZAVFoundFile> ZAVContentDirectory::find(Names names) const {
    auto directory = open(names.first(names.size() - 1));
    const auto status = directory ? directory->status(names.back()) : std::nullopt;
    return status ? std::optional(ZAVFoundFile{*std::move(directory), *status}) : std::nullopt;
}

}  // namespace zav
