#pragma once

#include <cstdint>
#include <string>

#include <ZAVEventRepository/ZAVDatabaseError.h>
#include <ZAVEventRepository/ZAVError.h>

namespace zav {

/// Why a database of a newer version is refused.
[[nodiscard]] inline ZAVError ZAVErrorOfNewerSchema(std::int64_t version, std::int64_t newest) {
    return {ZAVErrorDomainDatabase, ZAVDatabaseErrorNewerSchema,
            "the database has schema version " + std::to_string(version) +
                ", but this version of the library knows only versions up to " + std::to_string(newest)};
}

}  // namespace zav
