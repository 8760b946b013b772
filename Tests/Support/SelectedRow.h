#pragma once

#include <ZAVEventRepository/FMDatabase.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace zav::test {

/// A row for a mapper, made of SQL literals rather than read from a table, so that any column can hold
/// anything.
class SelectedRow {
public:
    explicit SelectedRow(std::vector<std::string> literals) : literals_(std::move(literals)) {}

    /// The same row with another literal in one column.
    [[nodiscard]] SelectedRow with(std::size_t column, const std::string& literal) const {
        SelectedRow changed = *this;
        changed.literals_.at(column) = literal;
        return changed;
    }

    /// The same row with one more column at its end.
    [[nodiscard]] SelectedRow andAlso(const std::string& literal) const {
        SelectedRow longer = *this;
        longer.literals_.push_back(literal);
        return longer;
    }

    /// The query that yields the row.
    [[nodiscard]] std::string sql() const {
        std::string text;
        for (const std::string& literal : literals_) {
            text += (text.empty() ? "SELECT " : ", ") + literal;
        }
        return text;
    }

private:
    std::vector<std::string> literals_;
};

/// A cursor on the first row of a query.
[[nodiscard]] inline FMResultSet firstRow(FMDatabase& database, const std::string& sql) {
    auto rows = database.executeQuery(sql);
    if (!rows || !rows->next()) {
        throw std::runtime_error(sql + " yields no row: " + database.lastError().description());
    }
    return std::move(*rows);
}

}  // namespace zav::test
