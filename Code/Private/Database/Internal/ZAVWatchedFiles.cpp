#include "Private/Database/Internal/ZAVWatchedFiles.h"

#include <atomic>
#include <new>

namespace zav {
namespace {

using Kind = ZAVWatchedFiles::Kind;

/// What the engine keeps of an open file: this, and behind it what the original file system keeps.
struct WatchedFile {
    sqlite3_file base;
    ZAVWatchedFiles* files;
    Kind kind;
};

WatchedFile& watchedFile(sqlite3_file* file) noexcept {
    return *reinterpret_cast<WatchedFile*>(file);
}

sqlite3_file* originalFile(sqlite3_file* file) noexcept {
    return reinterpret_cast<sqlite3_file*>(reinterpret_cast<WatchedFile*>(file) + 1);
}

/// The same method of the original file.
template <auto Method, class Answer, class... Arguments>
Answer passOn(sqlite3_file* file, Arguments... arguments) {
    sqlite3_file* const original = originalFile(file);
    return (original->pMethods->*Method)(original, arguments...);
}

int writeWatched(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset) {
    const WatchedFile& watched = watchedFile(file);
    return watched.files->watcher().mayWrite(watched.kind, size, offset + size)
               ? passOn<&sqlite3_io_methods::xWrite, int>(file, bytes, size, offset)
               : SQLITE_IOERR_WRITE;
}

/// Of a file with shared memory, or of one without. A file is never mapped as a whole: what is written to a
/// map is written unseen.
constexpr sqlite3_io_methods watchedMethods(bool hasSharedMemory) noexcept {
    sqlite3_io_methods methods{};
    methods.iVersion = hasSharedMemory ? 2 : 1;
    methods.xClose = passOn<&sqlite3_io_methods::xClose>;
    methods.xRead = passOn<&sqlite3_io_methods::xRead>;
    methods.xWrite = writeWatched;
    methods.xTruncate = passOn<&sqlite3_io_methods::xTruncate>;
    methods.xSync = passOn<&sqlite3_io_methods::xSync>;
    methods.xFileSize = passOn<&sqlite3_io_methods::xFileSize>;
    methods.xLock = passOn<&sqlite3_io_methods::xLock>;
    methods.xUnlock = passOn<&sqlite3_io_methods::xUnlock>;
    methods.xCheckReservedLock = passOn<&sqlite3_io_methods::xCheckReservedLock>;
    methods.xFileControl = passOn<&sqlite3_io_methods::xFileControl>;
    methods.xSectorSize = passOn<&sqlite3_io_methods::xSectorSize>;
    methods.xDeviceCharacteristics = passOn<&sqlite3_io_methods::xDeviceCharacteristics>;
    if (hasSharedMemory) {
        methods.xShmMap = passOn<&sqlite3_io_methods::xShmMap>;
        methods.xShmLock = passOn<&sqlite3_io_methods::xShmLock>;
        methods.xShmBarrier = passOn<&sqlite3_io_methods::xShmBarrier>;
        methods.xShmUnmap = passOn<&sqlite3_io_methods::xShmUnmap>;
    }
    return methods;
}

constexpr sqlite3_io_methods methodsWithMemory = watchedMethods(true);
constexpr sqlite3_io_methods methodsWithoutMemory = watchedMethods(false);

Kind kindOf(const char* name, int flags) noexcept {
    if (name == nullptr || (flags & (SQLITE_OPEN_TEMP_DB | SQLITE_OPEN_TRANSIENT_DB)) != 0) {
        return Kind::temporary;
    }
    if ((flags & SQLITE_OPEN_MAIN_DB) != 0) {
        return Kind::database;
    }
    return (flags & (SQLITE_OPEN_WAL | SQLITE_OPEN_MAIN_JOURNAL)) != 0 ? Kind::log : Kind::other;
}

ZAVWatchedFiles& filesOf(sqlite3_vfs* vfs) noexcept {
    return *static_cast<ZAVWatchedFiles*>(vfs->pAppData);
}

sqlite3_vfs* originalOf(sqlite3_vfs* vfs) noexcept {
    return &filesOf(vfs).original();
}

int openWatched(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* flagsOut) {
    new (file) WatchedFile{{nullptr}, &filesOf(vfs), kindOf(name, flags)};
    sqlite3_file* const original = originalFile(file);
    original->pMethods = nullptr;
    const int status = originalOf(vfs)->xOpen(originalOf(vfs), name, original, flags, flagsOut);
    if (original->pMethods != nullptr) {
        const bool hasSharedMemory =
            original->pMethods->iVersion >= 2 && original->pMethods->xShmMap != nullptr;
        file->pMethods = hasSharedMemory ? &methodsWithMemory : &methodsWithoutMemory;
    }
    return status;
}

/// The same function of the original file system.
template <auto Method, class... Arguments>
int passOn(sqlite3_vfs* vfs, Arguments... arguments) {
    return (originalOf(vfs)->*Method)(originalOf(vfs), arguments...);
}

int lastErrorUnwatched(sqlite3_vfs* vfs, int size, char* text) {
    return originalOf(vfs)->xGetLastError == nullptr ? 0
                                                     : passOn<&sqlite3_vfs::xGetLastError>(vfs, size, text);
}

/// Two compactions in one process have one each.
std::string nextName() {
    static std::atomic<std::uint64_t> count{0};
    return "zav-watched-" + std::to_string(++count);
}

}  // namespace

ZAVWatchedFiles::ZAVWatchedFiles(sqlite3_vfs& original, Watcher& watcher)
    : original_(original), watcher_(watcher), name_(nextName()) {
    files_.iVersion = 1;
    files_.szOsFile = static_cast<int>(sizeof(WatchedFile)) + original.szOsFile;
    files_.mxPathname = original.mxPathname;
    files_.zName = name_.c_str();
    files_.pAppData = this;
    files_.xOpen = openWatched;
    files_.xDelete = passOn<&sqlite3_vfs::xDelete>;
    files_.xAccess = passOn<&sqlite3_vfs::xAccess>;
    files_.xFullPathname = passOn<&sqlite3_vfs::xFullPathname>;
    files_.xRandomness = passOn<&sqlite3_vfs::xRandomness>;
    files_.xSleep = passOn<&sqlite3_vfs::xSleep>;
    files_.xCurrentTime = passOn<&sqlite3_vfs::xCurrentTime>;
    files_.xGetLastError = lastErrorUnwatched;
    sqlite3_vfs_register(&files_, 0);
}

ZAVWatchedFiles::~ZAVWatchedFiles() {
    sqlite3_vfs_unregister(&files_);
}

}  // namespace zav
