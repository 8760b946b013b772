#pragma once

#include <span>

namespace zav {

/// One numbered step of the schema, from the `.sql` file of the same name.
struct ZAVSchemaMigration {
    const char* name;
    const char* sql;
};

/// Every migration in order; the position in the list, counted from 1, is the schema version that it leads
/// to. The list is generated from the folder `Migrations` when the library is built.
[[nodiscard]] std::span<const ZAVSchemaMigration> ZAVSchemaMigrations() noexcept;

}  // namespace zav
