#pragma once

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>
#include <sqlite3.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Support/TemporaryDirectory.h"

namespace zav::test {

/// A handle on a database, in memory unless a file is named; throws when it cannot be had.
[[nodiscard]] inline std::shared_ptr<FMDatabase> openHandle(const std::string& path = ":memory:",
                                                            const FMDatabaseOptions& options = {}) {
    ZAVError error;
    auto database = FMDatabase::databaseWithPath(path, options, &error);
    if (!database) {
        throw std::runtime_error("cannot open " + path + ": " + error.description());
    }
    return database;
}

/// Options for a handle that may do so much, and for one that keeps a rollback journal.
[[nodiscard]] inline FMDatabaseOptions withAccess(FMDatabaseOptions::Access access) {
    FMDatabaseOptions options;
    options.access = access;
    return options;
}
[[nodiscard]] inline FMDatabaseOptions withoutWriteAheadLog() {
    FMDatabaseOptions options;
    options.writeAheadLog = false;
    return options;
}

/// Runs a script; throws when it fails.
inline void run(FMDatabase& database, const std::string& script) {
    if (!database.executeStatements(script)) {
        throw std::runtime_error(script + ": " + database.lastError().description());
    }
}

/// The first column of the first row as text, past the handle's own statements; "" when there is no row.
[[nodiscard]] inline std::string scalar(FMDatabase& database, const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database.sqliteHandle(), sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
        throw std::runtime_error(sql + ": " + sqlite3_errmsg(database.sqliteHandle()));
    }
    std::string value;
    if (sqlite3_step(statement) == SQLITE_ROW) {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
        value = text == nullptr ? "NULL" : text;
    }
    sqlite3_finalize(statement);
    return value;
}

/// The statements that the engine knows on a handle, prepared and not yet finalised.
[[nodiscard]] inline std::vector<sqlite3_stmt*> preparedStatements(FMDatabase& database) {
    std::vector<sqlite3_stmt*> statements;
    sqlite3_stmt* statement = nullptr;
    while ((statement = sqlite3_next_stmt(database.sqliteHandle(), statement)) != nullptr) {
        statements.push_back(statement);
    }
    return statements;
}

/// Their texts, without those that opening the handle left behind.
[[nodiscard]] inline std::vector<std::string> keptStatements(FMDatabase& database) {
    std::vector<std::string> texts;
    for (sqlite3_stmt* const statement : preparedStatements(database)) {
        const std::string text = sqlite3_sql(statement);
        if (!text.starts_with("PRAGMA")) {
            texts.push_back(text);
        }
    }
    return texts;
}

/// How many statements are under way: stepped, and not yet reset.
[[nodiscard]] inline int busyStatements(FMDatabase& database) {
    int count = 0;
    for (sqlite3_stmt* const statement : preparedStatements(database)) {
        count += sqlite3_stmt_busy(statement) != 0 ? 1 : 0;
    }
    return count;
}

/// Folds the log into the file and has it begun anew. Answers whether another connection kept it from that;
/// throws when it fails.
[[nodiscard]] inline bool isHeldUpInTruncating(const std::shared_ptr<FMDatabase>& database) {
    ZAVError error;
    const auto checkpoint = ZAVDatabaseMaintenance(database).checkpoint(ZAVCheckpointMode::truncate, &error);
    if (!checkpoint) {
        throw std::runtime_error("cannot fold the log: " + error.description());
    }
    return checkpoint->isHeldUp;
}

/// A file with a table `t (a)` of three rows, and two connections to it.
struct SharedFile {
    explicit SharedFile(bool writeAheadLog = true) {
        FMDatabaseOptions options;
        options.writeAheadLog = writeAheadLog;
        options.busyTimeout = std::chrono::milliseconds(0);
        first = openHandle(path(), options);
        run(*first, "CREATE TABLE t (a UNIQUE); INSERT INTO t VALUES (1), (2), (3)");
        second = openHandle(path(), options);
    }

    [[nodiscard]] std::string path() const { return directory.file("shared.db"); }

    TemporaryDirectory directory;
    std::shared_ptr<FMDatabase> first;
    std::shared_ptr<FMDatabase> second;
};

}  // namespace zav::test
