#include "Private/Database/Internal/ZAVWatchedCount.h"

#include <sqlite3.h>

#include <chrono>
#include <new>

#include "Private/Database/Internal/ZAVConnection.h"
#include "Private/Database/Internal/ZAVInterruptionTimer.h"

namespace zav {
namespace {

/// Visits each row that the statement counts. Answers false on failure.
bool walk(ZAVConnection& connection, const ZAVStatement& count) {
    ZAVStatement* const walk = connection.lend(count.sql() + " WHERE ? IS NULL");
    return walk != nullptr && connection.bind(*walk, 1, nullptr) &&
           connection.update(walk, ZAVConnection::Reach::bounded);
}

}  // namespace

int ZAVStepWatchedCount(ZAVConnection& connection, ZAVStatement& statement) noexcept {
    constexpr std::chrono::seconds patience(2);
    if (connection.cursorCount() > 1) {
        return connection.stepUnbounded(statement);  // an interruption would end the others too
    }
    ZAVInterruptionTimer timer(connection.engine(), patience);
    const int status = connection.stepUnbounded(statement);
    if (!timer.stop()) {
        statement.isUnprovedCount = false;
        return status;
    }
    sqlite3_reset(statement.handle());
    const auto start = std::chrono::steady_clock::now();
    try {
        if (!walk(connection, statement)) {
            return connection.lastError().code();
        }
    } catch (const std::bad_alloc&) {
        return SQLITE_NOMEM;
    }
    // Counting takes a fraction of what walking does.
    ZAVInterruptionTimer secondTimer(connection.engine(),
                                     patience + 10 * (std::chrono::steady_clock::now() - start));
    const int secondStatus = connection.stepUnbounded(statement);
    if (secondTimer.stop()) {
        connection.bounds().pass(statement.run);
    }
    return secondStatus;
}

}  // namespace zav
