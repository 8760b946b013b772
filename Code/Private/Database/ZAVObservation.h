#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "Private/Database/FMObservation.h"

struct sqlite3;

namespace zav {

class ZAVStatement;

/// Collects the rows that a connection changes, as the engine's hooks tell of them, until they are committed.
/// The engine has hooks to call only while there is a collector.
class ZAVChangeCollector {
public:
    ZAVChangeCollector(sqlite3* connection, FMChangeObserver observer);
    ~ZAVChangeCollector() { stop(); }
    ZAVChangeCollector(const ZAVChangeCollector&) = delete;
    ZAVChangeCollector& operator=(const ZAVChangeCollector&) = delete;

    /// Takes the hooks away. Another collector may come only after that.
    void stop() noexcept;

    /// How many changes wait for their commit.
    [[nodiscard]] std::size_t pending() const noexcept { return changes_.size(); }

    /// Drops all but the first `count`. A statement that fails inside a transaction takes its own changes
    /// back, which no hook tells.
    void keepFirst(std::size_t count) noexcept;

    /// Tells the observer what has been committed, if anything has.
    void deliver() noexcept;

private:
    static void rowChanged(void* collector, int operation, const char* database, const char* table,
                           long long row) noexcept;
    static void rolledBack(void* collector) noexcept;

    sqlite3* connection_;  ///< null once stopped
    FMChangeObserver observer_;
    std::vector<FMRowChange> changes_;
    bool isIncomplete_ = false;
};

/// Who watches a handle. A handle that nobody watches has none of these.
struct ZAVObservation {
    FMStatementObserver statements;
    std::shared_ptr<ZAVChangeCollector> changes;  ///< shared with a delivery, in which it may be replaced

    [[nodiscard]] bool isIdle() const noexcept { return !statements && changes == nullptr; }

    /// Steps the statement, and notes the time and the row.
    [[nodiscard]] static int step(ZAVStatement& statement) noexcept;

    /// Before a statement is given back: tells of its run.
    void statementEnds(ZAVStatement& statement, bool succeeded) const noexcept;
};

}  // namespace zav
