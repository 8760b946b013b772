#include "Checkpoints/LockRecorder.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <new>
#include <stdexcept>
#include <utility>

namespace zav::test {
namespace {

/// Who holds what, in memory that the processes share. A connection is known by its process and its file.
struct Holders {
    std::atomic<std::uint64_t> writer{0};
    std::atomic<std::uint64_t> checkpointer{0};
    std::atomic<std::uint64_t> ofTheWholeFile{0};
    std::atomic<std::uint64_t> writes{0};
    std::atomic<std::uint64_t> checkpoints{0};
    std::atomic<std::uint64_t> overlaps{0};
    std::atomic<std::uint64_t> unguarded{0};
};

constexpr int writersLock = 0;
constexpr int checkpointersLock = 1;

// The engine calls back through plain functions, so there is one recorder for the process.
Holders* holders = nullptr;
sqlite3_vfs* original = nullptr;
const sqlite3_io_methods* originalMethods = nullptr;
std::function<void()> writersLockAction;

std::uint64_t identityOf(const sqlite3_file* file) {
    return reinterpret_cast<std::uint64_t>(file) ^ (static_cast<std::uint64_t>(::getpid()) << 48);
}

void leave(std::atomic<std::uint64_t>& place, std::uint64_t who) {
    place.compare_exchange_strong(who, 0);
}

void noteWriter(std::uint64_t who) {
    holders->writer = who;
    ++holders->writes;
    const std::uint64_t checkpointer = holders->checkpointer;
    holders->overlaps += checkpointer != 0 && checkpointer != who ? 1 : 0;
    if (writersLockAction) {
        writersLockAction();
    }
}

void noteCheckpointer(std::uint64_t who) {
    holders->checkpointer = who;
    ++holders->checkpoints;
    const std::uint64_t writer = holders->writer;
    holders->overlaps += writer != 0 && writer != who ? 1 : 0;
    holders->unguarded += writer != who && holders->ofTheWholeFile != who ? 1 : 0;
}

int lockSharedMemory(sqlite3_file* file, int first, int count, int flags) {
    const std::uint64_t who = identityOf(file);
    const bool isExclusive = (flags & SQLITE_SHM_EXCLUSIVE) != 0;
    const bool isWriters = isExclusive && first <= writersLock && writersLock < first + count;
    const bool isCheckpointers =
        isExclusive && first <= checkpointersLock && checkpointersLock < first + count;
    if ((flags & SQLITE_SHM_UNLOCK) != 0) {
        if (isCheckpointers) {
            leave(holders->checkpointer, who);
        }
        if (isWriters) {
            leave(holders->writer, who);
        }
        return originalMethods->xShmLock(file, first, count, flags);
    }
    const int status = originalMethods->xShmLock(file, first, count, flags);
    if (status == SQLITE_OK && isWriters) {
        noteWriter(who);
    }
    if (status == SQLITE_OK && isCheckpointers) {
        noteCheckpointer(who);
    }
    return status;
}

int lockFile(sqlite3_file* file, int level) {
    const int status = originalMethods->xLock(file, level);
    if (status == SQLITE_OK && level == SQLITE_LOCK_EXCLUSIVE) {
        holders->ofTheWholeFile = identityOf(file);
    }
    return status;
}

int unlockFile(sqlite3_file* file, int level) {
    leave(holders->ofTheWholeFile, identityOf(file));
    return originalMethods->xUnlock(file, level);
}

const sqlite3_io_methods* recordingMethods(const sqlite3_io_methods* methodsOfEngine) {
    static const sqlite3_io_methods methods = [&] {
        originalMethods = methodsOfEngine;
        sqlite3_io_methods recording = *methodsOfEngine;
        recording.xShmLock = lockSharedMemory;
        recording.xLock = lockFile;
        recording.xUnlock = unlockFile;
        return recording;
    }();
    return &methods;
}

int openFile(sqlite3_vfs*, const char* path, sqlite3_file* file, int flags, int* flagsOut) {
    const int status = original->xOpen(original, path, file, flags, flagsOut);
    if (status == SQLITE_OK && (flags & SQLITE_OPEN_MAIN_DB) != 0) {
        file->pMethods = recordingMethods(file->pMethods);
    }
    return status;
}

}  // namespace

LockRecorder::LockRecorder() : vfs_(*sqlite3_vfs_find(nullptr)) {
    original = sqlite3_vfs_find(nullptr);
    void* const memory =
        ::mmap(nullptr, sizeof(Holders), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::runtime_error("mmap");
    }
    holders = new (memory) Holders;
    vfs_.zName = name;
    vfs_.pNext = nullptr;
    vfs_.xOpen = openFile;
    if (sqlite3_vfs_register(&vfs_, 0) != SQLITE_OK) {
        throw std::runtime_error("the engine does not take the file system");
    }
}

LockRecorder::~LockRecorder() {
    sqlite3_vfs_unregister(&vfs_);
    writersLockAction = nullptr;
    ::munmap(holders, sizeof(Holders));
}

LockRecorder::Counts LockRecorder::counts() const {
    return {holders->writes, holders->checkpoints, holders->overlaps, holders->unguarded};
}

void LockRecorder::onWritersLock(std::function<void()> action) {
    writersLockAction = std::move(action);
}

}  // namespace zav::test
