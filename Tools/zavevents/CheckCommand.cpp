#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVPrintable.h>

#include "Command.h"
#include "EngineReport.h"
#include "Rows.h"

namespace zavevents {
namespace {

using namespace zav;
using nlohmann::ordered_json;

struct CheckOptions {
    bool json = false;
};

constexpr const char* fine = "ok";

/// What the engine finds wrong with the file: one text a fault, or only "ok".
std::vector<std::string> integrity(FMDatabase& database) {
    std::vector<std::string> findings;
    auto rows = database.executeBoundedQuery("PRAGMA integrity_check");
    ZAVError error = rows ? ZAVError() : database.lastError();
    while (rows && rows->nextWithError(&error)) {
        findings.push_back(ZAVPrintable(rows->stringForColumnIndex(0).value_or(""), ZAVEscapesInvalidUTF8));
    }
    if (error) {
        findings.push_back(ZAVPrintable(error.message(), ZAVEscapesInvalidUTF8));
    }
    return findings;
}

/// What keeps the library from working on the database as it is, or "ok".
std::string schema(FMDatabase& database) {
    ZAVError error;
    const auto version = ZAVDatabaseSchema::verifyDatabase(database, &error);
    if (version && *version != ZAVDatabaseSchema::currentVersion()) {
        return "the schema has version " + std::to_string(*version) + " of " +
               std::to_string(ZAVDatabaseSchema::currentVersion());
    }
    return version ? std::string(fine) : ZAVPrintable(error.message(), ZAVEscapesInvalidUTF8);
}

/// The answer of a count; null where damage keeps it from being made.
ordered_json countIn(FMDatabase& database, bool intact, const std::string& what, std::string_view sql) {
    try {
        return queryNumber(database, what, sql);
    } catch (const ToolError&) {
        if (intact) {
            throw;
        }
        return nullptr;
    }
}

/// Counts the rows that lack their parent. Nothing is read from tables that are not the store's: a view may
/// be anything, also something that never ends.
void countOrphans(FMDatabase& database, ordered_json& report, bool intact) {
    report["parts_without_event"] = nullptr;
    report["events_without_stream"] = nullptr;
    if (report["schema"] == fine) {
        report["parts_without_event"] =
            countIn(database, intact, "cannot count the parts without an event",
                    "SELECT COUNT(*) FROM event_content_parts WHERE NOT EXISTS (SELECT 1 FROM events"
                    " WHERE events.database_identifier = event_content_parts.event_database_identifier)");
        report["events_without_stream"] =
            countIn(database, intact, "cannot count the events without a stream",
                    "SELECT COUNT(*) FROM events WHERE NOT EXISTS (SELECT 1 FROM streams"
                    " WHERE streams.database_identifier = events.stream_database_identifier)");
    }
}

std::string orUnknown(const ordered_json& count) {
    return count.is_null() ? "unknown" : count.dump();
}

void print(const ordered_json& report) {
    for (const auto& finding : report["integrity"]) {
        std::cout << "integrity               " << ZAVPrintable(finding.get<std::string>()) << '\n';
    }
    std::cout << "schema                  " << ZAVPrintable(report["schema"].get<std::string>()) << '\n'
              << "schema version          " << orUnknown(report["schema_version"]) << '\n'
              << "parts without an event  " << orUnknown(report["parts_without_event"]) << '\n'
              << "events without a stream " << orUnknown(report["events_without_stream"]) << '\n'
              << "engine                  " << engineText() << '\n';
}

void check(const DatabaseFile& file, const CheckOptions& options) {
    const auto database = openAnyDatabase(file);
    const auto findings = integrity(*database);
    const bool intact = findings == std::vector<std::string>{fine};
    ordered_json report;
    report["integrity"] = findings;
    report["schema"] = schema(*database);
    report["schema_version"] = nullptr;
    if (const auto version = ZAVDatabaseSchema::versionOfDatabase(*database)) {
        report["schema_version"] = *version;
    }
    countOrphans(*database, report, intact);
    report["engine"] = engineReport();
    if (options.json) {
        std::cout << report.dump() << '\n';
    } else {
        print(report);
    }
    if (!intact) {
        throw ToolError(ZAVPrintable(file.path) + ": the database is damaged");
    }
    if (report["schema"] != fine) {
        throw ToolError(ZAVPrintable(file.path) + ": this is no event store that can be worked on");
    }
}

}  // namespace

void addCheckCommand(CLI::App& app, Invocation& invocation) {
    const Command<CheckOptions> command(
        app, invocation, "check", "Check that the database is intact, and count what lacks its parent", "");
    command.parser().add_flag("--json", command.options().json, "Write one JSON object");
    command.does(check);
}

}  // namespace zavevents
