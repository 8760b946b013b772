#pragma once

#include <memory>
#include <string>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/FMDatabaseOptions.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVEventStoreOptions.h>

namespace zav {

/// How the handles of a store are opened.
[[nodiscard]] FMDatabaseOptions ZAVWritingOptions(const ZAVEventStoreOptions& options);
[[nodiscard]] FMDatabaseOptions ZAVReadingOptions(const ZAVEventStoreOptions& options);

/// Opens the handle that writes. A file that may not be made must have the present schema already.
/// @return null on failure, and where there can be no write-ahead log, with the reason in `error`.
[[nodiscard]] std::shared_ptr<FMDatabase> ZAVOpenToWrite(const std::string& path,
                                                         const FMDatabaseOptions& options, ZAVError* error);

}  // namespace zav
