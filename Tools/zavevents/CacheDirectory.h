#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace zavevents {

/// Which file it is, whatever it is called.
struct FileIdentity {
    dev_t device;
    ino_t number;

    friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
    friend bool operator<(const FileIdentity& left, const FileIdentity& right) {
        return std::tie(left.device, left.number) < std::tie(right.device, right.number);
    }
};

/// A file as its directory shows it. A symbolic link is itself.
struct FileStatus {
    FileIdentity identity;
    std::uint64_t size;
    std::uint64_t names;  ///< how many names it has; its bytes are freed with the last
    bool isDirectory;
};

/// Looks at the file that `path` leads to, through links or, without `followLink`, at a link itself. Files
/// are looked at and never opened: closing a database file would drop the locks that this process holds on
/// it.
/// @return nothing when it does not exist or cannot be looked at.
[[nodiscard]] std::optional<FileStatus> statusOfFile(const std::string& path, bool followLink = true);

/// One directory of the cache, held open: what happens in it happens there, whatever becomes of its path.
///
/// What fails throws `std::system_error`.
class OpenDirectory {
public:
    OpenDirectory(OpenDirectory&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    OpenDirectory& operator=(OpenDirectory&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    OpenDirectory(const OpenDirectory&) = delete;
    OpenDirectory& operator=(const OpenDirectory&) = delete;
    ~OpenDirectory();

    /// None when there is no such file.
    [[nodiscard]] std::optional<FileStatus> status(const std::string& name) const;

    /// Renames a file over whatever has the name `target`. False when there is none.
    bool rename(const std::string& from, const std::string& target) const;

    /// Renames a file unless there is one of the name `target`; then it answers false.
    bool renameToFreeName(const std::string& from, const std::string& target) const;

    /// Removes a file. That there is none is not an error.
    void remove(const std::string& name) const;

    /// Has the device keep the names as they are now, where it can.
    void sync() const noexcept;

private:
    friend class CacheDirectory;  // opens them
    explicit OpenDirectory(int descriptor);

    int descriptor_;
};

/// A directory of content, below which files are removed, and nothing outside it.
class CacheDirectory {
public:
    /// @throws std::system_error when it is not a directory or cannot be opened.
    explicit CacheDirectory(const std::string& path);

    /// Absolute, without links.
    [[nodiscard]] const std::string& path() const { return path_; }

    /// Opens the directory that `names` lead to, by each name in the directory before, links refused: nobody
    /// can turn the way aside between a look and a removal.
    /// @return none when there is no such directory.
    /// @throws std::system_error when the way leads through a link or a file, or is closed.
    [[nodiscard]] std::optional<OpenDirectory> open(const std::vector<std::string>& names) const;

private:
    std::string path_;
    OpenDirectory root_;
};

}  // namespace zavevents
