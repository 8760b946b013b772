#include "Private/Database/Internal/ZAVOptionsCheck.h"

#include <cstdint>
#include <limits>
#include <string>

#include <ZAVEventRepository/ZAVDatabaseError.h>

#include "Private/Database/Internal/ZAVEncryption.h"

namespace zav {
namespace {

ZAVError badOption(const std::string& option, const std::string& value, const std::string& rule) {
    return {ZAVErrorDomainDatabase, ZAVDatabaseErrorBadOption,
            "the option " + option + " is " + value + ", but " + rule};
}

std::string octal(std::uint32_t number) {
    std::string text;
    for (; number != 0; number /= 8) {
        text.insert(text.begin(), static_cast<char>('0' + number % 8));
    }
    return "0" + text;
}

ZAVError objectionToChoices(const FMDatabaseOptions& options) {
    using Access = FMDatabaseOptions::Access;
    using Synchronous = FMDatabaseOptions::Synchronous;
    if (options.access < Access::readOnly || options.access > Access::readWriteCreate) {
        return badOption("access", std::to_string(static_cast<int>(options.access)), "is none of its names");
    }
    if (options.synchronous < Synchronous::full || options.synchronous > Synchronous::normal) {
        return badOption("synchronous", std::to_string(static_cast<int>(options.synchronous)),
                         "is none of its names");
    }
    if (options.vfs.find('\0') != std::string::npos) {
        return badOption("vfs", options.vfs.substr(0, options.vfs.find('\0')),
                         "goes on after a NUL, which no name does");
    }
    return {};
}

struct Amount {
    const char* option;
    std::int64_t value;
    const char* unit = "";
};

ZAVError objectionToNumbers(const FMDatabaseOptions& options) {
    constexpr std::size_t mostStatements = std::numeric_limits<std::int32_t>::max();
    constexpr std::uint32_t allPermissions = 0777;
    constexpr std::uint32_t ownersPermissions = 0600;
    for (const auto& [option, value, unit] :
         {Amount{"pageCacheKiB", options.pageCacheKiB},
          Amount{"writeAheadLogPages", options.writeAheadLogPages},
          Amount{"writeAheadLogCeiling", options.writeAheadLogCeiling},
          Amount{"writeAheadLogWait", options.writeAheadLogWait.count(), " ms"},
          Amount{"busyTimeout", options.busyTimeout.count(), " ms"},
          Amount{"newestUserVersion", options.newestUserVersion.value_or(0)}}) {
        if (value < 0) {
            return badOption(option, std::to_string(value) + unit, "may not be negative");
        }
    }
    if (options.statementCacheCapacity > mostStatements) {
        return badOption("statementCacheCapacity", std::to_string(options.statementCacheCapacity),
                         "may not exceed 2147483647");
    }
    if ((options.newFileMode & ~allPermissions) != 0 ||
        (options.newFileMode & ownersPermissions) != ownersPermissions) {
        return badOption("newFileMode", octal(options.newFileMode),
                         "must be permissions that let the owner read and write");
    }
    return {};
}

}  // namespace

ZAVError ZAVObjectionToOptions(const FMDatabaseOptions& options) {
    ZAVError objection = objectionToChoices(options);
    if (!objection) {
        objection = objectionToNumbers(options);
    }
    if (!objection && options.key && options.keyProvider) {
        objection = {ZAVErrorDomainDatabase, ZAVDatabaseErrorBadOption,
                     "the options key and keyProvider are both set, but there is one key"};
    }
    return objection ? objection : ZAVObjectionToKey(options.key);
}

}  // namespace zav
