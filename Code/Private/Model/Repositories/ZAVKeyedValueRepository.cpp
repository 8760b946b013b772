#include <ZAVEventRepository/ZAVKeyedValueRepository.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <ZAVEventRepository/NSInternalInconsistencyException.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Private/Model/Repositories/Internal/ZAVKeyedValueFromRow.h"
#include "Private/Model/Repositories/Internal/ZAVStatementText.h"

namespace zav {
namespace {

struct Statements {
    std::string_view table;
    ZAVSQL select;
    ZAVSQL selectStored;  ///< the same with the timestamp, and with whether the row is of our kind
    ZAVSQL insert;
    ZAVSQL remove;
};

constexpr ZAVStatementText ofObject(
    " WHERE object_database_identifier = ? AND object_type = ? AND key_type = ?");
constexpr ZAVStatementText localTable("keyed_values_local");
constexpr ZAVStatementText remoteTable("keyed_values_remote");

/// The statements over one of the tables, which have the same columns.
template <const auto& table>
struct TableStatements {
    static constexpr auto select =
        ZAVStatementText("SELECT key, value, typeof(value) = 'blob' FROM ") + table + ofObject;
    static constexpr auto selectStored =
        ZAVStatementText(
            "SELECT key, value, typeof(value) = 'blob', timestamp, typeof(key) = 'text' AND "
            "typeof(value) IN ('text', 'blob') AND typeof(timestamp) IN ('real', 'null') FROM ") +
        table + ofObject;
    static constexpr auto insert =
        ZAVStatementText("INSERT OR REPLACE INTO ") + table +
        " (object_database_identifier, object_type, key_type, key, value, timestamp) VALUES (?, ?, ?, ?, ?, ?)";
    static constexpr auto remove = ZAVStatementText("DELETE FROM ") + table + ofObject + " AND key = ?";
    static constexpr Statements all{std::string_view(table), select, selectStored, insert, remove};
};

const Statements& statementsFor(ZAVKeyedValuesTable table) {
    switch (table) {
        case ZAVKeyedValuesTableLocal:
            return TableStatements<localTable>::all;
        case ZAVKeyedValuesTableRemote:
            return TableStatements<remoteTable>::all;
        case ZAVKeyedValuesTableInvalid:
            break;
    }
    throw NSInternalInconsistencyException("The keyed values context names no table.");
}

/// Has what is written be reported as a change of the object, if anybody watches.
class ChangesOfObject {
public:
    ChangesOfObject(const FMDatabase& database, std::string_view table, const ZAVKeyedValuesContext& context)
        : collector_(database.connection().changeCollector()) {
        if (collector_ != nullptr) {
            change_ = {FMRowChange::Kind::update, std::string(table), context.objectDatabaseIdentifier(),
                       std::string(context.objectType())};
            collector_->attributeStatements(&change_);
        }
    }
    ~ChangesOfObject() {
        if (collector_ != nullptr) {
            collector_->attributeStatements(nullptr);
        }
    }
    ChangesOfObject(const ChangesOfObject&) = delete;
    ChangesOfObject& operator=(const ChangesOfObject&) = delete;

private:
    std::shared_ptr<ZAVChangeCollector> collector_;
    FMRowChange change_{};
};

}  // namespace

ZAVDictionaryValue ZAVKeyedValueFromRow(const FMResultSet& row, int valueColumn) {
    if (row.boolForColumnIndex(valueColumn + 1)) {
        return row.dataForColumnIndex(valueColumn).value_or(ZAVData());
    }
    return row.stringForColumnIndex(valueColumn).value_or(std::string());
}

std::optional<ZAVKeyedValues> ZAVKeyedValueRepository::keyedValuesInContext(
    const ZAVKeyedValuesContext& context, ZAVError* error) const {
    ZAVDictionary dictionary;
    const auto add = [&](const FMResultSet& row) {
        dictionary.set(row.stringForColumnIndex(0).value_or(std::string()), ZAVKeyedValueFromRow(row, 1));
    };
    const bool areRead =
        visitRows(database(), error, statementsFor(context.table()).select, add,
                  context.objectDatabaseIdentifier(), context.objectType(), context.keyType());
    return areRead ? std::optional(ZAVKeyedValues(std::move(dictionary))) : std::nullopt;
}

bool ZAVKeyedValueRepository::setKeyedValuesWithDictionary(const ZAVDictionary& dictionary,
                                                           std::optional<ZAVDate> timestamp,
                                                           const ZAVKeyedValuesContext& context,
                                                           ZAVError* error) const {
    const Statements& statements = statementsFor(context.table());
    const auto row = context.objectDatabaseIdentifier();

    // What is no longer wanted goes last: a failure on the way leaves too much, never too little.
    ZAVDictionary unstored = dictionary;
    std::vector<std::string> obsoleteKeys;
    const auto compare = [&](const FMResultSet& stored) {
        std::string key = stored.stringForColumnIndex(0).value_or(std::string());
        const ZAVDictionaryValue* const value = dictionary.find(key);
        if (value == nullptr) {
            obsoleteKeys.push_back(std::move(key));
        } else if (stored.boolForColumnIndex(4) && stored.dateForColumnIndex(3) == timestamp &&
                   ZAVKeyedValueFromRow(stored, 1) == *value) {
            unstored.remove(key);
        }
    };
    if (!visitRows(database(), error, statements.selectStored, compare, row, context.objectType(),
                   context.keyType())) {
        return false;
    }
    const ChangesOfObject attribution(database(), statements.table, context);
    for (const auto& [key, value] : unstored) {
        const FMParameter parameter = std::visit([](const auto& held) { return FMParameter(held); }, value);
        if (!runUpdate(database(), error, statements.insert, row, context.objectType(), context.keyType(),
                       key, parameter, timestamp)) {
            return false;
        }
    }
    return std::all_of(obsoleteKeys.begin(), obsoleteKeys.end(), [&](const std::string& key) {
        return runUpdate(database(), error, statements.remove, row, context.objectType(), context.keyType(),
                         key);
    });
}

}  // namespace zav
