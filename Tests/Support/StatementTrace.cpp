#include "Support/StatementTrace.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace zav::test {

int StatementTrace::record(unsigned, void* trace, void* statement, void*) {
    auto& self = *static_cast<StatementTrace*>(trace);
    auto* const prepared = static_cast<sqlite3_stmt*>(statement);
    if (self.text_ == Text::asPrepared) {
        self.statements_.emplace_back(sqlite3_sql(prepared));
        return 0;
    }
    char* const expanded = sqlite3_expanded_sql(prepared);
    self.statements_.emplace_back(expanded == nullptr ? "" : expanded);
    sqlite3_free(expanded);
    return 0;
}

StatementTrace::StatementTrace(FMDatabase& database, Text text) : database_(database), text_(text) {
    sqlite3_trace_v2(database_.sqliteHandle(), SQLITE_TRACE_STMT, record, this);
}

StatementTrace::~StatementTrace() {
    sqlite3_trace_v2(database_.sqliteHandle(), 0, nullptr, nullptr);
}

std::vector<std::string> planOf(const std::string& statement, FMDatabase& database) {
    std::vector<std::string> steps;
    sqlite3_stmt* explanation = nullptr;
    const std::string sql = "EXPLAIN QUERY PLAN " + statement;
    EXPECT_EQ(sqlite3_prepare_v2(database.sqliteHandle(), sql.c_str(), -1, &explanation, nullptr), SQLITE_OK)
        << sqlite3_errmsg(database.sqliteHandle()) << ": " << statement;
    while (sqlite3_step(explanation) == SQLITE_ROW) {
        steps.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(explanation, 3)));
    }
    sqlite3_finalize(explanation);
    return steps;
}

}  // namespace zav::test
