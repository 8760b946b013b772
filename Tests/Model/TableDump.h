#pragma once

#include <ZAVEventRepository/FMDatabase.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Model/StoreModel.h"

struct sqlite3_stmt;

namespace zav::test {

/// One stored value with its storage class.
using Cell = std::variant<std::nullptr_t, std::int64_t, double, std::string, Bytes>;

/// Every table's every row, in the order of their primary keys.
using TableDump = std::map<std::string, std::vector<std::vector<Cell>>>;

/// What the model's tables amount to.
[[nodiscard]] TableDump dumpOf(const Tables& tables);

/// Reads the whole database, past the library.
class DatabaseReader {
public:
    explicit DatabaseReader(FMDatabase& database);
    ~DatabaseReader();
    DatabaseReader(const DatabaseReader&) = delete;
    DatabaseReader& operator=(const DatabaseReader&) = delete;

    [[nodiscard]] TableDump dump() const;

private:
    FMDatabase& database_;
    std::vector<std::pair<std::string, sqlite3_stmt*>> statements_;
};

/// The first row that differs, in words; none when everything agrees.
[[nodiscard]] std::optional<std::string> firstDifference(const TableDump& stored, const TableDump& expected);

}  // namespace zav::test
