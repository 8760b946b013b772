#pragma once

#include <sqlite3.h>

#include <cstdint>

#include <ZAVEventRepository/FMDatabase.h>

#include "Private/Database/Internal/ZAVConnection.h"
#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {

/// Which state of the database a handle sees: another one when others have committed, or the handle has
/// changed a row.
struct ZAVDatabaseVersion {
    std::int64_t byOthers = 0;
    std::int64_t byThis = 0;

    friend bool operator==(const ZAVDatabaseVersion&, const ZAVDatabaseVersion&) = default;
};

/// @return none on failure, with the reason in `error`.
[[nodiscard]] inline std::optional<ZAVDatabaseVersion> ZAVVersionOfDatabase(FMDatabase& database,
                                                                            ZAVError* error) {
    const auto byOthers = readNumber(database, error, "PRAGMA data_version");
    return byOthers ? std::optional(ZAVDatabaseVersion{*byOthers,
                                                       sqlite3_total_changes(database.connection().engine())})
                    : std::nullopt;
}

}  // namespace zav
