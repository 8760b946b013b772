#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVPrintable.h>

#include "Arguments.h"
#include "Commands.h"
#include "Help.h"

#include "Store.h"
#include "ToolError.h"

namespace zavevents {
namespace {

using namespace zav;
using nlohmann::ordered_json;

struct CheckOptions {
    std::string database;
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
ordered_json countIn(FMDatabase& database, const std::string& sql, const std::string& what, bool intact) {
    try {
        return queryNumber(database, sql, what);
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
    if (report["schema"] != fine) {
        return;
    }
    report["parts_without_event"] =
        countIn(database,
                "SELECT COUNT(*) FROM event_content_parts WHERE NOT EXISTS (SELECT 1 FROM events"
                " WHERE events.database_identifier = event_content_parts.event_database_identifier)",
                "cannot count the parts without an event", intact);
    report["events_without_stream"] =
        countIn(database,
                "SELECT COUNT(*) FROM events WHERE NOT EXISTS (SELECT 1 FROM streams"
                " WHERE streams.database_identifier = events.stream_database_identifier)",
                "cannot count the events without a stream", intact);
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
              << "events without a stream " << orUnknown(report["events_without_stream"]) << '\n';
}

void check(const CheckOptions& options) {
    const auto database = openAnyDatabase(options.database);
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
    if (options.json) {
        std::cout << report.dump() << '\n';
    } else {
        print(report);
    }
    if (!intact) {
        throw ToolError(ZAVPrintable(options.database) + ": the database is damaged");
    }
    if (report["schema"] != fine) {
        throw ToolError(ZAVPrintable(options.database) + ": this is no event store that can be worked on");
    }
}

}  // namespace

void addCheckCommand(CLI::App& app, Action& action) {
    auto* const command =
        app.add_subcommand("check", "Check that the database is intact, and count what lacks its parent");
    const auto options = std::make_shared<CheckOptions>();
    addDatabaseOption(*command, options->database);
    command->add_flag("--json", options->json, "Write one JSON object");
    setExample(*command, "chat.db");
    command->callback([options, &action] { action = [options] { check(*options); }; });
}

}  // namespace zavevents
