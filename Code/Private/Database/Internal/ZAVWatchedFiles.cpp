#include "Private/Database/Internal/ZAVWatchedFiles.h"

#include <algorithm>
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

const sqlite3_io_methods& methodsOf(sqlite3_file* file) noexcept {
    return *originalFile(file)->pMethods;
}

int closeWatched(sqlite3_file* file) {
    return methodsOf(file).xClose(originalFile(file));
}

int readWatched(sqlite3_file* file, void* bytes, int size, sqlite3_int64 offset) {
    return methodsOf(file).xRead(originalFile(file), bytes, size, offset);
}

int writeWatched(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset) {
    const WatchedFile& watched = watchedFile(file);
    return watched.files->watcher().mayWrite(watched.kind, size, offset + size)
               ? methodsOf(file).xWrite(originalFile(file), bytes, size, offset)
               : SQLITE_IOERR_WRITE;
}

int truncateWatched(sqlite3_file* file, sqlite3_int64 size) {
    return methodsOf(file).xTruncate(originalFile(file), size);
}

int syncWatched(sqlite3_file* file, int flags) {
    return methodsOf(file).xSync(originalFile(file), flags);
}

int sizeOfWatched(sqlite3_file* file, sqlite3_int64* size) {
    return methodsOf(file).xFileSize(originalFile(file), size);
}

int lockWatched(sqlite3_file* file, int level) {
    return methodsOf(file).xLock(originalFile(file), level);
}

int unlockWatched(sqlite3_file* file, int level) {
    return methodsOf(file).xUnlock(originalFile(file), level);
}

int hasReservedLock(sqlite3_file* file, int* answer) {
    return methodsOf(file).xCheckReservedLock(originalFile(file), answer);
}

int controlWatched(sqlite3_file* file, int operation, void* argument) {
    return methodsOf(file).xFileControl(originalFile(file), operation, argument);
}

int sectorOfWatched(sqlite3_file* file) {
    return methodsOf(file).xSectorSize(originalFile(file));
}

int deviceOfWatched(sqlite3_file* file) {
    return methodsOf(file).xDeviceCharacteristics(originalFile(file));
}

int mapWatched(sqlite3_file* file, int page, int size, int extends, void volatile** memory) {
    return methodsOf(file).xShmMap(originalFile(file), page, size, extends, memory);
}

int lockMemoryOfWatched(sqlite3_file* file, int first, int count, int flags) {
    return methodsOf(file).xShmLock(originalFile(file), first, count, flags);
}

void bringMemoryToOrder(sqlite3_file* file) {
    methodsOf(file).xShmBarrier(originalFile(file));
}

int unmapWatched(sqlite3_file* file, int removes) {
    return methodsOf(file).xShmUnmap(originalFile(file), removes);
}

/// Of a file with shared memory, or of one without. A file is never mapped as a whole: what is written to a
/// map is written unseen.
constexpr sqlite3_io_methods watchedMethods(bool hasSharedMemory) noexcept {
    sqlite3_io_methods methods{};
    methods.iVersion = hasSharedMemory ? 2 : 1;
    methods.xClose = closeWatched;
    methods.xRead = readWatched;
    methods.xWrite = writeWatched;
    methods.xTruncate = truncateWatched;
    methods.xSync = syncWatched;
    methods.xFileSize = sizeOfWatched;
    methods.xLock = lockWatched;
    methods.xUnlock = unlockWatched;
    methods.xCheckReservedLock = hasReservedLock;
    methods.xFileControl = controlWatched;
    methods.xSectorSize = sectorOfWatched;
    methods.xDeviceCharacteristics = deviceOfWatched;
    if (hasSharedMemory) {
        methods.xShmMap = mapWatched;
        methods.xShmLock = lockMemoryOfWatched;
        methods.xShmBarrier = bringMemoryToOrder;
        methods.xShmUnmap = unmapWatched;
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

int deleteUnwatched(sqlite3_vfs* vfs, const char* name, int syncsDirectory) {
    return originalOf(vfs)->xDelete(originalOf(vfs), name, syncsDirectory);
}

int accessUnwatched(sqlite3_vfs* vfs, const char* name, int flags, int* answer) {
    return originalOf(vfs)->xAccess(originalOf(vfs), name, flags, answer);
}

int fullPathUnwatched(sqlite3_vfs* vfs, const char* name, int size, char* path) {
    return originalOf(vfs)->xFullPathname(originalOf(vfs), name, size, path);
}

int randomUnwatched(sqlite3_vfs* vfs, int size, char* bytes) {
    return originalOf(vfs)->xRandomness(originalOf(vfs), size, bytes);
}

int sleepUnwatched(sqlite3_vfs* vfs, int microseconds) {
    return originalOf(vfs)->xSleep(originalOf(vfs), microseconds);
}

int timeUnwatched(sqlite3_vfs* vfs, double* time) {
    return originalOf(vfs)->xCurrentTime(originalOf(vfs), time);
}

int lastErrorUnwatched(sqlite3_vfs* vfs, int size, char* text) {
    return originalOf(vfs)->xGetLastError == nullptr
               ? 0
               : originalOf(vfs)->xGetLastError(originalOf(vfs), size, text);
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
    files_.xDelete = deleteUnwatched;
    files_.xAccess = accessUnwatched;
    files_.xFullPathname = fullPathUnwatched;
    files_.xRandomness = randomUnwatched;
    files_.xSleep = sleepUnwatched;
    files_.xCurrentTime = timeUnwatched;
    files_.xGetLastError = lastErrorUnwatched;
    sqlite3_vfs_register(&files_, 0);
}

ZAVWatchedFiles::~ZAVWatchedFiles() {
    sqlite3_vfs_unregister(&files_);
}

}  // namespace zav
