#include <iomanip>
#include <nlohmann/json.hpp>
#include <numeric>
#include <string>

#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVEventRowRepository.h>
#include <ZAVEventRepository/ZAVPrintable.h>

#include "Command.h"
#include "Rows.h"

namespace zavevents {
namespace {

using namespace zav;
using nlohmann::ordered_json;

struct StatsOptions {
    bool json = false;
};

/// How many rows of a table there are for each value of a column, in its order; those of values that are
/// shown alike together.
ordered_json countBy(FMDatabase& database, const std::string& column, const std::string& table,
                     const std::string& what) {
    ordered_json counts = ordered_json::object();
    forEachRow(database, what,
               // More than is shown of a value is not read either.
               "SELECT substr(" + column + ", 1, " + std::to_string(ZAVPrintableSize + 1) +
                   "), COUNT(*) FROM " + table + " GROUP BY " + column + " ORDER BY " + column,
               [&counts](const FMResultSet& row) {
                   const std::string value =
                       ZAVPrintable(row.stringForColumnIndex(0).value_or("null"), ZAVEscapesInvalidUTF8);
                   counts[value] = counts.value(value, std::int64_t{0}) + row.longLongIntForColumnIndex(1);
               });
    return counts;
}

/// How many events a query of the repository answers.
std::size_t countOf(const ZAVEventRepository& repository, const std::string& which,
                    std::optional<ZAVSet<ZAVEvent>> (ZAVEventRepository::*query)(ZAVError*) const) {
    ZAVError error;
    const auto events = (repository.*query)(&error);
    require(!error, "cannot read the " + which + " events", error);
    return events ? events->size() : 0;
}

void countEvents(const std::shared_ptr<FMDatabase>& database, ordered_json& stats) {
    const ZAVEventRepository repository(database);
    // Before COUNT(*) alone, which not every engine ends in a file whose pages lead in circles: this one
    // ends.
    const ordered_json byType = countBy(*database, "type", "events", "cannot count the events by type");
    ZAVError error;
    stats["events"] = repository.countOfEvents(&error);
    require(!error, "cannot count the events", error);
    stats["by_type"] = byType;
    stats["publishable"] = countOf(repository, "publishable", &ZAVEventRepository::publishableEvents);
    stats["unpublishable"] = countOf(repository, "unpublishable", &ZAVEventRepository::unpublishableEvents);
    stats["unprocessed"] = countOf(repository, "unprocessed", &ZAVEventRepository::unprocessedEvents);
    // Counted where they are: these are nearly all events, too many to read only to learn their number.
    stats["posted_and_processed"] = queryNumber(*database, "cannot count the posted events",
                                                "SELECT COUNT(*) FROM events WHERE seq IS NOT NULL");
}

void countParts(const std::shared_ptr<FMDatabase>& database, ordered_json& stats) {
    const ZAVEventRepository repository(database);
    const ordered_json byTransferStatus = countBy(*database, "transfer_status", "event_content_parts",
                                                  "cannot count the content parts by transfer status");
    stats["parts"] = std::accumulate(
        byTransferStatus.begin(), byTransferStatus.end(), std::int64_t{0},
        [](std::int64_t sum, const ordered_json& count) { return sum + count.get<std::int64_t>(); });
    stats["by_transfer_status"] = byTransferStatus;
    // The operation's figure is cut to 32 bits; where that shows, the true one stands beside it.
    constexpr const char* cannotSum = "cannot sum the disk use of content";
    ZAVError error;
    const ZAVSize utilization = repository.totalDiskUtilizationOfEventContentPartsWithError(&error);
    require(!error, cannotSum, error);
    stats["disk_utilization"] = utilization;
    const auto exact = required(ZAVEventRowRepository(database).diskUtilization(&error), cannotSum, error);
    if (static_cast<ZAVSize>(exact) != utilization) {
        stats["disk_utilization_exact"] = exact;
    }
}

ordered_json collect(const std::shared_ptr<FMDatabase>& database) {
    ordered_json stats;
    countEvents(database, stats);
    // The condition has the engine walk from row to row, which ends also where pages lead in circles.
    stats["streams"] = queryNumber(*database, "cannot count the streams",
                                   "SELECT COUNT(*) FROM streams WHERE database_identifier IS NOT NULL");
    countParts(database, stats);
    return stats;
}

void printStats(const ordered_json& stats) {
    const auto line = [](const std::string& name, const ordered_json& value) {
        std::cout << std::left << std::setw(23) << name << ' ' << value.dump() << '\n';
    };
    for (const auto& [name, value] : stats.items()) {
        if (!value.is_object()) {
            line(name, value);
            continue;
        }
        std::cout << name << '\n';
        for (const auto& [key, count] : value.items()) {
            line("  " + ZAVPrintable(key), count);
        }
    }
}

void writeStats(const DatabaseFile& file, const StatsOptions& options) {
    const ordered_json stats = collect(openStore(file));
    if (options.json) {
        std::cout << stats.dump() << '\n';
    } else {
        printStats(stats);
    }
}

}  // namespace

void addStatsCommand(CLI::App& app, Invocation& invocation) {
    const Command<StatsOptions> command(app, invocation, "stats",
                                        "Count events, streams, content parts and the disk use of content",
                                        "--json");
    command.parser().add_flag("--json", command.options().json, "Write one JSON object");
    command.does(writeStats);
}

}  // namespace zavevents
