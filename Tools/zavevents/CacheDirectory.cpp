#include "CacheDirectory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace zavevents {
namespace {

constexpr int directoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

std::optional<FileStatus> statusAt(int directory, const char* path, int flags) {
    struct stat status {};
    if (::fstatat(directory, path, &status, flags) != 0) {
        return std::nullopt;
    }
    return FileStatus{{status.st_dev, status.st_ino},
                      static_cast<std::uint64_t>(status.st_size),
                      static_cast<std::uint64_t>(status.st_nlink),
                      S_ISDIR(status.st_mode)};
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

std::optional<FileStatus> statusOfFile(const std::string& path, bool followLink) {
    return statusAt(AT_FDCWD, path.c_str(), followLink ? 0 : AT_SYMLINK_NOFOLLOW);
}

OpenDirectory::OpenDirectory(int descriptor) : descriptor_(descriptor) {
    if (descriptor_ < 0) {
        throwError(errno);
    }
}

OpenDirectory::~OpenDirectory() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

std::optional<FileStatus> OpenDirectory::status(const std::string& name) const {
    auto result = statusAt(descriptor_, name.c_str(), AT_SYMLINK_NOFOLLOW);
    if (!result && errno != ENOENT) {
        throwError(errno);
    }
    return result;
}

bool OpenDirectory::rename(const std::string& from, const std::string& target) const {
    if (::renameat(descriptor_, from.c_str(), descriptor_, target.c_str()) == 0) {
        return true;
    }
    if (errno != ENOENT) {
        throwError(errno);
    }
    return false;
}

bool OpenDirectory::renameToFreeName(const std::string& from, const std::string& target) const {
    if (::linkat(descriptor_, from.c_str(), descriptor_, target.c_str(), 0) == 0) {
        remove(from);
        return true;
    }
    if (errno == EEXIST || status(target)) {
        return false;
    }
    return rename(from, target);  // a file system without links
}

void OpenDirectory::remove(const std::string& name) const {
    if (::unlinkat(descriptor_, name.c_str(), 0) != 0 && errno != ENOENT) {
        throwError(errno);
    }
}

void OpenDirectory::sync() const noexcept {
    // Not every file system can. Whichever of a name and a mark is kept alone, no file is lost.
    static_cast<void>(::fsync(descriptor_));
}

CacheDirectory::CacheDirectory(const std::string& path)
    : path_(pathWithoutLinks(path)), root_(openRoot(path_, path)) {}

std::optional<OpenDirectory> CacheDirectory::open(const std::vector<std::string>& names) const {
    OpenDirectory directory(::fcntl(root_.descriptor_, F_DUPFD_CLOEXEC, 0));
    for (const std::string& name : names) {
        const int next = ::openat(directory.descriptor_, name.c_str(), directoryFlags | O_NOFOLLOW);
        if (next < 0 && errno == ENOENT) {
            return std::nullopt;
        }
        directory = OpenDirectory(next);
    }
    return directory;
}

}  // namespace zavevents
