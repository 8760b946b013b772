#include "Faults/VolatileFileSystem.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <fstream>
#include <map>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

namespace zav::test {
namespace {

using Call = VolatileFileSystem::Call;
using Random = VolatileFileSystem::Random;

/// Something done to the bytes of a file.
struct Change {
    bool truncates;
    std::size_t offset;  ///< where it writes; the new size when it truncates
    std::string bytes;

    [[nodiscard]] std::size_t end() const { return offset + bytes.size(); }
};

void write(std::string& content, std::size_t offset, std::string_view bytes) {
    content.resize(std::max(content.size(), offset + bytes.size()));
    content.replace(offset, bytes.size(), bytes);
}

void carryOut(const Change& change, std::string& content) {
    if (change.truncates) {
        content.resize(std::min(content.size(), change.offset));
    } else {
        write(content, change.offset, change.bytes);
    }
}

bool byChance(Random& random, std::uint64_t oneIn) {
    return random() % oneIn == 0;
}

struct Handle;

/// A file, whether or not a name still leads to it.
struct File {
    std::string safe;              ///< the bytes as of the last sync
    std::string current;           ///< the bytes as the engine sees them
    std::vector<Change> unsynced;  ///< what leads from the one to the other
    bool syncsDirectory = false;   ///< whether its next sync makes the names safe too

    std::vector<Handle*> handles;
    std::vector<std::unique_ptr<std::array<char, 32768>>> sharedMemory;

    void change(Change change) {
        carryOut(change, current);
        unsynced.push_back(std::move(change));
    }
    void sync() {
        for (const Change& change : unsynced) {
            carryOut(change, safe);
        }
        unsynced.clear();
    }
};

using FilePointer = std::shared_ptr<File>;

/// An open file, in memory that the engine provides.
struct Handle : sqlite3_file {
    VolatileFileSystem::State* system = nullptr;
    std::string name;  ///< empty for a temporary file
    FilePointer file;
    int lock = SQLITE_LOCK_NONE;
    bool usesSharedMemory = false;
    unsigned sharedSlots = 0;
    unsigned exclusiveSlots = 0;
};

/// Decides what the loss of power leaves of a file's unsynced changes.
class Survival {
public:
    Survival(const VolatileFileSystem::Hardware& hardware, Random& random)
        : hardware_(hardware), random_(random) {}

    [[nodiscard]] std::string of(const File& file) {
        std::string content = file.safe;
        const std::size_t count = file.unsynced.size();
        const auto temper = random_() % 7;
        const std::size_t chosen = count == 0 ? 0 : random_() % count;
        for (std::size_t index = 0; index < count; ++index) {
            switch (fate(temper, index, chosen)) {
                case Fate::kept:
                    carryOut(file.unsynced[index], content);
                    break;
                case Fate::torn:
                    tear(content, file.unsynced[index]);
                    break;
                case Fate::dropped:
                    break;
            }
        }
        return content;
    }

private:
    enum class Fate { kept, dropped, torn };

    /// Purely independent fates would hardly ever keep, or drop, nearly all of many writes.
    Fate fate(std::uint64_t temper, std::size_t index, std::size_t chosen) {
        switch (temper) {
            case 0:
                return Fate::kept;
            case 1:
                return Fate::dropped;
            case 2:
                return byChance(random_, 2) ? Fate::kept : Fate::dropped;
            case 3:
                return index < chosen ? Fate::kept : index == chosen ? Fate::torn : Fate::dropped;
            case 4:
                return index == chosen ? (byChance(random_, 2) ? Fate::torn : Fate::dropped) : Fate::kept;
            case 5:
                return index == chosen ? Fate::kept : Fate::dropped;
            default:
                return static_cast<Fate>(random_() % 3);
        }
    }

    void tear(std::string& content, const Change& change) {
        if (change.truncates) {
            return;
        }
        if (byChance(random_, 2)) {
            content.resize(std::max(content.size(), change.end()));
        }
        const std::size_t size = hardware_.sectorSize;
        for (std::size_t sector = change.offset / size * size; sector < change.end(); sector += size) {
            const std::size_t begin = std::max(sector, change.offset);
            const std::size_t end = std::min(sector + size, change.end());
            switch (random_() % 4) {
                case 0:
                case 1:
                    write(content, begin,
                          std::string_view(change.bytes).substr(begin - change.offset, end - begin));
                    break;
                case 2:
                    break;
                default:
                    if (hardware_.powersafeOverwrite) {
                        garble(content, begin, end);
                    } else {
                        garble(content, sector, sector + size);
                    }
            }
        }
    }

    void garble(std::string& content, std::size_t begin, std::size_t end) {
        for (; begin < std::min(end, content.size()); ++begin) {
            content[begin] = static_cast<char>(random_());
        }
    }

    const VolatileFileSystem::Hardware& hardware_;
    Random& random_;
};

}  // namespace

std::string Call::description() const {
    const std::string extent = std::to_string(size) + " bytes at " + std::to_string(offset);
    switch (kind) {
        case Kind::create:
            return "making " + file;
        case Kind::write:
            return "writing " + extent + " of " + file;
        case Kind::truncate:
            return "truncating " + file + " to " + std::to_string(offset) + " bytes";
        case Kind::sync:
            return "syncing " + file;
        case Kind::remove:
            return "deleting " + file;
        case Kind::syncDirectory:
            return "syncing the directory";
    }
    return "";
}

struct VolatileFileSystem::State {
    Hardware hardware;
    std::string name;
    sqlite3_vfs vfs{};
    sqlite3_vfs* host = nullptr;

    std::map<std::string, FilePointer> files;
    /// What a name has led to since the directory was synced, but for what it leads to now; null for nothing.
    std::map<std::string, std::vector<FilePointer>> formerFiles;

    std::function<void(const Call&)> observer;
    std::size_t calls = 0;
    std::size_t lastCall = 0;  ///< the call in which the power goes; 0 for none
    bool powerIsCut = false;

    [[nodiscard]] FilePointer find(const std::string& file) const {
        const auto entry = files.find(file);
        return entry == files.end() ? nullptr : entry->second;
    }

    void lead(const std::string& from, const FilePointer& to) {
        formerFiles[from].push_back(find(from));
        if (to) {
            files[from] = to;
        } else {
            files.erase(from);
        }
    }

    /// Counts a call that has begun; false when the power went in it.
    [[nodiscard]] bool goesOn(const Call& call) {
        ++calls;
        if (observer) {
            observer(call);
        }
        powerIsCut = powerIsCut || calls == lastCall;
        return !powerIsCut;
    }

    [[nodiscard]] bool syncDirectory() {
        if (!goesOn({Call::Kind::syncDirectory, "", 0, 0})) {
            return false;
        }
        formerFiles.clear();
        return true;
    }
};

namespace {

using State = VolatileFileSystem::State;

Handle& handleOf(sqlite3_file* file) {
    return *static_cast<Handle*>(file);
}

State& stateOf(sqlite3_vfs* vfs) {
    return *static_cast<State*>(vfs->pAppData);
}

int closeFile(sqlite3_file* file) {
    Handle& handle = handleOf(file);
    std::erase(handle.file->handles, &handle);
    handle.~Handle();
    return SQLITE_OK;
}

int readFile(sqlite3_file* file, void* target, int count, sqlite3_int64 from) {
    const Handle& handle = handleOf(file);
    if (handle.system->powerIsCut) {
        return SQLITE_IOERR_READ;
    }
    const std::string& content = handle.file->current;
    const auto wanted = static_cast<std::size_t>(count);
    const std::size_t offset = std::min(static_cast<std::size_t>(from), content.size());
    const std::size_t available = std::min(wanted, content.size() - offset);
    std::memcpy(target, content.data() + offset, available);
    std::memset(static_cast<char*>(target) + available, 0, wanted - available);
    return available == wanted ? SQLITE_OK : SQLITE_IOERR_SHORT_READ;
}

/// Makes a change and tells of it; false when the power is gone.
bool change(Handle& handle, Call::Kind kind, Change change) {
    if (handle.system->powerIsCut) {
        return false;
    }
    if (handle.name.empty()) {
        carryOut(change, handle.file->current);
        return true;
    }
    const Call call{kind, handle.name, change.offset, change.bytes.size()};
    handle.file->change(std::move(change));
    return handle.system->goesOn(call);
}

int writeFile(sqlite3_file* file, const void* source, int count, sqlite3_int64 to) {
    std::string bytes(static_cast<const char*>(source), static_cast<std::size_t>(count));
    return change(handleOf(file), Call::Kind::write, {false, static_cast<std::size_t>(to), std::move(bytes)})
               ? SQLITE_OK
               : SQLITE_IOERR_WRITE;
}

int truncateFile(sqlite3_file* file, sqlite3_int64 size) {
    return change(handleOf(file), Call::Kind::truncate, {true, static_cast<std::size_t>(size), ""})
               ? SQLITE_OK
               : SQLITE_IOERR_TRUNCATE;
}

int syncFile(sqlite3_file* file, int) {
    Handle& handle = handleOf(file);
    State& system = *handle.system;
    if (handle.name.empty()) {
        return SQLITE_OK;
    }
    if (system.powerIsCut || !system.goesOn({Call::Kind::sync, handle.name, 0, 0})) {
        return SQLITE_IOERR_FSYNC;
    }
    handle.file->sync();
    if (std::exchange(handle.file->syncsDirectory, false) && !system.syncDirectory()) {
        return SQLITE_IOERR_DIR_FSYNC;
    }
    return SQLITE_OK;
}

int fileSize(sqlite3_file* file, sqlite3_int64* size) {
    *size = static_cast<sqlite3_int64>(handleOf(file).file->current.size());
    return handleOf(file).system->powerIsCut ? SQLITE_IOERR_FSTAT : SQLITE_OK;
}

/// Whether another handle on the same file holds at least `level`.
bool othersHold(const Handle& handle, int level) {
    return std::any_of(handle.file->handles.begin(), handle.file->handles.end(),
                       [&](const Handle* other) { return other != &handle && other->lock >= level; });
}

int lockFile(sqlite3_file* file, int level) {
    Handle& handle = handleOf(file);
    if (handle.system->powerIsCut) {
        return SQLITE_IOERR_LOCK;
    }
    if (handle.lock >= level) {
        return SQLITE_OK;
    }
    if (othersHold(handle, level == SQLITE_LOCK_RESERVED ? SQLITE_LOCK_RESERVED : SQLITE_LOCK_PENDING)) {
        return SQLITE_BUSY;
    }
    if (level == SQLITE_LOCK_EXCLUSIVE) {
        handle.lock = SQLITE_LOCK_PENDING;
        if (othersHold(handle, SQLITE_LOCK_SHARED)) {
            return SQLITE_BUSY;
        }
    }
    handle.lock = level;
    return SQLITE_OK;
}

int unlockFile(sqlite3_file* file, int level) {
    Handle& handle = handleOf(file);
    handle.lock = std::min(handle.lock, level);
    return SQLITE_OK;
}

int checkReservedLock(sqlite3_file* file, int* isHeld) {
    const Handle& handle = handleOf(file);
    *isHeld = handle.lock >= SQLITE_LOCK_RESERVED || othersHold(handle, SQLITE_LOCK_RESERVED) ? 1 : 0;
    return SQLITE_OK;
}

int controlFile(sqlite3_file*, int, void*) {
    return SQLITE_NOTFOUND;
}

/// What the engine's own file system reports. Where overwrites are powersafe the number hardly matters; the
/// sectors that are torn are smaller.
int reportedSectorSize(sqlite3_file* file) {
    const VolatileFileSystem::Hardware& hardware = handleOf(file).system->hardware;
    return hardware.powersafeOverwrite ? 4096 : static_cast<int>(hardware.sectorSize);
}

int deviceCharacteristics(sqlite3_file* file) {
    return handleOf(file).system->hardware.powersafeOverwrite ? SQLITE_IOCAP_POWERSAFE_OVERWRITE : 0;
}

int mapSharedMemory(sqlite3_file* file, int region, int size, int extend, void volatile** memory) {
    Handle& handle = handleOf(file);
    auto& regions = handle.file->sharedMemory;
    *memory = nullptr;
    if (handle.system->powerIsCut || static_cast<std::size_t>(size) != sizeof *regions.front()) {
        return SQLITE_IOERR_SHMMAP;
    }
    handle.usesSharedMemory = true;
    const auto index = static_cast<std::size_t>(region);
    while (extend != 0 && regions.size() <= index) {
        regions.push_back(std::make_unique<std::array<char, 32768>>());
        regions.back()->fill(0);
    }
    if (index < regions.size()) {
        *memory = regions[index]->data();
    }
    return SQLITE_OK;
}

int lockSharedMemory(sqlite3_file* file, int first, int count, int flags) {
    Handle& handle = handleOf(file);
    const unsigned slots = ((1U << count) - 1U) << first;
    if ((flags & SQLITE_SHM_UNLOCK) != 0) {
        handle.sharedSlots &= ~slots;
        handle.exclusiveSlots &= ~slots;
        return SQLITE_OK;
    }
    const bool exclusive = (flags & SQLITE_SHM_EXCLUSIVE) != 0;
    for (const Handle* other : handle.file->handles) {
        const unsigned inTheWay = other->exclusiveSlots | (exclusive ? other->sharedSlots : 0U);
        if (other != &handle && (inTheWay & slots) != 0) {
            return SQLITE_BUSY;
        }
    }
    (exclusive ? handle.exclusiveSlots : handle.sharedSlots) |= slots;
    return SQLITE_OK;
}

void sharedMemoryBarrier(sqlite3_file*) {
    std::atomic_thread_fence(std::memory_order_seq_cst);
}

int unmapSharedMemory(sqlite3_file* file, int) {
    Handle& handle = handleOf(file);
    handle.usesSharedMemory = false;
    handle.sharedSlots = 0;
    handle.exclusiveSlots = 0;
    const auto& handles = handle.file->handles;
    if (std::none_of(handles.begin(), handles.end(),
                     [](const Handle* one) { return one->usesSharedMemory; })) {
        handle.file->sharedMemory.clear();
    }
    return SQLITE_OK;
}

const sqlite3_io_methods& fileMethods() {
    static const sqlite3_io_methods methods = [] {
        sqlite3_io_methods result{};
        result.iVersion = 2;
        result.xClose = closeFile;
        result.xRead = readFile;
        result.xWrite = writeFile;
        result.xTruncate = truncateFile;
        result.xSync = syncFile;
        result.xFileSize = fileSize;
        result.xLock = lockFile;
        result.xUnlock = unlockFile;
        result.xCheckReservedLock = checkReservedLock;
        result.xFileControl = controlFile;
        result.xSectorSize = reportedSectorSize;
        result.xDeviceCharacteristics = deviceCharacteristics;
        result.xShmMap = mapSharedMemory;
        result.xShmLock = lockSharedMemory;
        result.xShmBarrier = sharedMemoryBarrier;
        result.xShmUnmap = unmapSharedMemory;
        return result;
    }();
    return methods;
}

/// The file that a name leads to, made when there is none and the engine allows it; null on failure.
FilePointer findOrMake(State& system, const std::string& name, int flags) {
    FilePointer file = system.find(name);
    if (file) {
        return file;
    }
    if ((flags & SQLITE_OPEN_CREATE) == 0) {
        return nullptr;
    }
    file = std::make_shared<File>();
    file->syncsDirectory = (flags & (SQLITE_OPEN_MAIN_JOURNAL | SQLITE_OPEN_WAL)) != 0;
    system.lead(name, file);
    return system.goesOn({Call::Kind::create, name, 0, 0}) ? file : nullptr;
}

int openFile(sqlite3_vfs* vfs, const char* name, sqlite3_file* target, int flags, int* outFlags) {
    State& system = stateOf(vfs);
    target->pMethods = nullptr;
    if (system.powerIsCut) {
        return SQLITE_CANTOPEN;
    }
    const FilePointer file = name == nullptr ? std::make_shared<File>() : findOrMake(system, name, flags);
    if (!file) {
        return SQLITE_CANTOPEN;
    }
    auto* const handle = new (target) Handle;
    handle->pMethods = &fileMethods();
    handle->system = &system;
    handle->name = name == nullptr ? "" : name;
    handle->file = file;
    file->handles.push_back(handle);
    if (outFlags != nullptr) {
        *outFlags = flags;
    }
    return SQLITE_OK;
}

int deleteFile(sqlite3_vfs* vfs, const char* name, int syncsDirectory) {
    State& system = stateOf(vfs);
    if (system.powerIsCut) {
        return SQLITE_IOERR_DELETE;
    }
    if (!system.find(name)) {
        return SQLITE_IOERR_DELETE_NOENT;
    }
    system.lead(name, nullptr);
    if (!system.goesOn({Call::Kind::remove, name, 0, 0})) {
        return SQLITE_IOERR_DELETE;
    }
    return syncsDirectory == 0 || system.syncDirectory() ? SQLITE_OK : SQLITE_IOERR_DIR_FSYNC;
}

/// As the engine's own file system for Unix sees it, an empty file does not exist.
int accessFile(sqlite3_vfs* vfs, const char* name, int flags, int* answer) {
    const FilePointer file = stateOf(vfs).find(name);
    *answer = file && (flags != SQLITE_ACCESS_EXISTS || !file->current.empty()) ? 1 : 0;
    return stateOf(vfs).powerIsCut ? SQLITE_IOERR_ACCESS : SQLITE_OK;
}

int fullPathName(sqlite3_vfs*, const char* name, int size, char* target) {
    sqlite3_snprintf(size, target, "%s", name);
    return SQLITE_OK;
}

int randomness(sqlite3_vfs* vfs, int size, char* target) {
    sqlite3_vfs* const host = stateOf(vfs).host;
    return host->xRandomness(host, size, target);
}

/// Nobody else runs in the meantime.
int sleepFor(sqlite3_vfs*, int microseconds) {
    return microseconds;
}

int currentTime(sqlite3_vfs* vfs, double* julianDay) {
    sqlite3_vfs* const host = stateOf(vfs).host;
    return host->xCurrentTime(host, julianDay);
}

int lastError(sqlite3_vfs*, int, char*) {
    return 0;
}

}  // namespace

VolatileFileSystem::VolatileFileSystem(const Hardware& hardware) : state_(std::make_unique<State>()) {
    static std::atomic<int> count = 0;
    state_->hardware = hardware;
    state_->name = "volatile-" + std::to_string(++count);
    state_->host = sqlite3_vfs_find(nullptr);
    sqlite3_vfs& vfs = state_->vfs;
    vfs.iVersion = 1;
    vfs.szOsFile = static_cast<int>(sizeof(Handle));
    vfs.mxPathname = 256;
    vfs.zName = state_->name.c_str();
    vfs.pAppData = state_.get();
    vfs.xOpen = openFile;
    vfs.xDelete = deleteFile;
    vfs.xAccess = accessFile;
    vfs.xFullPathname = fullPathName;
    vfs.xRandomness = randomness;
    vfs.xSleep = sleepFor;
    vfs.xCurrentTime = currentTime;
    vfs.xGetLastError = lastError;
    if (sqlite3_vfs_register(&vfs, 0) != SQLITE_OK) {
        throw std::runtime_error("the engine refuses the file system " + state_->name);
    }
}

VolatileFileSystem::~VolatileFileSystem() {
    sqlite3_vfs_unregister(&state_->vfs);
}

const std::string& VolatileFileSystem::name() const {
    return state_->name;
}

std::size_t VolatileFileSystem::calls() const {
    return state_->calls;
}

void VolatileFileSystem::observe(std::function<void(const Call&)> observer) {
    state_->observer = std::move(observer);
}

void VolatileFileSystem::cutPowerAtCall(std::size_t number) {
    state_->lastCall = number;
}

bool VolatileFileSystem::powerIsCut() const {
    return state_->powerIsCut;
}

std::unique_ptr<VolatileFileSystem> VolatileFileSystem::afterPowerLoss(Random& random) const {
    auto survivor = std::make_unique<VolatileFileSystem>(state_->hardware);
    Survival survival(state_->hardware, random);
    std::map<std::string, std::vector<FilePointer>> candidates = state_->formerFiles;
    for (const auto& [name, file] : state_->files) {
        candidates[name].push_back(file);
    }
    for (const auto& [name, former] : state_->formerFiles) {
        if (!state_->find(name)) {
            candidates[name].push_back(nullptr);
        }
    }
    const auto temper = random() % 3;
    for (const auto& [name, files] : candidates) {
        const FilePointer file = temper == 0   ? files.back()
                                 : temper == 1 ? files.front()
                                               : files[random() % files.size()];
        if (file) {
            const auto found = std::make_shared<File>();
            found->safe = survival.of(*file);
            found->current = found->safe;
            survivor->state_->files[name] = found;
        }
    }
    return survivor;
}

void VolatileFileSystem::copyTo(const std::filesystem::path& directory) const {
    for (const auto& [name, file] : state_->files) {
        std::ofstream stream(directory / name, std::ios::binary);
        if (!(stream << file->current).flush()) {
            throw std::runtime_error("cannot write " + name);
        }
    }
}

}  // namespace zav::test
