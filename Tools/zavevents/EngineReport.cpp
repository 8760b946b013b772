#include "EngineReport.h"

#include <nlohmann/json.hpp>

#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <ZAVEventRepository/ZAVVersion.h>

namespace zavevents {

using zav::ZAVDatabaseEngine;

std::string versionText() {
    std::string text = "zavevents " + std::string(zav::ZAVLibraryVersion()) + "\n" + engineText() +
                       "\nsource " + std::string(ZAVDatabaseEngine::source()) + "\nheaders " +
                       std::string(ZAVDatabaseEngine::versionCompiledWith()) + "\noptions";
    for (const std::string& option : ZAVDatabaseEngine::relevantCompileOptions()) {
        text += " " + option;
    }
    return text;
}

std::string engineText() {
    return "SQLite " + std::string(ZAVDatabaseEngine::version()) +
           (ZAVDatabaseEngine::hasSafeCheckpoints() ? ", safe checkpoints"
                                                    : ", checkpoints guarded by the library");
}

nlohmann::ordered_json engineReport() {
    return {{"version", ZAVDatabaseEngine::version()},
            {"headers", ZAVDatabaseEngine::versionCompiledWith()},
            {"source", ZAVDatabaseEngine::source()},
            {"safe_checkpoints", ZAVDatabaseEngine::hasSafeCheckpoints()},
            {"options", ZAVDatabaseEngine::relevantCompileOptions()}};
}

}  // namespace zavevents
