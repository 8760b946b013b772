#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "Arguments.h"
#include "Commands.h"
#include "Help.h"
#include "Private/Database/ZAVDatabaseSchema.h"
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

/// What the engine finds wrong with the file: one text a fault, or only "ok".
std::vector<std::string> integrity(FMDatabase& database) {
    std::vector<std::string> findings;
    auto rows = database.executeQuery("PRAGMA integrity_check");
    ZAVError error;
    while (rows && rows->nextWithError(&error)) {
        findings.push_back(rows->stringForColumnIndex(0).value_or(""));
    }
    if (!rows || error) {
        findings.push_back(database.lastError().message());
    }
    return findings;
}

/// The answer of a count; null where damage keeps it from being made.
ordered_json countIn(FMDatabase& database, const std::string& sql, bool intact) {
    try {
        return queryNumber(database, sql);
    } catch (const ToolError&) {
        if (intact) {
            throw;
        }
        return nullptr;
    }
}

std::string orUnknown(const ordered_json& count) {
    return count.is_null() ? "unknown" : count.dump();
}

void check(const CheckOptions& options) {
    const auto database = openStore(options.database);
    const auto findings = integrity(*database);
    const bool intact = findings.size() == 1 && findings.front() == "ok";
    ordered_json report;
    report["integrity"] = findings;
    report["schema_version"] = ZAVDatabaseSchema::versionOfDatabase(*database).value_or(0);
    report["parts_without_event"] =
        countIn(*database,
                "SELECT COUNT(*) FROM event_content_parts WHERE NOT EXISTS (SELECT 1 FROM events"
                " WHERE events.database_identifier = event_content_parts.event_database_identifier)",
                intact);
    report["events_without_stream"] =
        countIn(*database,
                "SELECT COUNT(*) FROM events WHERE NOT EXISTS (SELECT 1 FROM streams"
                " WHERE streams.database_identifier = events.stream_database_identifier)",
                intact);
    if (options.json) {
        std::cout << report.dump() << '\n';
    } else {
        for (const std::string& finding : findings) {
            std::cout << "integrity               " << finding << '\n';
        }
        std::cout << "schema version          " << report["schema_version"] << '\n'
                  << "parts without an event  " << orUnknown(report["parts_without_event"]) << '\n'
                  << "events without a stream " << orUnknown(report["events_without_stream"]) << '\n';
    }
    if (!intact) {
        throw ToolError(options.database + ": the database is damaged");
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
