#include "CacheDirectory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include "ToolError.h"

namespace zavevents {
namespace {

/// A descriptor that is closed with its owner.
class Descriptor {
public:
    explicit Descriptor(int value) : value_(value) {}
    ~Descriptor() {
        if (value_ >= 0) {
            ::close(value_);
        }
    }
    Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(value_, other.value_);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int get() const { return value_; }

private:
    int value_;
};

/// The names on the way from `directory` to `path`.
/// @throws ToolError when the way leads out of the directory.
std::vector<std::string> namesBelow(const std::string& directory, const std::string& path) {
    const auto leadsOut = [&] {
        return ToolError(path.substr(0, path.find('\0')) + ": leads out of the cache directory");
    };
    const std::string prefix = directory.ends_with('/') ? directory : directory + "/";
    if (!path.starts_with(prefix) || path.find('\0') != std::string::npos) {
        throw leadsOut();
    }
    std::vector<std::string> names;
    for (const auto& name : std::filesystem::path(path.substr(prefix.size()))) {
        if (name == "..") {
            throw leadsOut();
        }
        if (!name.empty() && name != ".") {
            names.push_back(name.string());
        }
    }
    if (names.empty()) {
        throw leadsOut();
    }
    return names;
}

}  // namespace

CacheDirectory::CacheDirectory(const std::string& path) {
    std::error_code error;
    // cppcheck-suppress useInitializationList ; the error is wanted as well
    path_ = std::filesystem::canonical(path, error).string();
    if (!error) {
        descriptor_ = ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        error = std::error_code(descriptor_ < 0 ? errno : 0, std::generic_category());
    }
    if (error) {
        throw ToolError(path + ": " + error.message());
    }
}

CacheDirectory::~CacheDirectory() {
    ::close(descriptor_);
}

std::optional<std::uint64_t> CacheDirectory::removeFile(const zav::ZAVURL& file, bool dryRun) const {
    const std::string path = file.filePath();
    std::vector<std::string> names = namesBelow(path_, path);
    const std::string last = std::move(names.back());
    names.pop_back();
    // Every directory on the way is opened by its name in the one before, links refused: nobody can turn the
    // way aside between a look and the removal.
    Descriptor directory(::dup(descriptor_));
    for (const std::string& name : names) {
        Descriptor next(
            ::openat(directory.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (next.get() < 0) {
            if (errno == ENOENT) {
                return std::nullopt;
            }
            throw ToolError(path + ": " +
                            (errno == ELOOP || errno == ENOTDIR
                                 ? "leads through what is no directory of the cache"
                                 : std::strerror(errno)));
        }
        directory = std::move(next);
    }
    struct stat status {};
    const bool found = ::fstatat(directory.get(), last.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (found && S_ISDIR(status.st_mode)) {
        throw ToolError(path + ": " + std::strerror(EISDIR));
    }
    if (!found || (!dryRun && ::unlinkat(directory.get(), last.c_str(), 0) != 0)) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        throw ToolError(path + ": " + std::strerror(errno));
    }
    return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace zavevents
