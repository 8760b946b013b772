#include "Private/Database/Internal/ZAVObserverRegistry.h"

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <string_view>
#include <utility>

#include "Private/Database/Internal/ZAVSavepointStatement.h"
#include "Private/Database/Internal/ZAVStatementCache.h"

namespace zav {
namespace {

FMRowChange::Kind kindOf(int operation) noexcept {
    switch (operation) {
        case SQLITE_INSERT:
            return FMRowChange::Kind::insertion;
        case SQLITE_DELETE:
            return FMRowChange::Kind::removal;
        default:
            return FMRowChange::Kind::update;
    }
}

}  // namespace

ZAVChangeCollector::ZAVChangeCollector(sqlite3* connection, FMChangeObserver observer)
    : connection_(connection), observer_(std::move(observer)) {
    sqlite3_update_hook(connection, rowChanged, this);
    sqlite3_commit_hook(connection, commits, this);
    sqlite3_rollback_hook(connection, rolledBack, this);
}

void ZAVChangeCollector::stop() noexcept {
    if (sqlite3* const connection = std::exchange(connection_, nullptr)) {
        sqlite3_update_hook(connection, nullptr, nullptr);
        sqlite3_commit_hook(connection, nullptr, nullptr);
        sqlite3_rollback_hook(connection, nullptr, nullptr);
    }
}

void ZAVChangeCollector::rowChanged(void* collector, int operation, const char* database, const char* table,
                                    long long row) noexcept {
    auto& self = *static_cast<ZAVChangeCollector*>(collector);
    if (std::string_view(database) != "main") {
        return;
    }
    try {
        FMRowChange& change = self.changes_.emplace_back();
        change.kind = kindOf(operation);
        change.table = table;
        change.row = row;
    } catch (const std::bad_alloc&) {
        self.isIncomplete_ = true;
    }
}

/// Called when a commit begins; it may yet fail.
int ZAVChangeCollector::commits(void* collector) noexcept {
    static_cast<ZAVChangeCollector*>(collector)->commitBegan_ = true;
    return 0;
}

void ZAVChangeCollector::rolledBack(void* collector) noexcept {
    auto& self = *static_cast<ZAVChangeCollector*>(collector);
    self.changes_.clear();
    self.savepoints_.clear();
    self.commitBegan_ = false;
    self.isIncomplete_ = false;
}

int ZAVChangeCollector::step(sqlite3_stmt* statement, std::size_t& changesBefore) noexcept {
    if (sqlite3_stmt_busy(statement) == 0) {
        changesBefore = changes_.size();
    }
    const int status = sqlite3_step(statement);
    if (status == SQLITE_ROW) {
        return status;
    }
    const bool writes = sqlite3_stmt_readonly(statement) == 0;
    if (writes && status == SQLITE_DONE) {
        attribute();
    } else if (writes) {
        // It takes all its changes back, unless it keeps those before the failure (OR FAIL): the engine
        // counts what stays.
        if (sqlite3_changes(connection_) == 0) {
            keepFirst(changesBefore);
        }
    } else if (status == SQLITE_DONE && sqlite3_column_count(statement) == 0) {
        try {
            followSavepoints(sqlite3_sql(statement));
        } catch (const std::bad_alloc&) {
            isIncomplete_ = true;
        }
    }
    return status;
}

void ZAVChangeCollector::attribute() noexcept {
    const bool isNew = attribution_ != nullptr && (changes_.empty() || changes_.back() != *attribution_);
    if (isNew && sqlite3_changes(connection_) > 0) {
        try {
            changes_.push_back(*attribution_);
        } catch (const std::bad_alloc&) {
            isIncomplete_ = true;
        }
    }
}

void ZAVChangeCollector::keepFirst(std::size_t count) noexcept {
    changes_.resize(std::min(count, changes_.size()));
}

void ZAVChangeCollector::followSavepoints(const char* sql) {
    if (sqlite3_get_autocommit(connection_) != 0) {
        savepoints_.clear();
        return;
    }
    const ZAVSavepointStatement statement(sql);
    switch (statement.kind) {
        case ZAVSavepointStatement::Kind::none:
        case ZAVSavepointStatement::Kind::transaction:
            break;
        case ZAVSavepointStatement::Kind::set:
            savepoints_.push_back({statement.name, changes_.size()});
            break;
        case ZAVSavepointStatement::Kind::release:
            savepoints_.erase(innermost(statement.name), savepoints_.end());
            break;
        case ZAVSavepointStatement::Kind::rollbackTo:
            if (const auto savepoint = innermost(statement.name); savepoint != savepoints_.end()) {
                keepFirst(savepoint->changesBefore);
                savepoints_.erase(savepoint + 1, savepoints_.end());
            } else {  // set before there was an observer, and so before all that was collected
                keepFirst(0);
                savepoints_.clear();
            }
            break;
    }
}

std::vector<ZAVChangeCollector::Savepoint>::iterator ZAVChangeCollector::innermost(const std::string& name) {
    const auto found = std::find_if(savepoints_.rbegin(), savepoints_.rend(), [&](const Savepoint& one) {
        return sqlite3_stricmp(one.name.c_str(), name.c_str()) == 0;
    });
    return found == savepoints_.rend() ? savepoints_.end() : found.base() - 1;
}

void ZAVChangeCollector::deliver() noexcept {
    // A commit that met a lock leaves its transaction open.
    if (!std::exchange(commitBegan_, false) || sqlite3_get_autocommit(connection_) == 0) {
        return;
    }
    savepoints_.clear();
    auto committed = std::exchange(changes_, {});
    if (std::exchange(isIncomplete_, false)) {
        committed.clear();
    } else if (committed.empty()) {
        return;
    }
    observer_(committed);
    constexpr std::size_t mostKept = 100;
    if (changes_.empty() && committed.capacity() <= mostKept) {
        committed.clear();
        changes_.swap(committed);  // the next commit needs as much memory, as a rule
    }
}

int ZAVObserverRegistry::step(ZAVStatement& statement) const noexcept {
    if (!statements) {
        return changes->step(statement.handle(), statement.changesBefore);
    }
    const auto start = std::chrono::steady_clock::now();
    const int status = changes != nullptr ? changes->step(statement.handle(), statement.changesBefore)
                                          : sqlite3_step(statement.handle());
    statement.duration += std::chrono::steady_clock::now() - start;
    statement.rows += status == SQLITE_ROW ? 1 : 0;
    return status;
}

void ZAVObserverRegistry::statementEnds(ZAVStatement& statement, bool succeeded) const noexcept {
    const FMStatementRun run{statement.sql(), std::exchange(statement.duration, {}),
                             std::exchange(statement.rows, 0), succeeded};
    if (statements) {
        statements(run);
    }
}

}  // namespace zav
