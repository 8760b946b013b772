#pragma once

#include <cstdint>
#include <string_view>

#include <ZAVEventRepository/ZAVIdentifiers.h>

namespace zav {

/// Which store a keyed value lives in.
enum ZAVKeyedValuesTable : std::int32_t {
    ZAVKeyedValuesTableInvalid = -1,  ///< not a store: using it throws
    ZAVKeyedValuesTableLocal = 0,     ///< values of this device
    ZAVKeyedValuesTableRemote = 1,  ///< values that the service has a part in, such as the metadata of events
};

/// What a key is for.
enum ZAVKeyedValuesKeyType : std::uint32_t {
    ZAVKeyedValuesKeyTypeTransient = 0,      ///< belongs to the object and goes with it
    ZAVKeyedValuesKeyTypeSyncable = 1,       ///< is to be shared with the service
    ZAVKeyedValuesKeyTypeConfiguration = 2,  ///< a setting
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

    /// Which store.
    [[nodiscard]] ZAVKeyedValuesTable table() const noexcept { return table_; }

    /// The kind of object; the text that was given, not a copy.
    [[nodiscard]] std::string_view objectType() const noexcept { return objectType_; }

    /// The object's row in the table of its kind.
    [[nodiscard]] ZAVDatabaseIdentifier objectDatabaseIdentifier() const noexcept {
        return objectDatabaseIdentifier_;
    }

    /// What the keys are for.
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
