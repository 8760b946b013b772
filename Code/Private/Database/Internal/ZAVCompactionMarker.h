#pragma once

#include <optional>
#include <string>

#include <ZAVEventRepository/ZAVError.h>

namespace zav {

/// An empty file beside a database that is locked while somebody compacts it, so that those who wait in vain
/// for the database's own locks know why, in other processes too. The lock goes with the process that has it:
/// a file that a kill left means nothing.
///
/// The file is opened only while it is an ordinary one, empty and without another name: to close a second
/// descriptor of the database would give up the locks that this process has on it.
class ZAVCompactionMarker {
public:
    /// Locks the marker of a database, for as long as the object lives, and makes it with the permissions of
    /// the database. Where there is no such file on disk, or its file system has no such locks, there is
    /// nothing to lock.
    /// @param database the full path.
    /// @return none when somebody else has it, or when what stands in its place is no marker.
    [[nodiscard]] static std::optional<ZAVCompactionMarker> hold(const std::string& database,
                                                                 ZAVError* error);

    ZAVCompactionMarker(ZAVCompactionMarker&& other) noexcept;
    ZAVCompactionMarker(const ZAVCompactionMarker&) = delete;
    ZAVCompactionMarker& operator=(const ZAVCompactionMarker&) = delete;
    ZAVCompactionMarker& operator=(ZAVCompactionMarker&&) = delete;
    ~ZAVCompactionMarker();

    /// Whether somebody compacts a database just now.
    [[nodiscard]] static bool isHeld(const std::string& database);

private:
    ZAVCompactionMarker() = default;
    ZAVCompactionMarker(std::string path, int descriptor) noexcept;

    std::string path_;
    int descriptor_ = -1;  ///< negative when there is nothing to lock
};

}  // namespace zav
