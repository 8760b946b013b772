#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "Binding.h"

namespace zav::bench {

/// Binds values to a statement of the engine's, for those who look at its answer when it runs.
struct StatementBinder {
    sqlite3_stmt* statement;

    void null(int position, Kind) const { sqlite3_bind_null(statement, position); }
    void integer(int position, std::int64_t value) const { sqlite3_bind_int64(statement, position, value); }
    void real(int position, double value) const { sqlite3_bind_double(statement, position, value); }
    void text(int position, const std::string& value) const {
        sqlite3_bind_text(statement, position, value.data(), static_cast<int>(value.size()), nullptr);
    }
    void blob(int position, const void* bytes, std::size_t size) const {
        sqlite3_bind_blob(statement, position, bytes, static_cast<int>(size), nullptr);
    }
};

}  // namespace zav::bench
