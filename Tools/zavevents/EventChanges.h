#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVEventRepository.h>

#include "ToolError.h"

namespace zavevents {

/// The event in a row.
/// @throws ToolError also when there is none.
[[nodiscard]] inline std::shared_ptr<zav::ZAVEvent> eventInRow(const zav::ZAVEventRepository& repository,
                                                               zav::ZAVDatabaseIdentifier row) {
    zav::ZAVError error;
    auto event = repository.eventForDatabaseIdentifier(row, &error);
    require(!error, "cannot read the event", error);
    if (event == nullptr) {
        throw ToolError("there is no event in row " + std::to_string(row));
    }
    return event;
}

/// How many rows the last statement changed, and what that means.
[[nodiscard]] inline std::string lastChanges(const zav::FMDatabase& database, const std::string& what) {
    return std::to_string(database.changes()) + " " + what;
}

/// Applies an operation on events to each row by itself, and counts the rows for which it changed anything:
/// the database knows how many the last statement changed, and no more.
/// @param failure what cannot be done when it fails.
[[nodiscard]] inline std::string countOfChanged(
    const std::shared_ptr<zav::FMDatabase>& database, const std::vector<std::int64_t>& rows,
    bool (zav::ZAVEventRepository::*operation)(const zav::ZAVSet<zav::ZAVEvent>&, zav::ZAVError*) const,
    const std::string& failure) {
    const zav::ZAVEventRepository repository(database);
    std::size_t count = 0;
    for (const std::int64_t row : rows) {
        zav::ZAVError error;
        const auto event = std::make_shared<zav::ZAVEvent>(row, zav::ZAVDatabaseIdentifierNotSet);
        require((repository.*operation)({event}, &error), failure, error);
        count += database->changes() != 0 ? 1 : 0;
    }
    return std::to_string(count);
}

}  // namespace zavevents
