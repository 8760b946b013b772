#include "Private/Database/Internal/ZAVLogCeiling.h"

#include <sqlite3.h>

#include <algorithm>
#include <type_traits>

#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/ZAVDatabaseError.h>
#include <ZAVEventRepository/ZAVError.h>

#include "Private/Database/Internal/ZAVCheckpointGuard.h"
#include "Private/Database/Internal/ZAVPatience.h"

namespace zav {
namespace {

template <class... Arguments>
void reportGrowth(unsigned line, ZAVFormatString<std::type_identity_t<Arguments>...> format,
                  const Arguments&... arguments) noexcept {
    if (DDLog::errorIsOpen(ZAVLogComponentSQLite)) {
        DDLog::log(false, ddLogLevel, DDLogFlagError, 0, "Code/Private/Database/FMDatabase",
                   "-[FMDatabase commit]", line, nullptr, format, arguments...);
    }
}

bool isHeldLock(int status) noexcept {
    return (status & 0xFF) == SQLITE_BUSY;
}

/// The cursor that was opened first of those that have begun to read; null when there is none.
const ZAVStatement* oldestReader(const ZAVStatementCache& statements) noexcept {
    const ZAVStatement* oldest = nullptr;
    statements.forEachLent([&](const ZAVStatement& statement) {
        if (statement.cursor != nullptr && sqlite3_stmt_busy(statement.handle()) != 0 &&
            (oldest == nullptr || statement.openedAt.isBefore(oldest->openedAt))) {
            oldest = &statement;
        }
    });
    return oldest;
}

}  // namespace

void ZAVLogCeiling::set(int pages, std::chrono::milliseconds longestWait) noexcept {
    pages_ = pages;
    longestWait_ = longestWait;
    next_ = pages;
}

void ZAVLogCeiling::keepDown(ZAVCheckpointGuard& guard, const char* schema, int pages) noexcept {
    const int status = waitForReaders(guard, schema);
    if (status == SQLITE_OK || status == SQLITE_INTERRUPT) {
        return;
    }
    next_ = std::int64_t{pages} + std::max(pages_ / 4, 1);  // first, as the sink may use the connection
    if (status == SQLITE_LOCKED) {
        reportOwnReader(guard.connection(), pages);
    } else if (isHeldLock(status)) {
        reportGrowth(__LINE__,
                     "The write-ahead log has %d pages and grows beyond its ceiling of %d: other connections "
                     "hold on to it for longer than the %lld ms that a commit waits.",
                     pages, pages_, static_cast<std::int64_t>(longestWait_.count()));
    } else {
        reportGrowth(__LINE__,
                     "The write-ahead log has %d pages and grows beyond its ceiling of %d: it cannot be "
                     "copied: %@",
                     pages, pages_, ZAVError(ZAVErrorDomainSQLite, status, sqlite3_errstr(status)));
    }
}

/// Waits until the next one who writes will begin the log anew. One who began to read when not all was copied
/// yet may come to hold its mark a moment after that: so it is looked at twice.
/// @return `SQLITE_BUSY` when it took too long, `SQLITE_INTERRUPT` when it was to end early; otherwise as the
/// copying.
int ZAVLogCeiling::waitForReaders(ZAVCheckpointGuard& guard, const char* schema) const noexcept {
    constexpr std::chrono::milliseconds longestPause(10);
    constexpr int looks = 2;
    ZAVPatience patience(longestWait_, longestPause);
    int found = 0;
    do {
        if (isOver_ && isOver_()) {
            return SQLITE_INTERRUPT;
        }
        const auto outcome = guard.copy(schema);
        if (outcome.status != SQLITE_OK && !isHeldLock(outcome.status)) {
            return outcome.status;
        }
        const bool isKnown = outcome.status == SQLITE_OK;
        if (isKnown && outcome.frames < pages_) {
            return SQLITE_OK;  // somebody has begun it anew
        }
        found = isKnown && outcome.copied == outcome.frames && !guard.hasReaders(schema) ? found + 1 : 0;
    } while (found < looks && patience.pause());
    return found > 0 ? SQLITE_OK : SQLITE_BUSY;
}

void ZAVLogCeiling::reportOwnReader(sqlite3* connection, int pages) const noexcept {
    if (const ZAVStatement* const cursor = oldestReader(statements_)) {
        reportGrowth(__LINE__,
                     "The write-ahead log has %d pages and grows beyond its ceiling of %d: a cursor of this "
                     "handle, open for %lld ms, reads from it: %@",
                     pages, pages_, static_cast<std::int64_t>(cursor->openedAt.age().count()), cursor->sql());
        return;
    }
    sqlite3_stmt* statement = nullptr;
    while ((statement = sqlite3_next_stmt(connection, statement)) != nullptr &&
           sqlite3_stmt_busy(statement) == 0) {
    }
    reportGrowth(__LINE__,
                 "The write-ahead log has %d pages and grows beyond its ceiling of %d: a statement that the "
                 "application runs past this handle reads from it: %@",
                 pages, pages_, statement == nullptr ? nullptr : sqlite3_sql(statement));
}

}  // namespace zav
