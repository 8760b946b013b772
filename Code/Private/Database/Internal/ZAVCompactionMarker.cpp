#include "Private/Database/Internal/ZAVCompactionMarker.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include <ZAVEventRepository/ZAVDatabaseError.h>

namespace zav {
namespace {

constexpr std::string_view markerSuffix = "-compacting";

std::string markerOf(const std::string& database) {
    return database + std::string(markerSuffix);
}

/// A descriptor that is closed with its owner.
class MarkerDescriptor {
public:
    explicit MarkerDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
    ~MarkerDescriptor() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }
    MarkerDescriptor(const MarkerDescriptor&) = delete;
    MarkerDescriptor& operator=(const MarkerDescriptor&) = delete;

    [[nodiscard]] int get() const noexcept { return descriptor_; }
    int release() noexcept { return std::exchange(descriptor_, -1); }

private:
    int descriptor_;
};

/// Why something is no marker; null when it is one.
const char* objectionToMarker(const struct stat& file) noexcept {
    return !S_ISREG(file.st_mode) ? "is no ordinary file"
           : file.st_nlink > 1    ? "has another name too, under which it belongs to something else"
           : file.st_size != 0    ? "is not empty, and so is not the marker of a compaction"
                                  : nullptr;
}

ZAVError unsafeMarker(const std::string& path, const char* objection) {
    return {ZAVErrorDomainDatabase, ZAVDatabaseErrorUnsafeCompanion, path + " " + objection};
}

bool standsAt(const std::string& path, int descriptor) noexcept {
    struct stat named {};
    struct stat opened {};
    return ::lstat(path.c_str(), &named) == 0 && ::fstat(descriptor, &opened) == 0 &&
           named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

/// As the engine does for the files that it puts beside a database.
void giveOwnerAndPermissions(int descriptor, const struct stat& database) noexcept {
    if (::geteuid() == 0 && ::fchown(descriptor, database.st_uid, database.st_gid) != 0) {
        return;  // as it is, it serves its owner
    }
    constexpr mode_t allPermissions = 0777;
    static_cast<void>(::fchmod(descriptor, database.st_mode & allPermissions));
}

}  // namespace

ZAVCompactionMarker::ZAVCompactionMarker(std::string path, int descriptor) noexcept
    : path_(std::move(path)), descriptor_(descriptor) {}

ZAVCompactionMarker::ZAVCompactionMarker(ZAVCompactionMarker&& other) noexcept
    : path_(std::move(other.path_)), descriptor_(std::exchange(other.descriptor_, -1)) {}

ZAVCompactionMarker::~ZAVCompactionMarker() {
    if (descriptor_ >= 0) {
        if (standsAt(path_, descriptor_)) {
            ::unlink(path_.c_str());
        }
        ::close(descriptor_);
    }
}

std::optional<ZAVCompactionMarker> ZAVCompactionMarker::hold(const std::string& database, ZAVError* error) {
    // Those who look hold the lock for a moment, and a marker may be removed between its opening and its
    // lock.
    constexpr int attempts = 50;
    constexpr std::chrono::milliseconds pause(2);
    constexpr mode_t ownersPermissions = 0600;
    struct stat databaseFile {};
    if (::stat(database.c_str(), &databaseFile) != 0) {
        return ZAVCompactionMarker();
    }
    const std::string path = markerOf(database);
    for (int attempt = 0; attempt < attempts; ++attempt) {
        struct stat file {};
        const bool isThere = ::lstat(path.c_str(), &file) == 0;
        if (const char* const objection = isThere ? objectionToMarker(file) : nullptr) {
            ZAVStoreError(error, unsafeMarker(path, objection));
            return std::nullopt;
        }
        MarkerDescriptor opened(
            ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, ownersPermissions));
        if (opened.get() < 0) {
            const std::string reason = "cannot be opened: " + std::generic_category().message(errno);
            ZAVStoreError(error, unsafeMarker(path, reason.c_str()));
            return std::nullopt;
        }
        const bool isLocked = ::flock(opened.get(), LOCK_EX | LOCK_NB) == 0;
        if (!isLocked && errno != EWOULDBLOCK && errno != EINTR) {
            if (!isThere) {
                ::unlink(path.c_str());
            }
            return ZAVCompactionMarker();
        }
        if (isLocked && standsAt(path, opened.get())) {
            giveOwnerAndPermissions(opened.get(), databaseFile);
            return ZAVCompactionMarker(path, opened.release());
        }
        std::this_thread::sleep_for(pause);
    }
    ZAVStoreError(error, {ZAVErrorDomainSQLite, SQLITE_BUSY, "the database is being compacted already"});
    return std::nullopt;
}

bool ZAVCompactionMarker::isHeld(const std::string& database) {
    const std::string path = markerOf(database);
    struct stat file {};
    if (::lstat(path.c_str(), &file) != 0 || objectionToMarker(file) != nullptr) {
        return false;
    }
    const MarkerDescriptor opened(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    return opened.get() >= 0 && ::flock(opened.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

}  // namespace zav
