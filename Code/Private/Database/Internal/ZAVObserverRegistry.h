#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <ZAVEventRepository/FMObservation.h>

struct sqlite3;
struct sqlite3_stmt;

namespace zav {

class ZAVStatement;

/// Collects the rows that a connection changes, as the engine's hooks report them, until they are committed.
/// The engine has hooks to call only while there is a collector.
class ZAVChangeCollector {
public:
    ZAVChangeCollector(sqlite3* connection, FMChangeObserver observer);
    ~ZAVChangeCollector() { stop(); }
    ZAVChangeCollector(const ZAVChangeCollector&) = delete;
    ZAVChangeCollector& operator=(const ZAVChangeCollector&) = delete;

    /// Takes the hooks away. Another collector may come only after that.
    void stop() noexcept;

    /// Steps a statement, and drops what the engine takes back with it without calling a hook: the changes of
    /// a statement that fails, and those since a savepoint that is returned to.
    /// @param changesBefore how many changes waited when the statement was first stepped; kept by the caller
    /// between the steps of one run.
    [[nodiscard]] int step(sqlite3_stmt* statement, std::size_t& changesBefore) noexcept;

    /// Has each statement that changes something be a change of this too, which must stay until another is
    /// given, or null: for tables that the engine's hooks do not see.
    void attributeStatements(const FMRowChange* change) noexcept { attribution_ = change; }

    /// Reports to the observer what has been committed, if anything has.
    void deliver() noexcept;

private:
    struct Savepoint {
        std::string name;
        std::size_t changesBefore;
    };

    static void rowChanged(void* collector, int operation, const char* database, const char* table,
                           long long row) noexcept;
    static int commits(void* collector) noexcept;
    static void rolledBack(void* collector) noexcept;

    void keepFirst(std::size_t count) noexcept;
    void attribute() noexcept;
    void followSavepoints(const char* sql);
    [[nodiscard]] std::vector<Savepoint>::iterator innermost(const std::string& name);

    sqlite3* connection_;  ///< null once stopped
    FMChangeObserver observer_;
    std::vector<FMRowChange> changes_;
    const FMRowChange* attribution_ = nullptr;
    std::vector<Savepoint> savepoints_;  ///< the open ones, the innermost last
    bool commitBegan_ = false;
    bool isIncomplete_ = false;
};

/// The observers of a handle, and the collector that owns the engine's hooks for them. A handle that nobody
/// observes has no registry.
struct ZAVObserverRegistry {
    FMStatementObserver statements;
    std::shared_ptr<ZAVChangeCollector> changes;  ///< shared with a delivery, in which it may be replaced

    /// Steps the statement, and notes the time, the row and the changes.
    [[nodiscard]] int step(ZAVStatement& statement) const noexcept;

    /// Before a statement is given back: reports its run.
    void statementEnds(ZAVStatement& statement, bool succeeded) const noexcept;
};

}  // namespace zav
