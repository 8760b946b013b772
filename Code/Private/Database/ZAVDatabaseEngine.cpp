#include <ZAVEventRepository/ZAVDatabaseEngine.h>

#include <sqlite3.h>

#include <algorithm>
#include <array>

#include <ZAVEventRepository/ZAVDatabaseError.h>

namespace zav {

std::string_view ZAVDatabaseEngine::version() noexcept {
    return sqlite3_libversion();
}

std::int32_t ZAVDatabaseEngine::versionNumber() noexcept {
    return sqlite3_libversion_number();
}

std::string_view ZAVDatabaseEngine::versionCompiledWith() noexcept {
    return SQLITE_VERSION;
}

std::string_view ZAVDatabaseEngine::source() noexcept {
    return sqlite3_sourceid();
}

std::vector<std::string> ZAVDatabaseEngine::compileOptions() {
    std::vector<std::string> options;
    for (int index = 0; sqlite3_compileoption_get(index) != nullptr; ++index) {
        options.emplace_back(sqlite3_compileoption_get(index));
    }
    return options;
}

std::vector<std::string> ZAVDatabaseEngine::relevantCompileOptions() {
    constexpr std::array<std::string_view, 13> names{"COMPILER",
                                                     "DEFAULT_LOOKASIDE",
                                                     "DEFAULT_MEMSTATUS",
                                                     "DEFAULT_PAGE_SIZE",
                                                     "DQS",
                                                     "DIRECT_OVERFLOW_READ",
                                                     "ENABLE_DBSTAT_VTAB",
                                                     "HAS_CODEC",
                                                     "LIKE_DOESNT_MATCH_BLOBS",
                                                     "OMIT_SHARED_CACHE",
                                                     "SECURE_DELETE",
                                                     "TEMP_STORE",
                                                     "THREADSAFE"};
    auto options = compileOptions();
    std::erase_if(options, [&](const std::string& option) {
        const std::string_view name = std::string_view(option).substr(0, option.find('='));
        return std::find(names.begin(), names.end(), name) == names.end();
    });
    return options;
}

bool ZAVDatabaseEngine::hasCompileOption(const char* option) noexcept {
    return sqlite3_compileoption_used(option) != 0;
}

bool ZAVDatabaseEngine::canEncrypt() noexcept {
    return hasCompileOption("HAS_CODEC");
}

bool ZAVDatabaseEngine::hasSafeCheckpoints() noexcept {
    return versionHasSafeCheckpoints(versionNumber());
}

bool ZAVDatabaseEngine::versionHasSafeCheckpoints(std::int32_t versionNumber) noexcept {
    constexpr std::int32_t firstWithLog = 3007000;
    const auto isCuredIn = [&](std::int32_t cure) {
        constexpr std::int32_t patchesPerMinor = 1000;
        return versionNumber >= cure && versionNumber / patchesPerMinor == cure / patchesPerMinor;
    };
    return versionNumber < firstWithLog || versionNumber >= 3051003 || isCuredIn(3050007) ||
           isCuredIn(3044006);
}

bool ZAVDatabaseEngine::configureProcess(ZAVError* error) {
    const int status = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    if (status != SQLITE_OK) {
        ZAVStoreError(
            error, {ZAVErrorDomainSQLite, status,
                    "the engine is in use already: it can be configured only before a database is opened"});
    }
    return status == SQLITE_OK;
}

}  // namespace zav
