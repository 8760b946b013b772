#include "Connection.h"

#include <ZAVEventRepository/FMDatabaseOptions.h>
#include <sqlite3.h>

#include <stdexcept>

#include "Digest.h"

namespace zav::bench {

void execute(sqlite3* connection, const std::string& script) {
    if (sqlite3_exec(connection, script.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        throw std::runtime_error(script + ": " + sqlite3_errmsg(connection));
    }
}

void configure(sqlite3* connection) {
    const FMDatabaseOptions options;
    sqlite3_extended_result_codes(connection, 1);
    sqlite3_busy_timeout(connection, static_cast<int>(options.busyTimeout.count()));
#ifdef SQLITE_DBCONFIG_DEFENSIVE
    sqlite3_db_config(connection, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
#endif
#ifdef SQLITE_DBCONFIG_TRUSTED_SCHEMA
    sqlite3_db_config(connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
#endif
#ifdef SQLITE_DBCONFIG_ENABLE_QPSG
    sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_QPSG, 1, nullptr);
#endif
    execute(
        connection,
        "PRAGMA cell_size_check=ON; PRAGMA secure_delete=ON; PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; "
        "PRAGMA cache_size=-" +
            std::to_string(options.pageCacheKiB) +
            "; PRAGMA wal_autocheckpoint=" + std::to_string(options.writeAheadLogPages));
}

std::string dropIndexes(sqlite3* connection) {
    std::string drops;
    std::string indexes;
    sqlite3_stmt* statement = nullptr;
    const int status = sqlite3_prepare_v2(
        connection, "SELECT name, sql FROM sqlite_master WHERE type = 'index' AND sql IS NOT NULL", -1,
        &statement, nullptr);
    while (status == SQLITE_OK && sqlite3_step(statement) == SQLITE_ROW) {
        const auto text = [&](int column) {
            return std::string(reinterpret_cast<const char*>(sqlite3_column_text(statement, column)));
        };
        drops += "DROP INDEX " + text(0) + ";";
        indexes += text(1) + ";";
    }
    sqlite3_finalize(statement);
    execute(connection, drops);
    return indexes;
}

std::string digestOfTables(sqlite3* connection) {
    Digest digest;
    for (const char* table : {"streams", "events", "event_content_parts", "synced_changes", "messages",
                              "keyed_values_local", "keyed_values_remote"}) {
        const std::string text = std::string("SELECT * FROM ") + table;
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(connection, text.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
            throw std::runtime_error(text + ": " + sqlite3_errmsg(connection));
        }
        while (sqlite3_step(statement) == SQLITE_ROW) {
            for (int column = 0; column < sqlite3_column_count(statement); ++column) {
                digest.add(std::to_string(sqlite3_column_type(statement, column)));
                const void* bytes = sqlite3_column_blob(statement, column);
                const int size = sqlite3_column_bytes(statement, column);
                digest.add({static_cast<const char*>(bytes), static_cast<std::size_t>(size)});
            }
            digest.count();
        }
        sqlite3_finalize(statement);
    }
    return digest.text();
}

}  // namespace zav::bench
