#pragma once

#include <cstdint>
#include <string_view>

#include "Private/Foundation/ZAVIdentifiers.h"

namespace zav {

/// Which store a keyed value lives in.
enum ZAVKeyedValuesTable : std::int32_t {
    ZAVKeyedValuesTableInvalid = -1,
    ZAVKeyedValuesTableLocal = 0,
    ZAVKeyedValuesTableRemote = 1,
};

/// What a key is for.
enum ZAVKeyedValuesKeyType : std::uint32_t {
    ZAVKeyedValuesKeyTypeTransient = 0,
    ZAVKeyedValuesKeyTypeSyncable = 1,
    ZAVKeyedValuesKeyTypeConfiguration = 2,
};

/// Names the one dictionary of an object: the table, what kind of object, its row and the kind of keys.
class ZAVKeyedValuesContext {
public:
    /// @param objectType the kind of object, such as "event"; the text must outlive the context.
    [[nodiscard]] static ZAVKeyedValuesContext contextWithTable(
        ZAVKeyedValuesTable table, std::string_view objectType,
        ZAVDatabaseIdentifier objectDatabaseIdentifier, ZAVKeyedValuesKeyType keyType) noexcept {
        return {table, objectType, objectDatabaseIdentifier, keyType};
    }

    [[nodiscard]] ZAVKeyedValuesTable table() const noexcept { return table_; }
    [[nodiscard]] std::string_view objectType() const noexcept { return objectType_; }
    [[nodiscard]] ZAVDatabaseIdentifier objectDatabaseIdentifier() const noexcept {
        return objectDatabaseIdentifier_;
    }
    [[nodiscard]] ZAVKeyedValuesKeyType keyType() const noexcept { return keyType_; }

private:
    ZAVKeyedValuesContext(ZAVKeyedValuesTable table, std::string_view objectType,
                          ZAVDatabaseIdentifier objectDatabaseIdentifier,
                          ZAVKeyedValuesKeyType keyType) noexcept
        : objectType_(objectType),
          objectDatabaseIdentifier_(objectDatabaseIdentifier),
          table_(table),
          keyType_(keyType) {}

    std::string_view objectType_;
    ZAVDatabaseIdentifier objectDatabaseIdentifier_;
    ZAVKeyedValuesTable table_;
    ZAVKeyedValuesKeyType keyType_;
};

}  // namespace zav
