#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <ZAVEventRepository/FMDatabaseOptions.h>
#include <ZAVEventRepository/ZAVError.h>

#include "Private/Database/Internal/ZAVConnection.h"

namespace zav {

/// Opens a database as `FMDatabase::databaseWithPath` promises.
/// @return the connection; null on failure, with the reason in `error`.
[[nodiscard]] std::unique_ptr<ZAVConnection> ZAVOpenDatabase(const std::string& path,
                                                             const FMDatabaseOptions& options,
                                                             ZAVError* error);

/// Why a database of a newer version is refused.
[[nodiscard]] ZAVError ZAVErrorOfNewerSchema(std::int64_t version, std::int64_t newest);

/// Has one connection read while another writes, as `FMDatabase::useWriteAheadLog` promises.
bool ZAVUseWriteAheadLog(ZAVConnection& connection);

/// Closes the connection to a file that is refused, and leaves the file as it was found: not even its
/// write-ahead log is folded into it. An empty log has nothing to fold; it may be the one that opening made,
/// and goes.
void ZAVCloseUntouched(ZAVConnection& connection) noexcept;

}  // namespace zav
