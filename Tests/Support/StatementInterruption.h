#pragma once

#include <ZAVEventRepository/FMDatabase.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <string_view>
#include <utility>

#include "Support/TestStore.h"

namespace zav::test {

/// Makes the engine give up on each statement whose text begins with `prefix`, in its first step, for as long
/// as it lives. It takes the handle's trace, so it cannot be used beside a `StatementTrace`.
class StatementInterruption {
public:
    StatementInterruption(FMDatabase& database, std::string prefix)
        : database_(database), prefix_(std::move(prefix)) {
        sqlite3_trace_v2(database_.sqliteHandle(), SQLITE_TRACE_STMT, interrupt, this);
    }
    ~StatementInterruption() { sqlite3_trace_v2(database_.sqliteHandle(), 0, nullptr, nullptr); }
    StatementInterruption(const StatementInterruption&) = delete;
    StatementInterruption& operator=(const StatementInterruption&) = delete;

private:
    static int interrupt(unsigned, void* context, void* statement, void*) {
        const auto& self = *static_cast<const StatementInterruption*>(context);
        const std::string_view text = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
        if (text.starts_with(self.prefix_)) {
            sqlite3_interrupt(self.database_.sqliteHandle());
        }
        return 0;
    }

    FMDatabase& database_;
    std::string prefix_;
};

/// What a call must leave behind however it ends: no open cursor, no transaction and no lock.
inline void expectHandleIsAtRest(const TestStore& store) {
    EXPECT_EQ(store.database().openResultSets(), 0U) << "the operation left a cursor open";
    EXPECT_FALSE(store.database().inTransaction()) << "the operation left a transaction open";
    const auto other = store.secondConnection(0);
    ASSERT_NE(other, nullptr);
    EXPECT_TRUE(other->executeStatements("BEGIN IMMEDIATE; ROLLBACK"))
        << "another connection cannot write at once: " << other->lastError().description();
}

}  // namespace zav::test
