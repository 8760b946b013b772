#include "Faults/StoredState.h"

#include <sqlite3.h>

#include <functional>
#include <vector>

namespace zav::test {
namespace {

/// Calls `useRow` with each row; answers why that failed, or "".
std::string forEachRow(FMDatabase& database, const std::string& sql,
                       const std::function<void(sqlite3_stmt*)>& useRow) {
    sqlite3* const connection = database.sqliteHandle();
    sqlite3_stmt* statement = nullptr;
    int status = sqlite3_prepare_v2(connection, sql.c_str(), -1, &statement, nullptr);
    if (status == SQLITE_OK) {
        while ((status = sqlite3_step(statement)) == SQLITE_ROW) {
            useRow(statement);
        }
    }
    std::string reason = status == SQLITE_DONE ? "" : sqlite3_errmsg(connection);
    sqlite3_finalize(statement);
    return reason;
}

std::string textOf(sqlite3_stmt* row) {
    const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(row, 0));
    return text == nullptr ? "" : text;
}

}  // namespace

StoredState::StoredState(FMDatabase& database) {
    addRows(database, "version", "PRAGMA user_version");
    addRows(database, "schema", "SELECT type, name, tbl_name, sql FROM sqlite_master ORDER BY name");
    std::vector<std::string> tables;
    forEachRow(database, "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name",
               [&](sqlite3_stmt* row) { tables.push_back(textOf(row)); });
    for (const std::string& table : tables) {
        addRows(database, table, "SELECT * FROM \"" + table + "\"");
    }
}

void StoredState::add(const void* bytes, std::size_t size) {
    const auto* const begin = static_cast<const unsigned char*>(bytes);
    for (std::size_t index = 0; index < size; ++index) {
        // cppcheck-suppress objectIndex ; the bytes of a number, and no more than it has
        digest_ = (digest_ ^ begin[index]) * 1099511628211U;
    }
}

void StoredState::addRows(FMDatabase& database, const std::string& name, const std::string& sql) {
    int rows = 0;
    const std::string failure = forEachRow(database, sql, [&](sqlite3_stmt* row) {
        ++rows;
        for (int column = 0; column < sqlite3_column_count(row); ++column) {
            const int type = sqlite3_column_type(row, column);
            const void* const bytes =
                type == SQLITE_BLOB ? sqlite3_column_blob(row, column) : sqlite3_column_text(row, column);
            const int size = sqlite3_column_bytes(row, column);
            add(&type, sizeof type);
            add(&size, sizeof size);
            add(bytes, static_cast<std::size_t>(size));
        }
    });
    summary_ += (summary_.empty() ? "" : ", ") + name + " " +
                (failure.empty() ? std::to_string(rows) : "(" + failure + ")");
}

std::string integrityOf(FMDatabase& database) {
    std::string findings;
    const std::string failure = forEachRow(database, "PRAGMA integrity_check", [&](sqlite3_stmt* row) {
        findings += (findings.empty() ? "" : "; ") + textOf(row);
    });
    return failure.empty() ? findings : failure;
}

}  // namespace zav::test
