// Rows that hold anything: values of any storage class in every column, for both mappers and in the tables.
//
// An input is the number of columns of an event's row beyond those that its mapper reads and the values of
// that row, the same for a content part's row, then rows for the tables. A value is a byte that says its
// kind, and what that kind takes.

#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventMapperColumns.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <ZAVEventRepository/ZAVValue.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Expect.h"
#include "InputReader.h"
#include "Operations/Catalogue.h"
#include "Operations/Description.h"
#include "Operations/FilledStore.h"

namespace {

using namespace zav;
using fuzzing::expect;
using fuzzing::InputReader;

// The columns of the select lists that the mappers read.
constexpr std::size_t eventColumns = 15;
constexpr std::size_t partColumns = 14;

/// Formats every line, and keeps none.
class SwallowingSink final : public DDLogSink {
public:
    void write(const DDLogMessage& line) override {
        expect(!line.message.empty(), "a log line to say something");
    }
};

constexpr std::array<std::int64_t, 12> telling = {0,
                                                  1,
                                                  -1,
                                                  255,
                                                  256,
                                                  std::numeric_limits<std::int32_t>::max(),
                                                  std::numeric_limits<std::int32_t>::min(),
                                                  std::int64_t{1} << 31,
                                                  std::int64_t{1} << 32,
                                                  std::numeric_limits<std::int64_t>::max(),
                                                  std::numeric_limits<std::int64_t>::min(),
                                                  ZAVDatabaseIdentifierNotSet};

const std::array<double, 8> tellingReals = {0.5,
                                            -0.0,
                                            1e300,
                                            -1e300,
                                            9223372036854775808.0,
                                            std::numeric_limits<double>::infinity(),
                                            -std::numeric_limits<double>::infinity(),
                                            std::numeric_limits<double>::quiet_NaN()};

ZAVValue readValue(InputReader& input) {
    switch (input.byte() % 10) {
        case 1:
            return input.number<std::int64_t>();
        case 2:
            return std::int64_t{input.number<std::int8_t>()};
        case 3:
            return ZAVDateFromSecondsSince1970(input.number<double>());
        case 4:
            return input.text(input.byte());
        case 5:
            return ZAVData::fromText(input.text(input.byte()));
        case 6:
            return ZAVData::fromText(std::string(input.byte(), '\0'));
        case 7:
            return telling[input.byte() % telling.size()];
        case 8:
            return ZAVDateFromSecondsSince1970(tellingReals[input.byte() % tellingReals.size()]);
        case 9:
            return ZAVData::fromText(std::string(16, static_cast<char>(input.byte())));
        default:
            return nullptr;
    }
}

/// A row as a mapper gets it.
class BoundRow {
public:
    /// @param read how many columns the mapper reads; a byte of the input says how many more, or fewer, there
    /// are.
    BoundRow(InputReader& input, std::size_t read) {
        const auto difference = input.number<std::int8_t>() % 4;
        const auto count = static_cast<std::size_t>(static_cast<int>(read) + difference);
        for (std::size_t column = 0; column < count; ++column) {
            values_.push_back(readValue(input));
        }
    }

    [[nodiscard]] FMResultSet selectedFrom(FMDatabase& database) const {
        std::string sql = "SELECT ?";
        for (std::size_t column = 1; column < values_.size(); ++column) {
            sql += ", ?";
        }
        auto rows = database.executeQueryWithArgumentsInArray(sql, values_);
        expect(rows && rows->next(), "any values to be selectable");
        return *std::move(rows);
    }

    /// The bytes of a text or blob; none for NULL and for a column that is not there.
    [[nodiscard]] std::optional<std::string_view> bytes(std::size_t column) const {
        if (const auto* text = stored<std::string>(column)) {
            return *text;
        }
        if (const auto* data = stored<ZAVData>(column)) {
            return data->asText();
        }
        return std::nullopt;
    }

    /// Whether the column is neither NULL nor a number, so that `bytes` is all there is to say of it.
    [[nodiscard]] bool isNumber(std::size_t column) const {
        return stored<std::int64_t>(column) != nullptr || stored<ZAVDate>(column) != nullptr;
    }

    /// The number in the column; 0 for NULL and none for what the engine would have to convert.
    [[nodiscard]] std::optional<std::int64_t> number(std::size_t column) const {
        if (const auto* value = stored<std::int64_t>(column)) {
            return *value;
        }
        return isNull(column) ? std::optional<std::int64_t>(0) : std::nullopt;
    }

    /// NaN is NULL to the engine.
    [[nodiscard]] bool isNull(std::size_t column) const {
        const auto* date = stored<ZAVDate>(column);
        return column >= values_.size() || stored<std::nullptr_t>(column) != nullptr ||
               (date != nullptr && std::isnan(ZAVSecondsSince1970(*date)));
    }

private:
    template <class T>
    [[nodiscard]] const T* stored(std::size_t column) const {
        return column < values_.size() ? std::get_if<T>(&values_[column].storage()) : nullptr;
    }

    std::vector<ZAVValue> values_;
};

template <class Text>
void expectBytes(const BoundRow& row, std::size_t column, const std::optional<Text>& read,
                 std::string_view sentence) {
    if (row.isNull(column)) {
        expect(!read, sentence);
    } else if (const auto bytes = row.bytes(column)) {
        if constexpr (std::is_same_v<Text, ZAVData>) {
            expect(read && read->asText() == *bytes, sentence);
        } else {
            expect(read && *read == *bytes, sentence);
        }
    } else {
        expect(read.has_value(), sentence);
    }
}

void expectUUID(const BoundRow& row, std::size_t column, const std::optional<ZAVUUID>& read,
                std::string_view sentence) {
    const auto bytes = row.bytes(column);
    if (row.isNull(column)) {
        expect(!read, sentence);
    } else if (bytes) {
        expect(read == ZAVUUIDFromData(ZAVData::fromText(*bytes)), sentence);
    }
}

template <class Number>
void expectNumber(const BoundRow& row, std::size_t column, Number read, std::string_view sentence) {
    if (const auto number = row.number(column)) {
        expect(read == static_cast<Number>(*number), sentence);
    }
}

void describeAll(const ZAVEvent& event) {
    expect(!event.description().empty() && !test::describeAlone(event).empty(),
           "an event to have a description");
    (void)test::describeMetadata(event);
    (void)test::describeParts(event);
    DDLog::log(true, ddLogLevel, DDLogFlagVerbose, 0, "file", "function", 1, nullptr, "read %@", event);
}

void describeAll(const ZAVEventContent& part) {
    expect(!part.description().empty() && !test::describe(part).empty(), "a part to have a description");
    DDLog::log(true, ddLogLevel, DDLogFlagVerbose, 0, "file", "function", 1, nullptr, "read %@", part);
}

void checkEventMapper(const ZAVEventRepository& repository, const BoundRow& row) {
    std::shared_ptr<ZAVEvent> event;
    {
        const FMResultSet rows = row.selectedFrom(repository.database());
        ZAVError error;
        event = repository.objectFromResultSet(rows, &error);
        expect(!error, "a mapped row to be no error");
    }
    expect(event != nullptr, "the event mapper never to answer null");
    expect(event->seqIsSet(), "the sequence of an event that was read to be set");
    expect(event->target_seqIsSet() == !row.isNull(ZAVEventMapperColumnTargetSeq),
           "a target sequence to be set when it was stored");
    expectBytes(row, ZAVEventMapperColumnClientID, event->client_id(), "client_id to be the stored bytes");
    expectBytes(row, ZAVEventMapperColumnEventStreamID, event->stream_id(),
                "stream_id to be the stored bytes");
    expectBytes(row, ZAVEventMapperColumnCreatorID, event->creator_id(), "creator_id to be the stored text");
    expectBytes(row, ZAVEventMapperColumnCreatorName, event->creator_name(),
                "creator_name to be the stored text");
    expectBytes(row, ZAVEventMapperColumnMemberID, event->member_id(), "member_id to be the stored text");
    expectUUID(row, ZAVEventMapperColumnEventStreamID, event->streamUUID(), "a stream's UUID to be 16 bytes");
    expectNumber(row, ZAVEventMapperColumnEventDatabaseIdentifier, event->databaseIdentifier(),
                 "an event to know its row");
    expectNumber(row, ZAVEventMapperColumnStreamDatabaseIdentifier, event->streamDatabaseIdentifier(),
                 "an event to know its stream's row");
    expectNumber(row, ZAVEventMapperColumnEventSeq, event->seq(), "seq to be the stored number");
    expectNumber(row, ZAVEventMapperColumnTargetSeq, event->target_seqIsSet() ? event->target_seq() : 0,
                 "target_seq to be the stored number");
    expectNumber(row, ZAVEventMapperColumnClientSeq, event->client_seq(),
                 "client_seq to be the stored number");
    expectNumber(row, ZAVEventMapperColumnPrecedingSeq, event->preceding_seq(),
                 "preceding_seq to be the stored number");
    expectNumber(row, ZAVEventMapperColumnSubType, event->subtype(), "subtype to be the stored number");
    expectNumber(row, ZAVEventMapperColumnTimestamp, event->server_timestamp(),
                 "server_timestamp to be the stored number");
    describeAll(*event);
}

void checkPartMapper(const ZAVEventRepository& repository, const BoundRow& row) {
    std::shared_ptr<ZAVEventContent> part;
    {
        const FMResultSet rows = row.selectedFrom(repository.database());
        part = repository.eventContentFromResultSet(rows);
    }
    expect(part != nullptr, "the part mapper never to answer null");
    expectUUID(row, ZAVEventMapperEventContentPartsColumnClientID, part->eventClientID(),
               "an event's UUID to be 16 bytes");
    expectUUID(row, ZAVEventMapperEventContentPartsColumnStreamID, part->streamUUID(),
               "a stream's UUID to be 16 bytes");
    if (row.isNull(ZAVEventMapperEventContentPartsColumnURL)) {
        expect(part->body().has_value() && !part->external_url(), "a part without a URL to have inline data");
        if (!row.isNumber(ZAVEventMapperEventContentPartsColumnValue)) {
            expect(
                part->body()->asText() == row.bytes(ZAVEventMapperEventContentPartsColumnValue).value_or(""),
                "inline data to be the stored bytes");
        }
    } else {
        expect(!part->body(), "bytes beside a URL not to be read");
        const auto url = row.bytes(ZAVEventMapperEventContentPartsColumnURL);
        expect(!url || !part->external_url() || *part->external_url() == *url, "a URL to be the stored text");
    }
    if (row.isNull(ZAVEventMapperEventContentPartsColumnType)) {
        expect(part->media_type() == "application/octet-stream", "a part without a type to be just bytes");
    } else {
        expectBytes(row, ZAVEventMapperEventContentPartsColumnType, part->media_type(),
                    "a part's type to be the stored text");
    }
    const auto path = row.bytes(ZAVEventMapperEventContentPartsColumnFilePath);
    expect(!part->fileURL() || !path || part->fileURL()->text() == *path, "a path to be the stored text");
    expectNumber(row, ZAVEventMapperEventContentPartsColumnIndex, part->index(), "a part to know its index");
    expectNumber(row, ZAVEventMapperEventContentPartsColumnEventDatabaseIdentifier,
                 part->eventDatabaseIdentifier(), "a part to know its event's row");
    expectNumber(row, ZAVEventMapperEventContentPartsColumnSize, part->size(), "a part to know its size");
    if (row.isNull(ZAVEventMapperEventContentPartsColumnSeq)) {
        expect(part->eventSeq() == ZAVSequenceNotSet, "an event without a sequence to have none");
    }
    expect(part->lastAccessed().has_value() == !row.isNull(ZAVEventMapperEventContentPartsColumnLastAccessed),
           "a last access to be there when it was stored");
    describeAll(*part);
}

struct Table {
    std::string_view name;
    std::size_t columns;
};
constexpr std::array<Table, 6> tables = {{{"streams", 3},
                                          {"events", 13},
                                          {"event_content_parts", 12},
                                          {"keyed_values_remote", 6},
                                          {"synced_changes", 4},
                                          {"messages", 3}}};

/// Stores the row that the input gives; not, when the table refuses it.
void insertRow(InputReader& input, FMDatabase& database) {
    const Table& table = tables[input.byte() % tables.size()];
    std::string sql = "INSERT OR IGNORE INTO " + std::string(table.name) + " VALUES (?";
    std::vector<ZAVValue> values{readValue(input)};
    while (values.size() < table.columns) {
        values.push_back(readValue(input));
        sql += ", ?";
    }
    (void)database.executeUpdateWithArgumentsInArray(sql + ")", values);
}

std::vector<std::string> firstColumn(FMDatabase& database, std::string_view sql) {
    std::vector<std::string> values;
    auto rows = database.executeQuery(sql);
    expect(rows.has_value(), "a table to be readable");
    while (rows->next()) {
        values.push_back(rows->stringForColumnIndex(0).value_or("NULL"));
    }
    return values;
}

/// A part that was read, recorded again: its path stays the same text.
void checkPaths(const ZAVEventRepository& repository) {
    FMDatabase& database = repository.database();
    // Elsewhere the numbers that a part is found by are not those that are stored.
    for (const std::string& row :
         firstColumn(database,
                     "SELECT database_identifier FROM event_content_parts WHERE typeof(file_path) = 'text'"
                     " AND typeof(event_database_identifier) = 'integer'"
                     " AND typeof(event_content_part_id) = 'integer'")) {
        ZAVError error;
        const auto part = repository.eventContentDatabaseIdentifier(std::stoll(row), &error);
        expect(part && !error, "a stored part to be found by its row");
        if (!part->fileURL() || !part->fileURL()->baseURL() ||
            part->eventDatabaseIdentifier() == ZAVDatabaseIdentifierNotSet) {
            continue;
        }
        const std::string path =
            "SELECT file_path FROM event_content_parts WHERE database_identifier = " + row;
        const auto before = firstColumn(database, path);
        expect(repository.persistEventContentUpdate(*part, &error) && !error,
               "a part that was read to be recordable");
        expect(firstColumn(database, path) == before, "a path to be written back as it was read");
    }
}

/// Whether the engine has undone the input's transaction by itself, as it does when a table has used up its
/// rows' numbers. From then on what is stored would stay.
bool isUndone(const FMDatabase& database) {
    return !database.inTransaction();
}

/// Stores each event as it was read. Those that lack what is required are refused.
void storeWhatIsRead(const ZAVEventRepository& repository) {
    ZAVError error;
    const auto events = repository.allEvents(&error);
    expect(events && !error, "every event to be readable");
    for (const auto& event : *events) {
        expect(event->seqIsSet(), "the sequence of an event that was read to be set");
        describeAll(*event);
        try {
            const bool stored = repository.persistEvents(ZAVSet<ZAVTEvent>{event}, &error);
            expect(stored == !error, "an event to be stored, or not with an error");
            if (isUndone(repository.database())) {
                expect(!stored, "a full table to refuse an event");
                return;
            }
            error = {};
        } catch (const NSInternalInconsistencyException& refusal) {
            expect(!refusal.reason().empty(), "a refusal to come with a reason");
        }
    }
}

/// Whether each event's parts are numbered from 0 on. Those that are not get such a number when their event
/// is stored, in a row beside the one that they have.
bool partsAreNumbered(FMDatabase& database) {
    return firstColumn(database,
                       "SELECT 1 FROM event_content_parts GROUP BY event_database_identifier HAVING"
                       " MIN(event_content_part_id) != 0 OR MAX(event_content_part_id) != COUNT(*) - 1 OR"
                       " SUM(typeof(event_content_part_id) != 'integer') OR"
                       " typeof(event_database_identifier) != 'integer'")
        .empty();
}

std::vector<std::string> comparableRows(FMDatabase& database, bool withParts) {
    std::vector<std::string> rows = test::rowsOfAllTables(database);
    if (!withParts) {
        std::erase_if(rows, [](const std::string& row) { return row.starts_with("event_content_parts:"); });
    }
    return rows;
}

void checkTables(const std::shared_ptr<FMDatabase>& database, const ZAVEventRepository& repository) {
    checkPaths(repository);
    const bool withParts = partsAreNumbered(*database);
    storeWhatIsRead(repository);
    const auto once = comparableRows(*database, withParts);
    storeWhatIsRead(repository);
    if (isUndone(*database)) {
        return;
    }
    const auto twice = comparableRows(*database, withParts);
    if (once != twice) {
        std::vector<std::string> changed;
        std::set_symmetric_difference(once.begin(), once.end(), twice.begin(), twice.end(),
                                      std::back_inserter(changed));
        for (const std::string& row : changed) {
            std::cerr << row << '\n';
        }
        expect(false, "storing again what was read to change nothing");
    }
    for (const test::Operation& operation : test::everyOperation()) {
        if (operation.owner == "ZAVTransaction") {
            continue;  // there is one already
        }
        try {
            ZAVError error;
            const test::Answer answer = operation.call(repository, &error);
            for (const auto& event : answer.events) {
                describeAll(*event);
            }
            for (const auto& part : answer.contents) {
                describeAll(*part);
            }
        } catch (const NSInternalInconsistencyException& refusal) {
            expect(!refusal.reason().empty(), "a refusal to come with a reason");
        }
        expect(database->openResultSets() == 0, "an operation to leave no cursor open");
        if (isUndone(*database)) {
            return;
        }
    }
}

std::shared_ptr<FMDatabase> openStore() {
    gZAVLogPreferences[ZAVLogComponentModel] = 5;
    DDLog::setSink(std::make_shared<SwallowingSink>());
    ZAVSetMessageRepositoryCacheBaseDirectoryURL(ZAVURL::fileURLWithDirectoryPath("/cache"));
    auto database = ZAVDatabaseSchema::openDatabase(":memory:");
    expect(database != nullptr, "an event store in memory to open");
    return database;
}

void check(InputReader input, const std::shared_ptr<FMDatabase>& database) {
    const auto transaction = ZAVTransaction::begin(*database);  // what the input stores goes with it
    expect(transaction.has_value(), "a transaction to begin");
    const ZAVEventRepository repository(database);
    checkEventMapper(repository, BoundRow(input, eventColumns));
    checkPartMapper(repository, BoundRow(input, partColumns));
    for (int rows = 0; !input.atEnd() && rows < 64 && !isUndone(*database); ++rows) {
        insertRow(input, *database);
    }
    if (!isUndone(*database)) {
        checkTables(database, repository);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::shared_ptr<FMDatabase> database = openStore();
    check(InputReader(data, size), database);
    expect(!database->inTransaction() && database->openResultSets() == 0, "nothing to stay open");
    expect(test::rowsOfAllTables(*database).empty(), "a transaction to take with it what it stored");
    return 0;
}
