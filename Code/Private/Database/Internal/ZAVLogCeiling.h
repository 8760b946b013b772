#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <utility>

#include "Private/Database/Internal/ZAVStatementCache.h"

struct sqlite3;

namespace zav {

class ZAVCheckpointGuard;

/// Has commits wait for the readers of a write-ahead log that has grown too large.
///
/// A log is begun anew by one who writes when all of it was copied and nobody reads from it. Readers who take
/// turns without a pause keep it from that moment, each for a short while, and the log grows. Who begins to
/// read when all of it was copied needs none of it: so the writer of a log at its ceiling copies, and waits,
/// until those are gone who began before. It holds no lock meanwhile, and its commit stands.
///
/// One who reads for longer than a commit waits is not waited for again and again: the log grows by a quarter
/// of the ceiling before the next commit waits. A statement of the same connection that reads from the log
/// cannot end while its commit waits, so there is no wait then. Both are told in an error line, and so is a
/// log that cannot be copied, each as often as there would be a wait.
class ZAVLogCeiling {
public:
    /// @param statements those of the connection, whose cursors the error line names.
    explicit ZAVLogCeiling(const ZAVStatementCache& statements) noexcept : statements_(statements) {}

    /// @param pages when a commit waits; 0 for never.
    /// @param longestWait how long it does at most.
    void set(int pages, std::chrono::milliseconds longestWait) noexcept;

    /// Asks while a commit waits whether the wait is to end. It must not throw.
    void setEarlyEnd(std::function<bool()> isOver) { isOver_ = std::move(isOver); }

    /// Called without a lock after each commit that leaves so many pages in the log.
    void noteCommit(ZAVCheckpointGuard& guard, const char* schema, int pages) noexcept {
        if (pages < pages_) {
            next_ = pages_;
        } else if (pages_ > 0 && pages >= next_) [[unlikely]] {
            keepDown(guard, schema, pages);
        }
    }

private:
    void keepDown(ZAVCheckpointGuard& guard, const char* schema, int pages) noexcept;
    [[nodiscard]] int waitForReaders(ZAVCheckpointGuard& guard, const char* schema) const noexcept;
    void reportOwnReader(sqlite3* connection, int pages) const noexcept;

    const ZAVStatementCache& statements_;
    int pages_ = 0;
    std::chrono::milliseconds longestWait_{0};
    std::function<bool()> isOver_;
    std::int64_t next_ = 0;  ///< how many pages have a commit wait
};

}  // namespace zav
