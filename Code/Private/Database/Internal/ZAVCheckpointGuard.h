#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

#include <ZAVEventRepository/ZAVError.h>

#include "Private/Database/Internal/ZAVLogCeiling.h"

struct sqlite3;

namespace zav {

/// Folds the write-ahead logs of one connection into their files.
///
/// Where `ZAVDatabaseEngine::hasSafeCheckpoints` is false, a checkpoint must not run while another connection
/// commits: the commit may begin the log anew, and the checkpoint then notes pages as copied that are not. So
/// there the connection holds the writer's lock while it copies, past the engine, which would not copy inside
/// a transaction. It copies what it can without waiting: a commit beside it waits for the copying alone. When
/// it cannot have the lock it copies nothing; the next commit tries again.
///
/// Where checkpoints are safe the engine copies after a commit by itself, unless the log has a ceiling: the
/// hook of the log is needed for that.
///
/// Statements that would have the engine copy without that lock are refused while they are prepared. For this
/// it is the authorizer of its connection, and for the copying the hook of the log. Opening a log that a
/// crash left, closing the last connection and leaving the log hold the whole file, and are the engine's own.
class ZAVCheckpointGuard {
public:
    /// What the log has and what was copied, as far as it is known.
    struct Outcome {
        int status = 0;           ///< of the engine; `SQLITE_BUSY` when another connection was in the way
        std::int64_t frames = 0;  ///< pages in the log
        std::int64_t copied = 0;  ///< of them those that are in the file too
    };

    /// @param connection an open connection.
    /// @param statements those of the connection.
    ZAVCheckpointGuard(sqlite3* connection, const ZAVStatementCache& statements) noexcept;
    ~ZAVCheckpointGuard() = default;
    ZAVCheckpointGuard(const ZAVCheckpointGuard&) = delete;
    ZAVCheckpointGuard& operator=(const ZAVCheckpointGuard&) = delete;

    /// When a commit does something about the pages that it leaves in the log.
    struct Limits {
        int automaticPages = 0;                    ///< it copies them; 0 leaves that to others
        int ceiling = 0;                           ///< it waits for readers; 0 for never
        std::chrono::milliseconds longestWait{0};  ///< for readers
    };

    /// A ceiling below the number of pages that are copied is taken for that number, and for none where none
    /// are.
    void setLimits(const Limits& limits) noexcept;

    /// Asks while a commit waits for readers whether the wait is to end; nothing is said of that then.
    /// @param isOver must not throw.
    void setEarlyEnd(std::function<bool()> isOver) { ceiling_.setEarlyEnd(std::move(isOver)); }

    /// Copies what can be copied without waiting. The connection must have read from the file since it was
    /// opened, and found a write-ahead log.
    [[nodiscard]] Outcome copy(const char* schema) noexcept;

    /// Whether somebody reads from the log, and not past it from the file alone, so that it cannot be begun
    /// anew. The connection must not be in use.
    [[nodiscard]] bool hasReaders(const char* schema) const noexcept;

    [[nodiscard]] sqlite3* connection() const noexcept { return connection_; }

    /// Whether this connection reads or writes just now.
    [[nodiscard]] bool isInUse(const char* schema) const noexcept;

    /// Why the statement that could not be prepared just now was refused, if it was.
    [[nodiscard]] std::optional<ZAVError> takeRefusal();

    /// Takes the hooks of a connection away, which may outlive its guard.
    static void leave(sqlite3* connection) noexcept;

private:
    static int authorize(void* guard, int action, const char* name, const char* argument, const char* schema,
                         const char* origin) noexcept;
    static int noteCommit(void* guard, sqlite3* connection, const char* schema, int pages) noexcept;
    [[nodiscard]] Outcome copyWithLock(const char* schema) noexcept;
    [[nodiscard]] bool isAlone(const char* schema) const noexcept;

    sqlite3* connection_;
    ZAVLogCeiling ceiling_;
    int automaticPages_ = 0;
    const char* refused_ = nullptr;  ///< the pragma that was refused last
};

}  // namespace zav
