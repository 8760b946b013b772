#include "Faults/FaultyFileSystem.h"

#include <sqlite3.h>

#include <cstring>
#include <new>
#include <stdexcept>

#include "Faults/FaultPlan.h"

namespace zav::test {
namespace {

// What is to fail. The engine calls back through plain functions, so there is one plan for the process.
FileCall failingCall = FileCall::open;
FaultPlan plan;

bool fails(FileCall call) {
    return call == failingCall && plan.fails();
}

sqlite3_vfs* underlying = nullptr;

/// An open file: the engine gives memory for this header and, behind it, for the default file system's own.
struct File {
    sqlite3_file base;
    sqlite3_io_methods methods;

    [[nodiscard]] sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

sqlite3_file* real(sqlite3_file* file) {
    return reinterpret_cast<File*>(file)->real();
}

int closeFile(sqlite3_file* file) {
    return real(file)->pMethods == nullptr ? SQLITE_OK : real(file)->pMethods->xClose(real(file));
}

int readFile(sqlite3_file* file, void* bytes, int size, sqlite3_int64 offset) {
    return fails(FileCall::read) ? SQLITE_IOERR_READ
                                 : real(file)->pMethods->xRead(real(file), bytes, size, offset);
}

int writeFile(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset) {
    if (fails(FileCall::write)) {
        // As a device does that fails on the way: a part has arrived.
        real(file)->pMethods->xWrite(real(file), bytes, size / 2, offset);
        return SQLITE_IOERR_WRITE;
    }
    return real(file)->pMethods->xWrite(real(file), bytes, size, offset);
}

int truncateFile(sqlite3_file* file, sqlite3_int64 size) {
    return fails(FileCall::truncate) ? SQLITE_IOERR_TRUNCATE
                                     : real(file)->pMethods->xTruncate(real(file), size);
}

/// Nobody cuts the power here, so nobody waits for the device.
int syncFile(sqlite3_file*, int) {
    return fails(FileCall::sync) ? SQLITE_IOERR_FSYNC : SQLITE_OK;
}

int sizeOfFile(sqlite3_file* file, sqlite3_int64* size) {
    return fails(FileCall::fileSize) ? SQLITE_IOERR_FSTAT : real(file)->pMethods->xFileSize(real(file), size);
}

int lockFile(sqlite3_file* file, int level) {
    return fails(FileCall::lock) ? SQLITE_IOERR_LOCK : real(file)->pMethods->xLock(real(file), level);
}

int unlockFile(sqlite3_file* file, int level) {
    return real(file)->pMethods->xUnlock(real(file), level);
}

int checkReservedLock(sqlite3_file* file, int* result) {
    return real(file)->pMethods->xCheckReservedLock(real(file), result);
}

int controlFile(sqlite3_file* file, int operation, void* argument) {
    return real(file)->pMethods->xFileControl(real(file), operation, argument);
}

int sectorSize(sqlite3_file* file) {
    return real(file)->pMethods->xSectorSize(real(file));
}

int deviceCharacteristics(sqlite3_file* file) {
    return real(file)->pMethods->xDeviceCharacteristics(real(file));
}

int mapSharedMemory(sqlite3_file* file, int page, int pageSize, int extend, void volatile** memory) {
    return fails(FileCall::sharedMemory)
               ? SQLITE_IOERR_SHMMAP
               : real(file)->pMethods->xShmMap(real(file), page, pageSize, extend, memory);
}

int lockSharedMemory(sqlite3_file* file, int offset, int count, int flags) {
    // Giving a lock back cannot fail.
    if ((flags & SQLITE_SHM_LOCK) != 0 && fails(FileCall::lock)) {
        return SQLITE_IOERR_SHMLOCK;
    }
    return real(file)->pMethods->xShmLock(real(file), offset, count, flags);
}

void fenceSharedMemory(sqlite3_file* file) {
    real(file)->pMethods->xShmBarrier(real(file));
}

int unmapSharedMemory(sqlite3_file* file, int remove) {
    return real(file)->pMethods->xShmUnmap(real(file), remove);
}

int openFile(sqlite3_vfs*, const char* path, sqlite3_file* memory, int flags, int* outFlags) {
    // cppcheck-suppress legacyUninitvar ; this is where it is made
    auto* const file = new (memory) File{};
    if (fails(FileCall::open)) {
        return SQLITE_CANTOPEN;
    }
    const int status = underlying->xOpen(underlying, path, file->real(), flags, outFlags);
    if (file->real()->pMethods != nullptr) {
        // Version 2: with shared memory, without memory-mapped reading, which would go past this file system.
        file->methods = {2,
                         closeFile,
                         readFile,
                         writeFile,
                         truncateFile,
                         syncFile,
                         sizeOfFile,
                         lockFile,
                         unlockFile,
                         checkReservedLock,
                         controlFile,
                         sectorSize,
                         deviceCharacteristics,
                         mapSharedMemory,
                         lockSharedMemory,
                         fenceSharedMemory,
                         unmapSharedMemory,
                         nullptr,
                         nullptr};
        file->base.pMethods = &file->methods;
    }
    return status;
}

int deleteFile(sqlite3_vfs*, const char* path, int) {
    return fails(FileCall::remove) ? SQLITE_IOERR_DELETE : underlying->xDelete(underlying, path, 0);
}

}  // namespace

std::string_view nameOf(FileCall call) {
    static constexpr std::string_view names[] = {"open",     "read", "write",  "truncate",    "sync",
                                                 "fileSize", "lock", "delete", "sharedMemory"};
    return names[static_cast<std::size_t>(call)];
}

struct FaultyFileSystem::Engine {
    sqlite3_vfs vfs{};
};

FaultyFileSystem::FaultyFileSystem() : engine_(std::make_unique<Engine>()) {
    underlying = sqlite3_vfs_find(nullptr);
    engine_->vfs = *underlying;
    engine_->vfs.zName = name;
    engine_->vfs.pNext = nullptr;
    engine_->vfs.szOsFile = static_cast<int>(sizeof(File)) + underlying->szOsFile;
    engine_->vfs.xOpen = openFile;
    engine_->vfs.xDelete = deleteFile;
    if (sqlite3_vfs_register(&engine_->vfs, 0) != SQLITE_OK) {
        throw std::runtime_error("the engine does not take the file system");
    }
}

FaultyFileSystem::~FaultyFileSystem() {
    heal();
    sqlite3_vfs_unregister(&engine_->vfs);
}

void FaultyFileSystem::fail(FileCall call, int number, bool fromThenOn) {
    failingCall = call;
    plan.fail(number, fromThenOn);
}

void FaultyFileSystem::heal() {
    plan.heal();
}

int FaultyFileSystem::failures() const {
    return plan.failures();
}

}  // namespace zav::test
