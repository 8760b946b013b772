#include <iomanip>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "Arguments.h"
#include "Commands.h"
#include "Help.h"
#include "Private/Model/Repositories/ZAVEventRepository.h"
#include "Private/Model/Repositories/ZAVStreamRepository.h"
#include "Store.h"
#include "ToolError.h"

namespace zavevents {
namespace {

using namespace zav;
using nlohmann::ordered_json;

struct StatsOptions {
    std::string database;
    bool json = false;
};

std::size_t sizeOf(const std::optional<ZAVSet<ZAVEvent>>& events, const ZAVError& error) {
    if (!events) {
        throw ToolError("cannot read the events", error);
    }
    return events->size();
}

/// How many rows there are for each value of a column, by the value's text; rows with NULL count under
/// "null".
ordered_json countBy(FMDatabase& database, const std::string& column, const std::string& table) {
    const std::string sql = "SELECT " + column + ", COUNT(*) FROM " + table + " GROUP BY 1 ORDER BY 1";
    ordered_json counts = ordered_json::object();
    auto rows = database.executeQuery(sql);
    ZAVError error;
    while (rows && rows->nextWithError(&error)) {
        counts[rows->stringForColumnIndex(0).value_or("null")] = rows->longLongIntForColumnIndex(1);
    }
    if (!rows || error) {
        throw ToolError(sql, database.lastError());
    }
    return counts;
}

ordered_json collect(const std::shared_ptr<FMDatabase>& database) {
    const ZAVEventRepository repository(database);
    ZAVError error;
    ordered_json stats;
    stats["events"] = repository.countOfEvents(&error);
    if (error) {
        throw ToolError("cannot count the events", error);
    }
    stats["by_type"] = countBy(*database, "type", "events");
    stats["publishable"] = sizeOf(repository.publishableEvents(&error), error);
    stats["unpublishable"] = sizeOf(repository.unpublishableEvents(&error), error);
    stats["unprocessed"] = sizeOf(repository.unprocessedEvents(&error), error);
    // Counted where they are: these are nearly all events, too many to read only to learn their number.
    stats["posted_and_processed"] =
        queryNumber(*database, "SELECT COUNT(*) FROM events WHERE seq IS NOT NULL");
    const auto streams = ZAVStreamRepository(database).countOfStreams(&error);
    if (!streams) {
        throw ToolError("cannot count the streams", error);
    }
    stats["streams"] = *streams;
    stats["parts"] = queryNumber(*database, "SELECT COUNT(*) FROM event_content_parts");
    stats["by_transfer_status"] = countBy(*database, "transfer_status", "event_content_parts");
    // The operation's figure is cut to 32 bits; where that shows, the true one stands beside it.
    const ZAVSize utilization = repository.totalDiskUtilizationOfEventContentPartsWithError(&error);
    if (error) {
        throw ToolError("cannot sum the disk use of content", error);
    }
    stats["disk_utilization"] = utilization;
    const auto exact =
        queryNumber(*database,
                    "SELECT SUM(size) FROM event_content_parts WHERE transfer_status IN (0, 1, 4)"
                    " AND file_path IS NOT NULL AND size IS NOT NULL AND (purged = 0 OR purged IS NULL)");
    if (static_cast<ZAVSize>(exact) != utilization) {
        stats["disk_utilization_exact"] = exact;
    }
    return stats;
}

void print(const ordered_json& stats) {
    const auto line = [](const std::string& name, const ordered_json& value) {
        std::cout << std::left << std::setw(24) << name << value.dump() << '\n';
    };
    for (const auto& [name, value] : stats.items()) {
        if (!value.is_object()) {
            line(name, value);
            continue;
        }
        std::cout << name << '\n';
        for (const auto& [key, count] : value.items()) {
            line("  " + key, count);
        }
    }
}

}  // namespace

void addStatsCommand(CLI::App& app, Action& action) {
    auto* const command =
        app.add_subcommand("stats", "Count events, streams, content parts and the disk use of content");
    const auto options = std::make_shared<StatsOptions>();
    addDatabaseOption(*command, options->database);
    command->add_flag("--json", options->json, "Write one JSON object");
    setExample(*command, "chat.db --json");
    command->callback([options, &action] {
        action = [options] {
            const ordered_json stats = collect(openStore(options->database));
            if (options->json) {
                std::cout << stats.dump() << '\n';
            } else {
                print(stats);
            }
        };
    });
}

}  // namespace zavevents
