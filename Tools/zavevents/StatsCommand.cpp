#include <iomanip>
#include <nlohmann/json.hpp>
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

/// What an operation answers that stores its error.
/// @param what what cannot be done when it fails.
template <class Operation>
auto answerOf(const std::string& what, Operation operation) {
    ZAVError error;
    auto answer = operation(&error);
    if (error) {
        throw ToolError(what, error);
    }
    return answer;
}

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
template <class Query>
std::size_t countOf(const std::string& which, Query query) {
    const auto events = answerOf("cannot read the " + which + " events", query);
    return events ? events->size() : 0;
}

std::int64_t sumOf(const ordered_json& counts) {
    std::int64_t sum = 0;
    for (const auto& count : counts) {
        sum += count.get<std::int64_t>();
    }
    return sum;
}

void countEvents(const std::shared_ptr<FMDatabase>& database, ordered_json& stats) {
    const ZAVEventRepository repository(database);
    // Before COUNT(*) alone, which not every engine ends in a file whose pages lead in circles: this one
    // ends.
    const ordered_json byType = countBy(*database, "type", "events", "cannot count the events by type");
    stats["events"] =
        answerOf("cannot count the events", [&](ZAVError* error) { return repository.countOfEvents(error); });
    stats["by_type"] = byType;
    stats["publishable"] =
        countOf("publishable", [&](ZAVError* error) { return repository.publishableEvents(error); });
    stats["unpublishable"] =
        countOf("unpublishable", [&](ZAVError* error) { return repository.unpublishableEvents(error); });
    stats["unprocessed"] =
        countOf("unprocessed", [&](ZAVError* error) { return repository.unprocessedEvents(error); });
    // Counted where they are: these are nearly all events, too many to read only to learn their number.
    stats["posted_and_processed"] = queryNumber(*database, "cannot count the posted events",
                                                "SELECT COUNT(*) FROM events WHERE seq IS NOT NULL");
}

void countParts(const std::shared_ptr<FMDatabase>& database, ordered_json& stats) {
    const ZAVEventRepository repository(database);
    const ordered_json byTransferStatus = countBy(*database, "transfer_status", "event_content_parts",
                                                  "cannot count the content parts by transfer status");
    stats["parts"] = sumOf(byTransferStatus);
    stats["by_transfer_status"] = byTransferStatus;
    // The operation's figure is cut to 32 bits; where that shows, the true one stands beside it.
    const std::string sum = "cannot sum the disk use of content";
    const auto utilization = answerOf(sum, [&](ZAVError* error) {
        return repository.totalDiskUtilizationOfEventContentPartsWithError(error);
    });
    stats["disk_utilization"] = utilization;
    const auto exact = answerOf(
        sum, [&](ZAVError* error) { return ZAVEventRowRepository(database).diskUtilization(error); });
    if (exact && static_cast<ZAVSize>(*exact) != utilization) {
        stats["disk_utilization_exact"] = *exact;
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
