#pragma once

#include <ZAVEventRepository/FMDatabase.h>

#include <cstdint>
#include <ostream>
#include <string>

namespace zav::test {

/// All that a database holds: every row of every table, the schema and its version. Two are equal when a
/// reader could not tell the databases apart.
class StoredState {
public:
    /// The state of an open database.
    explicit StoredState(FMDatabase& database);

    friend bool operator==(const StoredState&, const StoredState&) = default;

    /// How many rows each table holds, or why they cannot be read.
    friend std::ostream& operator<<(std::ostream& stream, const StoredState& state) {
        return stream << state.summary_;
    }

private:
    void add(const void* bytes, std::size_t size);
    void addRows(FMDatabase& database, const std::string& name, const std::string& sql);

    std::uint64_t digest_ = 14695981039346656037U;
    std::string summary_;
};

/// What the engine's check of the whole file says: "ok", or what is wrong.
[[nodiscard]] std::string integrityOf(FMDatabase& database);

}  // namespace zav::test
