#pragma once

#include <cstdint>
#include <string_view>

namespace zav {

/// What happened to a row that is recorded in `synced_changes`. Stored as its number.
enum ZAVSyncedChangeType : std::int32_t {
    ZAVSyncedChangeTypeInsert = 0,  ///< the row is new
    ZAVSyncedChangeTypeUpdate = 1,  ///< the row has changed
    ZAVSyncedChangeTypeDelete = 2,  ///< the row is gone
};

/// The `synced_changes.table_name` of changes to events. It holds no quote: one statement carries it in its
/// text.
inline constexpr std::string_view ZAVSyncedChangeTableNameEvents = "events";

}  // namespace zav
