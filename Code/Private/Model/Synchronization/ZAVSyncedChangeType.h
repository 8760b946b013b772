#pragma once

#include <cstdint>
#include <string_view>

namespace zav {

/// What happened to a row that is recorded in `synced_changes`. Stored as its number.
enum ZAVSyncedChangeType : std::int32_t {
    ZAVSyncedChangeTypeInsert = 0,
    ZAVSyncedChangeTypeUpdate = 1,
    ZAVSyncedChangeTypeDelete = 2,
};

/// The `synced_changes.table_name` of changes to events. It holds no quote: one statement carries it in its
/// text.
inline constexpr std::string_view ZAVSyncedChangeTableNameEvents = "events";

}  // namespace zav
