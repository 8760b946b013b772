#include <iomanip>
#include <nlohmann/json.hpp>
#include <string>

#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>
#include <ZAVEventRepository/ZAVPrintable.h>

#include "Command.h"

namespace zavevents {
namespace {

using namespace zav;
using nlohmann::ordered_json;

struct DiskUsageOptions {
    bool json = false;
    bool tables = false;
};

ordered_json describeTables(const ZAVDiskUsage& usage) {
    if (!usage.tables) {
        return nullptr;
    }
    ordered_json tables = ordered_json::array();
    for (const ZAVTableDiskUsage& table : *usage.tables) {
        tables.push_back({{"name", ZAVPrintable(table.name, ZAVEscapesInvalidUTF8)},
                          {"table", ZAVPrintable(table.table, ZAVEscapesInvalidUTF8)},
                          {"is_index", table.isIndex},
                          {"pages", table.pages},
                          {"bytes", table.bytes},
                          {"unused_bytes", table.unusedBytes}});
    }
    return tables;
}

void writeObject(const ZAVDiskUsage& usage, bool hasTables) {
    ordered_json report{{"page_size", usage.pageSize},   {"pages", usage.pages},
                        {"free_pages", usage.freePages}, {"free_bytes", usage.freeBytes},
                        {"file_bytes", usage.fileBytes}, {"log_bytes", usage.logBytes}};
    if (hasTables) {
        report["tables"] = describeTables(usage);
    }
    std::cout << report.dump() << '\n';
}

void writeLines(const ZAVDiskUsage& usage, bool hasTables) {
    const auto beginLine = [](const std::string& name) -> std::ostream& {
        return std::cout << std::left << std::setw(23) << name << ' ';
    };
    beginLine("file") << usage.fileBytes << " bytes\n";
    beginLine("write-ahead log") << usage.logBytes << " bytes\n";
    beginLine("pages") << usage.pages << " of " << usage.pageSize << " bytes\n";
    beginLine("free pages") << usage.freePages << ", " << usage.freeBytes << " bytes\n";
    if (hasTables && !usage.tables) {
        beginLine("tables") << "unknown: this engine cannot tell\n";
    } else if (hasTables) {
        std::cout << "tables and indexes\n";
        for (const ZAVTableDiskUsage& table : *usage.tables) {
            beginLine("  " + ZAVPrintable(table.name))
                << table.bytes << " bytes, " << table.unusedBytes << " of them unused\n";
        }
    }
}

void writeDiskUsage(const DatabaseFile& file, const DiskUsageOptions& options) {
    ZAVError error;
    const auto detail = options.tables ? ZAVDiskUsageDetail::tables : ZAVDiskUsageDetail::whole;
    const auto usage = required(ZAVDatabaseMaintenance(openStore(file)).diskUsage(detail, &error),
                                "cannot tell the disk use", error);
    if (options.json) {
        writeObject(usage, options.tables);
    } else {
        writeLines(usage, options.tables);
    }
}

}  // namespace

void addDiskUsageCommand(CLI::App& app, Invocation& invocation) {
    const Command<DiskUsageOptions> command(
        app, invocation, "disk-usage", "Tell what the database takes of the disk, and what of it is free",
        "--tables");
    DiskUsageOptions& options = command.options();
    command.parser().add_flag("--tables", options.tables,
                              "Tell it of each table and index too; reads the whole file");
    command.parser().add_flag("--json", options.json, "Write one JSON object");
    command.does(writeDiskUsage);
}

}  // namespace zavevents
