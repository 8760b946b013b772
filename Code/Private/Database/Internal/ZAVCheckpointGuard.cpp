#include "Private/Database/Internal/ZAVCheckpointGuard.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <string>
#include <utility>

#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <ZAVEventRepository/ZAVDatabaseError.h>

#include "Private/Database/Internal/ZAVOpenFiles.h"

namespace zav {
namespace {

constexpr const char* checkpointPragma = "wal_checkpoint";
constexpr const char* automaticPragma = "wal_autocheckpoint";

/// Some of the locks in the log's index. The first is the one that a connection holds while it writes to the
/// log.
class LogLocks {
public:
    LogLocks(sqlite3_file& file, int first, int count) noexcept
        : file_(file), first_(first), count_(count), status_(change(SQLITE_SHM_LOCK)) {}
    ~LogLocks() {
        if (status_ == SQLITE_OK) {
            change(SQLITE_SHM_UNLOCK);
        }
    }
    LogLocks(const LogLocks&) = delete;
    LogLocks& operator=(const LogLocks&) = delete;

    [[nodiscard]] int status() const noexcept { return status_; }

private:
    int change(int action) const noexcept {
        return file_.pMethods->xShmLock(&file_, first_, count_, action | SQLITE_SHM_EXCLUSIVE);
    }

    sqlite3_file& file_;
    int first_;
    int count_;
    int status_;
};

/// The beginning of the log's index: what is in the log, written twice by whoever holds the writer's lock,
/// and how much of it was copied.
class LogIndex {
public:
    /// @param file one whose log this connection has read from.
    explicit LogIndex(sqlite3_file& file) noexcept {
        constexpr int pageSize = 32768;
        void volatile* memory = nullptr;
        if (file.pMethods->xShmMap(&file, 0, pageSize, 0, &memory) == SQLITE_OK && memory != nullptr) {
            const auto* words = static_cast<const volatile std::uint32_t*>(memory);
            for (std::uint32_t& word : words_) {
                word = *words++;
            }
        }
    }

    /// Whether it is as its writer left it. If not, the next connection that reads makes it anew from the
    /// log, and takes and gives back the writer's lock for that.
    [[nodiscard]] bool isWhole() const noexcept {
        std::uint32_t first = 0;
        std::uint32_t second = 0;
        for (std::size_t at = 0; at < sum; at += 2) {
            first += words_[at] + second;
            second += words_[at + 1] + first;
        }
        const auto* const copy = words_.begin() + headerSize;
        const bool areAlike = std::equal(words_.begin(), copy, copy, copy + headerSize);
        const auto flags = std::bit_cast<std::array<unsigned char, sizeof(std::uint32_t)>>(words_[3]);
        return areAlike && flags[0] != 0 && first == words_[sum] && second == words_[sum + 1];
    }

    [[nodiscard]] ZAVCheckpointGuard::Outcome outcome(int status) const noexcept {
        return {status, words_[4], words_[2 * headerSize]};
    }

private:
    static constexpr std::size_t headerSize = 12;  ///< in words, the sum of those before it among them
    static constexpr std::size_t sum = 10;

    std::array<std::uint32_t, 2 * headerSize + 1> words_{};
};

/// The engine's own checkpoint, which waits for nobody.
ZAVCheckpointGuard::Outcome copyUnguarded(sqlite3* connection, const char* schema) noexcept {
    int frames = 0;
    int copied = 0;
    const int status =
        sqlite3_wal_checkpoint_v2(connection, schema, SQLITE_CHECKPOINT_PASSIVE, &frames, &copied);
    return {status, std::max(frames, 0), std::max(copied, 0)};
}

}  // namespace

ZAVCheckpointGuard::ZAVCheckpointGuard(sqlite3* connection, const ZAVStatementCache& statements) noexcept
    : connection_(connection), ceiling_(statements) {
    if (!ZAVDatabaseEngine::hasSafeCheckpoints()) {
        sqlite3_wal_hook(connection, noteCommit, this);
        sqlite3_set_authorizer(connection, authorize, this);
    }
}

void ZAVCheckpointGuard::leave(sqlite3* connection) noexcept {
    sqlite3_wal_hook(connection, nullptr, nullptr);
    sqlite3_set_authorizer(connection, nullptr, nullptr);
}

void ZAVCheckpointGuard::setLimits(const Limits& limits) noexcept {
    automaticPages_ = limits.automaticPages;
    const bool hasCeiling = limits.automaticPages > 0 && limits.ceiling > 0;
    ceiling_.set(hasCeiling ? std::max(limits.ceiling, limits.automaticPages) : 0, limits.longestWait);
    if (!ZAVDatabaseEngine::hasSafeCheckpoints()) {
        return;
    }
    if (hasCeiling) {
        sqlite3_wal_hook(connection_, noteCommit, this);
    } else {
        sqlite3_wal_autocheckpoint(connection_, automaticPages_);
    }
}

/// What is answered is the answer of the commit, which stands whatever becomes of the checkpoint.
int ZAVCheckpointGuard::noteCommit(void* guard, sqlite3*, const char* schema, int pages) noexcept {
    auto& self = *static_cast<ZAVCheckpointGuard*>(guard);
    if (self.automaticPages_ > 0 && pages >= self.automaticPages_) {
        static_cast<void>(self.copy(schema));
    }
    if (sqlite3_stricmp(schema, "main") == 0) {  // an attached file has no ceiling
        self.ceiling_.noteCommit(self, schema, pages);
    }
    return SQLITE_OK;
}

ZAVCheckpointGuard::Outcome ZAVCheckpointGuard::copy(const char* schema) noexcept {
    if (isInUse(schema)) {
        return {SQLITE_LOCKED, 0, 0};
    }
    if (sqlite3_db_readonly(connection_, schema) == 1) {
        return {SQLITE_READONLY, 0, 0};
    }
    return ZAVDatabaseEngine::hasSafeCheckpoints() || isAlone(schema) ? copyUnguarded(connection_, schema)
                                                                      : copyWithLock(schema);
}

ZAVCheckpointGuard::Outcome ZAVCheckpointGuard::copyWithLock(const char* schema) noexcept {
    sqlite3_file& file = *ZAVOpenFile(connection_, schema);
    const LogLocks lock(file, 0, 1);
    const LogIndex index(file);
    if (lock.status() != SQLITE_OK) {
        return index.outcome(lock.status());
    }
    return index.isWhole() ? copyUnguarded(connection_, schema) : index.outcome(SQLITE_BUSY);
}

/// The marks of those who read are locks in the log's index, behind those of the writer, of the checkpointer,
/// of recovery and of those who read past the log. Nobody waits for one that is held for a moment: one who
/// begins to read takes another mark, or asks again.
bool ZAVCheckpointGuard::hasReaders(const char* schema) const noexcept {
    constexpr int firstMark = 4;
    constexpr int markCount = 4;
    return !isAlone(schema) &&
           LogLocks(*ZAVOpenFile(connection_, schema), firstMark, markCount).status() != SQLITE_OK;
}

/// Whether this connection reads or writes by itself. It might hold the writer's lock then, and would lose it
/// with the guard's.
bool ZAVCheckpointGuard::isInUse(const char* schema) const noexcept {
#ifdef SQLITE_TXN_NONE
    if (sqlite3_txn_state(connection_, schema) != SQLITE_TXN_NONE) {
        return true;
    }
#else
    static_cast<void>(schema);
#endif
    bool isBusy = sqlite3_get_autocommit(connection_) == 0;
    sqlite3_stmt* statement = nullptr;
    while (!isBusy && (statement = sqlite3_next_stmt(connection_, statement)) != nullptr) {
        isBusy = sqlite3_stmt_busy(statement) != 0;
    }
    return isBusy;
}

/// Whether no other connection can be in the file: there is nobody to guard against, and no index with locks
/// in it either.
bool ZAVCheckpointGuard::isAlone(const char* schema) const noexcept {
    const sqlite3_file* const file = ZAVOpenFile(connection_, schema);
    if (file == nullptr || file->pMethods->iVersion < 2 || file->pMethods->xShmLock == nullptr) {
        return true;
    }
    int level = SQLITE_LOCK_NONE;
    return sqlite3_file_control(connection_, schema, SQLITE_FCNTL_LOCKSTATE, &level) == SQLITE_OK &&
           level == SQLITE_LOCK_EXCLUSIVE;
}

int ZAVCheckpointGuard::authorize(void* guard, int action, const char* name, const char* argument,
                                  const char*, const char*) noexcept {
    if (action != SQLITE_PRAGMA || name == nullptr) {
        return SQLITE_OK;
    }
    auto& self = *static_cast<ZAVCheckpointGuard*>(guard);
    if (sqlite3_stricmp(name, checkpointPragma) == 0) {
        self.refused_ = checkpointPragma;
    } else if (sqlite3_stricmp(name, automaticPragma) == 0 && argument != nullptr) {
        self.refused_ = automaticPragma;
    } else {
        return SQLITE_OK;
    }
    return SQLITE_DENY;
}

std::optional<ZAVError> ZAVCheckpointGuard::takeRefusal() {
    const char* const refused = std::exchange(refused_, nullptr);
    if (refused == nullptr || sqlite3_errcode(connection_) != SQLITE_AUTH) {
        return std::nullopt;
    }
    const std::string name = refused;
    return ZAVError(ZAVErrorDomainDatabase, ZAVDatabaseErrorUnsafeCheckpoint,
                    "PRAGMA " + name + " is refused: checkpoints of SQLite " +
                        std::string(ZAVDatabaseEngine::version()) +
                        " may lose what another connection commits meanwhile; use " +
                        (name == checkpointPragma ? "ZAVDatabaseMaintenance::checkpoint"
                                                  : "FMDatabaseOptions::writeAheadLogPages"));
}

}  // namespace zav
