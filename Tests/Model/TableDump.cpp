#include "Model/TableDump.h"

#include <sqlite3.h>

#include <iomanip>
#include <sstream>
#include <stdexcept>

namespace zav::test {
namespace {

template <class T>
Cell cell(const T& value) {
    return value;
}
Cell cell(const MetadataValue& value) {
    return std::visit([](const auto& held) { return Cell(held); }, value);
}
template <class T>
Cell cell(const std::optional<T>& value) {
    return value ? Cell(*value) : Cell(nullptr);
}

template <class... Values>
std::vector<Cell> cells(const Values&... values) {
    return {cell(values)...};
}

void dump(const Tables::KeyedValues& keyedValues, std::vector<std::vector<Cell>>& rows) {
    for (const auto& [owner, dictionary] : keyedValues) {
        for (const auto& [key, keyed] : dictionary) {
            const auto& [object, objectType, keyType] = owner;
            rows.push_back(cells(object, objectType, keyType, key, keyed.value, keyed.timestamp));
        }
    }
}

Cell readCell(sqlite3_stmt* statement, int column) {
    const auto bytes = [&](const void* data) {
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
        return size == 0 ? std::string() : std::string(static_cast<const char*>(data), size);
    };
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER:
            return std::int64_t{sqlite3_column_int64(statement, column)};
        case SQLITE_FLOAT:
            return sqlite3_column_double(statement, column);
        case SQLITE_TEXT: {
            const void* const text = sqlite3_column_text(statement, column);
            return bytes(text);
        }
        case SQLITE_BLOB: {
            const void* const blob = sqlite3_column_blob(statement, column);
            return Bytes{bytes(blob)};
        }
        default:
            return nullptr;
    }
}

std::string describe(const std::vector<Cell>& row) {
    std::ostringstream text;
    text << std::setprecision(17);
    const char* separator = "(";
    for (const Cell& value : row) {
        text << separator;
        separator = ", ";
        if (const auto* const string = std::get_if<std::string>(&value)) {
            text << quoted(*string);
        } else if (const auto* const bytes = std::get_if<Bytes>(&value)) {
            text << *bytes;
        } else if (const auto* const number = std::get_if<std::int64_t>(&value)) {
            text << *number;
        } else if (const auto* const real = std::get_if<double>(&value)) {
            text << *real << " (real)";
        } else {
            text << "NULL";
        }
    }
    text << ')';
    return text.str();
}

/// Each table with what tells its rows apart.
constexpr std::pair<const char*, const char*> tablesAndKeys[] = {
    {"streams", "database_identifier"},
    {"events", "database_identifier"},
    {"event_content_parts", "database_identifier"},
    {"synced_changes", "database_identifier"},
    {"conversations", "database_identifier"},
    {"conversation_participants", "database_identifier"},
    {"messages", "database_identifier"},
    {"keyed_values_local", "object_database_identifier, object_type, key_type, key"},
    {"keyed_values_remote", "object_database_identifier, object_type, key_type, key"},
    {"stream_recency", "stream_database_identifier"},
};

}  // namespace

TableDump dumpOf(const Tables& tables) {
    TableDump dump;
    for (const auto& [name, key] : tablesAndKeys) {
        dump[name];
    }
    for (const auto& [row, stream] : tables.streams) {
        dump["streams"].push_back(cells(row, stream.stream_id, stream.seq));
    }
    for (const auto& [row, event] : tables.events) {
        dump["events"].push_back(cells(row, event.type, event.creator_id, event.seq, event.timestamp,
                                       event.preceding_seq, event.client_seq, event.subtype, event.member_id,
                                       event.target_seq, event.stream_database_identifier, event.client_id,
                                       event.creator_name));
    }
    for (const auto& [row, part] : tables.parts) {
        dump["event_content_parts"].push_back(
            cells(row, part.event_content_part_id, part.event_database_identifier, part.type, part.value,
                  part.access_expiration, part.url, part.size, part.transfer_status, part.file_path,
                  part.last_accessed, part.purged));
    }
    for (const auto& [row, change] : tables.changes) {
        dump["synced_changes"].push_back(
            cells(row, change.table_name, change.row_identifier, change.change_type));
    }
    for (const auto& [row, conversation] : tables.conversations) {
        dump["conversations"].push_back(cells(row, conversation.stream_id));
    }
    for (const auto& [row, participant] : tables.participants) {
        dump["conversation_participants"].push_back(
            cells(row, participant.conversation_database_identifier, participant.member_id, participant.seq));
    }
    for (const auto& [row, message] : tables.messages) {
        dump["messages"].push_back(cells(row, message.event_database_identifier, message.seq));
    }
    test::dump(tables.keyedValuesLocal, dump["keyed_values_local"]);
    test::dump(tables.keyedValuesRemote, dump["keyed_values_remote"]);
    for (const auto& [table, largest] : tables.largestRows) {
        if (largest != 0) {
            dump["sqlite_sequence"].push_back(cells(table, largest));
        }
    }
    return dump;
}

DatabaseReader::DatabaseReader(FMDatabase& database) : database_(database) {
    const auto prepare = [&](const std::string& table, const std::string& condition, const std::string& key) {
        const std::string sql = "SELECT * FROM " + table + condition + " ORDER BY " + key;
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(database_.sqliteHandle(), sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
            throw std::runtime_error(sql + ": " + sqlite3_errmsg(database_.sqliteHandle()));
        }
        statements_.emplace_back(table, statement);
    };
    for (const auto& [table, key] : tablesAndKeys) {
        prepare(table, "", key);
    }
    prepare("sqlite_sequence", " WHERE seq <> 0", "name");
}

DatabaseReader::~DatabaseReader() {
    for (const auto& [table, statement] : statements_) {
        sqlite3_finalize(statement);
    }
}

TableDump DatabaseReader::dump() const {
    TableDump dump;
    for (const auto& [table, statement] : statements_) {
        auto& rows = dump[table];
        int status = sqlite3_step(statement);
        for (; status == SQLITE_ROW; status = sqlite3_step(statement)) {
            std::vector<Cell> row;
            for (int column = 0; column < sqlite3_column_count(statement); ++column) {
                row.push_back(readCell(statement, column));
            }
            rows.push_back(std::move(row));
        }
        sqlite3_reset(statement);
        if (status != SQLITE_DONE) {
            throw std::runtime_error("cannot read " + table + ": " +
                                     sqlite3_errmsg(database_.sqliteHandle()));
        }
    }
    return dump;
}

std::optional<std::string> firstDifference(const TableDump& stored, const TableDump& expected) {
    for (const auto& [table, storedRows] : stored) {
        const auto found = expected.find(table);
        const auto expectedRows = found == expected.end() ? std::vector<std::vector<Cell>>() : found->second;
        for (std::size_t index = 0; index < std::max(storedRows.size(), expectedRows.size()); ++index) {
            const std::string is = index < storedRows.size() ? describe(storedRows[index]) : "nothing";
            const std::string should =
                index < expectedRows.size() ? describe(expectedRows[index]) : "nothing";
            if (is != should) {
                return "row " + std::to_string(index + 1) + " of the table " + table + "\n  is        " + is +
                       "\n  should be " + should;
            }
        }
    }
    return std::nullopt;
}

}  // namespace zav::test
