#include "Private/Database/Internal/ZAVDatabaseFile.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string_view>
#include <system_error>

#include <ZAVEventRepository/ZAVDatabaseError.h>

#include "Private/Database/Internal/ZAVDatabaseCompanions.h"

namespace zav {
namespace {

namespace fs = std::filesystem;

ZAVError unusable(const std::string& reason) {
    return {ZAVErrorDomainDatabase, ZAVDatabaseErrorUnusablePath, reason};
}

/// An engine that takes URIs takes what begins so for one, wherever the path came from.
std::string thatIsNoURI(const std::string& path) {
    return path.starts_with("file:") ? "./" + path : path;
}

}  // namespace

ZAVError ZAVDatabaseFile::find(const std::string& path, const std::string& vfs) {
    path_ = path;
    if (path == ":memory:") {
        return {};
    }
    if (path.empty()) {
        return unusable("the path of the database is empty");
    }
    if (path.find('\0') != std::string::npos) {
        return unusable("the path of the database holds a NUL: " + path.substr(0, path.find('\0')) + "...");
    }
    path_ = thatIsNoURI(path);
    sqlite3_vfs* const files = sqlite3_vfs_find(vfs.empty() ? nullptr : vfs.c_str());
    if (files == nullptr) {
        return {};  // the engine says so when it is to open it
    }
    std::string full(static_cast<std::size_t>(files->mxPathname) + 1, '\0');
    const int status = files->xFullPathname(files, path_.c_str(), static_cast<int>(full.size()), full.data());
    if ((status & 0xFF) != SQLITE_OK) {
        return {ZAVErrorDomainSQLite, status,
                std::string(sqlite3_errstr(status)) + ": the path is too long, or leads nowhere"};
    }
    full.resize(full.find('\0'));
    path_ = thatIsNoURI(full);
    isOnDisk_ = std::string_view(files->zName).starts_with("unix");
    return objection();
}

ZAVError ZAVDatabaseFile::objection() const {
    std::error_code failure;
    const auto status = fs::status(path_, failure);
    if (fs::exists(status) && !fs::is_directory(status)) {
        if (!fs::is_regular_file(status)) {
            return unusable(path_ + " is no ordinary file");
        }
        if (fs::hard_link_count(path_, failure) > 1 && !failure) {
            return unusable(path_ +
                            " has another name too; what is opened under one name does not see the "
                            "journal and the log that stand beside the other");
        }
    }
    if (const auto hazard = ZAVHazardBesideDatabase(path_)) {
        return {ZAVErrorDomainDatabase, ZAVDatabaseErrorUnsafeCompanion, *hazard};
    }
    return {};
}

bool ZAVDatabaseFile::makeIfAbsent(std::uint32_t mode) const noexcept {
    if (!isOnDisk_) {
        return false;
    }
#ifdef __linux__
    // Without a descriptor: closing one would give up the locks that another handle of this process may have
    // taken on the new file meanwhile.
    static_cast<void>(::mknod(path_.c_str(), S_IFREG | static_cast<mode_t>(mode), 0));
#else
    const int file =
        ::open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, static_cast<mode_t>(mode));
    if (file >= 0) {
        ::close(file);
    }
#endif
    return true;
}

}  // namespace zav
