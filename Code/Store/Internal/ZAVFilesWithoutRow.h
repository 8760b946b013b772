#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include <ZAVEventRepository/FMDatabase.h>

#include "Store/Internal/ZAVContentDirectory.h"
#include "Store/Internal/ZAVContentRows.h"
#include "Store/Internal/ZAVStoreHandle.h"
#include "Store/Internal/ZAVStoreOwner.h"

namespace zav {

/// Removes a file of content, under the write lock, if no row names it; an empty directory of an event goes
/// with it.
/// @param names lead to it from the directory.
/// @param unchangedSince leaves one alone that was changed later.
/// @return its size; none when it stays.
/// @throws ZAVContentFailure and std::system_error
std::optional<std::uint64_t> ZAVRemoveFileWithoutRow(const ZAVContentRows& rows,
                                                     const ZAVContentDirectory& directory,
                                                     ZAVContentDirectory::Names names,
                                                     std::optional<std::time_t> unchangedSince);

/// Removes, under the write lock, those of the files that no row names any more, and what was downloaded of
/// them so far.
/// @throws ZAVContentFailure and std::system_error
void ZAVRemoveFilesWithoutRow(FMDatabase& database, const ZAVStoreOwner& owner,
                              const std::vector<ZAVFileWithoutRow>& files);

}  // namespace zav
