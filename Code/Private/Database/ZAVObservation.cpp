#include "Private/Database/ZAVObservation.h"

#include <sqlite3.h>

#include <chrono>
#include <new>
#include <string_view>
#include <utility>

#include "Private/Database/ZAVStatementCache.h"

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
    sqlite3_rollback_hook(connection, rolledBack, this);
}

void ZAVChangeCollector::stop() noexcept {
    if (sqlite3* const connection = std::exchange(connection_, nullptr)) {
        sqlite3_update_hook(connection, nullptr, nullptr);
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
        self.changes_.push_back({kindOf(operation), table, row});
    } catch (const std::bad_alloc&) {
        self.isIncomplete_ = true;
    }
}

void ZAVChangeCollector::rolledBack(void* collector) noexcept {
    auto& self = *static_cast<ZAVChangeCollector*>(collector);
    self.changes_.clear();
    self.isIncomplete_ = false;
}

void ZAVChangeCollector::keepFirst(std::size_t count) noexcept {
    if (count < changes_.size()) {
        changes_.erase(changes_.begin() + static_cast<std::ptrdiff_t>(count), changes_.end());
    }
}

void ZAVChangeCollector::deliver() noexcept {
    if ((changes_.empty() && !isIncomplete_) || sqlite3_get_autocommit(connection_) == 0) {
        return;
    }
    auto committed = std::exchange(changes_, {});
    if (std::exchange(isIncomplete_, false)) {
        committed.clear();
    }
    observer_(committed);
}

int ZAVObservation::step(ZAVStatement& statement) noexcept {
    const auto start = std::chrono::steady_clock::now();
    const int status = sqlite3_step(statement.handle());
    statement.duration += std::chrono::steady_clock::now() - start;
    statement.rows += status == SQLITE_ROW ? 1 : 0;
    return status;
}

void ZAVObservation::statementEnds(ZAVStatement& statement, bool succeeded) const noexcept {
    const FMStatementRun run{statement.sql(), std::exchange(statement.duration, {}),
                             std::exchange(statement.rows, 0), succeeded};
    if (statements) {
        statements(run);
    }
}

}  // namespace zav
