#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <utility>

namespace zav {

/// Which file it is, whatever it is called.
struct ZAVFileIdentity {
    dev_t device;
    ino_t number;

    friend bool operator==(const ZAVFileIdentity&, const ZAVFileIdentity&) = default;
    friend bool operator<(const ZAVFileIdentity& left, const ZAVFileIdentity& right) {
        return std::tie(left.device, left.number) < std::tie(right.device, right.number);
    }
};

/// A file as its directory shows it. A symbolic link is itself.
struct ZAVFileStatus {
    ZAVFileIdentity identity;
    std::uint64_t size;
    std::uint64_t names;  ///< how many names it has; its bytes are freed with the last
    bool isDirectory;
    bool isRegular;
    std::time_t changed;  ///< when its content, its names or its rights were changed last
};

/// Looks at the file that `path` leads to, through links or, without `followLink`, at a link itself. Files
/// are looked at and never opened: closing a database file would drop the locks that this process holds on
/// it.
/// @return nothing when it does not exist or cannot be looked at.
[[nodiscard]] std::optional<ZAVFileStatus> ZAVStatusOfFile(const std::string& path, bool followLink = true);

/// Whether a file is one of a database's own: the file at `database` or one of its companions. The path of
/// the file says nothing about it, for it may be a link, or put otherwise.
[[nodiscard]] bool ZAVIsFileOfDatabase(const ZAVFileIdentity& file, const std::string& database);

/// An open file, closed with this.
class ZAVFileDescriptor {
public:
    explicit ZAVFileDescriptor(int number) noexcept : number_(number) {}
    ZAVFileDescriptor(ZAVFileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    ZAVFileDescriptor& operator=(ZAVFileDescriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ZAVFileDescriptor(const ZAVFileDescriptor&) = delete;
    ZAVFileDescriptor& operator=(const ZAVFileDescriptor&) = delete;
    ~ZAVFileDescriptor();

    [[nodiscard]] int number() const noexcept { return number_; }

    /// Passes the descriptor on, to be closed by who asks for it.
    [[nodiscard]] int release() noexcept { return std::exchange(number_, -1); }

private:
    int number_;
};

/// One directory of content, held open: what happens in it happens there, whatever becomes of its path.
///
/// What fails throws `std::system_error`.
class ZAVOpenDirectory {
public:
    /// None when there is no such file.
    [[nodiscard]] std::optional<ZAVFileStatus> status(const std::string& name) const;

    /// Opens a regular file for reading, if it is the one that was looked at. No other is opened, also not
    /// for a moment.
    /// @return none when another file has its name by now, or none has.
    [[nodiscard]] std::optional<ZAVFileDescriptor> openForReading(const std::string& name,
                                                                  const ZAVFileIdentity& identity) const;

    /// The same for writing.
    [[nodiscard]] std::optional<ZAVFileDescriptor> openForWriting(const std::string& name,
                                                                  const ZAVFileIdentity& identity) const;

    /// Makes a file that is not there yet, for writing.
    [[nodiscard]] ZAVFileDescriptor make(const std::string& name) const;

    /// Renames a file over whatever has the name `target`. False when there is none.
    bool rename(const std::string& from, const std::string& target) const;

    /// Renames a file unless there is one of the name `target`; then it answers false.
    bool renameToFreeName(const std::string& from, const std::string& target) const;

    /// Removes a file. That there is none is not an error.
    void remove(const std::string& name) const;

    /// Removes a directory that is empty, and leaves any other.
    void removeIfEmpty(const std::string& name) const noexcept;

    /// Has the device keep the names as they are now, where it can.
    void sync() const noexcept;

private:
    friend class ZAVContentDirectory;  // opens them
    explicit ZAVOpenDirectory(int descriptor);
    [[nodiscard]] std::optional<ZAVFileDescriptor> open(const std::string& name,
                                                        const ZAVFileIdentity& identity, int flags) const;

    ZAVFileDescriptor descriptor_;
};

/// A file, and the directory that it is in.
struct ZAVFoundFile {
    ZAVOpenDirectory directory;
    ZAVFileStatus status;
};

/// A directory of content, below which files are made and removed, and nothing outside it.
class ZAVContentDirectory {
public:
    using Names = std::span<const std::string>;

    /// @throws std::system_error when it is not a directory or cannot be opened.
    explicit ZAVContentDirectory(const std::string& path);

    /// Makes the directory, and those on the way, if they are not there.
    /// @throws std::system_error when that cannot be done.
    [[nodiscard]] static ZAVContentDirectory make(const std::string& path);

    /// Absolute, without links.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

    /// Opens the directory that `names` lead to, by each name in the directory before, links refused: nobody
    /// can turn the way aside between a look and a removal.
    /// @return none when there is no such directory.
    /// @throws std::system_error when the way leads through a link or a file, or is closed.
    [[nodiscard]] std::optional<ZAVOpenDirectory> open(Names names) const;

    /// The same, where the directories are made that are not there.
    [[nodiscard]] ZAVOpenDirectory openOrMake(Names names) const;

    /// Looks for the file that `names` lead to, in the same way.
    /// @return none when there is no such file.
    [[nodiscard]] std::optional<ZAVFoundFile> find(Names names) const;

private:
    std::string path_;
    ZAVOpenDirectory root_;
};

}  // namespace zav
