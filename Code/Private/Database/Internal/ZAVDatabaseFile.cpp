#include "Private/Database/Internal/ZAVDatabaseFile.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include <ZAVEventRepository/ZAVDatabaseError.h>

namespace zav {
namespace {

namespace fs = std::filesystem;

ZAVError unusable(const std::string& reason) {
    return {ZAVErrorDomainDatabase, ZAVDatabaseErrorUnusablePath, reason};
}

ZAVError unsafe(const std::string& reason) {
    return {ZAVErrorDomainDatabase, ZAVDatabaseErrorUnsafeCompanion, reason};
}

/// An engine that takes URIs takes what begins so for one, wherever the path came from.
std::string thatIsNoURI(const std::string& path) {
    return path.starts_with("file:") ? "./" + path : path;
}

/// A journal that takes part in a transaction over several databases ends with the name of the journal of
/// all, its length, its checksum and these bytes. This library never writes one.
constexpr std::string_view endOfNamingJournal = "\xD9\xD5\x05\xF9\x20\xA1\x63\xD7";
constexpr std::streamoff smallestNamingJournal = 16;

bool namesAnotherJournal(const fs::path& journal) {
    std::ifstream stream(journal, std::ios::binary | std::ios::ate);
    if (!stream || stream.tellg() < smallestNamingJournal) {
        return false;
    }
    std::string end(endOfNamingJournal.size(), '\0');
    stream.seekg(-static_cast<std::streamoff>(end.size()), std::ios::end);
    stream.read(end.data(), static_cast<std::streamsize>(end.size()));
    return stream && end == endOfNamingJournal;
}

/// What makes the files unsafe to use that the engine would take for journal, log and shared memory, if
/// anything: one that is not a regular file, for which the engine might wait forever; one that has another
/// name too, under which it is somebody else's file; or a journal that names a further journal, a file
/// anywhere which the engine would remove.
ZAVError objectionBeside(const std::string& path) {
    for (const char* const suffix : {"-journal", "-wal", "-shm"}) {
        std::error_code failure;
        const std::string companion = path + suffix;
        const auto status = fs::symlink_status(companion, failure);
        if (!fs::exists(status)) {
            continue;
        }
        if (!fs::is_regular_file(status)) {
            return unsafe(companion + " is no ordinary file");
        }
        if (fs::hard_link_count(companion, failure) > 1 && !failure) {
            return unsafe(companion + " has another name too, under which it belongs to something else");
        }
    }
    if (const std::string journal = path + "-journal"; namesAnotherJournal(journal)) {
        return unsafe(journal + " names another journal, which would be removed");
    }
    return {};
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
    return objectionBeside(path_);
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
