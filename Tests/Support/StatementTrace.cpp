#include "Support/StatementTrace.h"

#include <sqlite3.h>

namespace zav::test {
namespace {

int record(unsigned, void* context, void* statement, void*) {
    char* const expanded = sqlite3_expanded_sql(static_cast<sqlite3_stmt*>(statement));
    static_cast<std::vector<std::string>*>(context)->emplace_back(expanded == nullptr ? "" : expanded);
    sqlite3_free(expanded);
    return 0;
}

}  // namespace

StatementTrace::StatementTrace(FMDatabase& database) : database_(database) {
    sqlite3_trace_v2(database_.sqliteHandle(), SQLITE_TRACE_STMT, record, &statements_);
}

StatementTrace::~StatementTrace() {
    sqlite3_trace_v2(database_.sqliteHandle(), 0, nullptr, nullptr);
}

}  // namespace zav::test
