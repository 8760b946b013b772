#include "Store/Internal/ZAVStreamRecency.h"

#include <charconv>
#include <string>

#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {
namespace {

constexpr const char* eventKey = "event";
constexpr const char* streamKey = "stream";

ZAVKeyedValuesContext contextOfMark() noexcept {
    return ZAVKeyedValuesContext::contextWithTable(ZAVKeyedValuesTableLocal, "conversations", 0,
                                                   ZAVKeyedValuesKeyTypeConfiguration);
}

/// The row that a value names; none when it names none.
std::optional<ZAVDatabaseIdentifier> rowFrom(const ZAVDictionary& values, const char* key) {
    const ZAVDictionaryValue* const value = values.find(key);
    const auto* const text = value == nullptr ? nullptr : std::get_if<std::string>(value);
    ZAVDatabaseIdentifier row = 0;
    if (text == nullptr ||
        std::from_chars(text->data(), text->data() + text->size(), row).ec != std::errc()) {
        return std::nullopt;
    }
    return row;
}

constexpr ZAVStatementText insertion("INSERT OR REPLACE INTO stream_recency SELECT database_identifier, ");
constexpr auto everyStream =
    insertion + ZAVSelectRecencyOf(ZAVStatementText("streams.database_identifier")) + " FROM streams";
constexpr auto oneStream = everyStream + " WHERE database_identifier = ?1";
constexpr auto streamsBehindMark =
    everyStream +
    " WHERE database_identifier > ?2 OR database_identifier IN"
    " (SELECT stream_database_identifier FROM events WHERE database_identifier > ?1)";

}  // namespace

bool ZAVStreamRecency::readMark(std::optional<Mark>& mark, ZAVError* error) const {
    const auto kept = repositories_.keyedValues.keyedValuesInContext(contextOfMark(), error);
    if (!kept) {
        return false;
    }
    const auto event = rowFrom(kept->keyedValues(), eventKey);
    const auto stream = rowFrom(kept->keyedValues(), streamKey);
    mark = event && stream ? std::optional(Mark{*event, *stream}) : std::nullopt;
    return true;
}

std::optional<ZAVStreamRecency::Mark> ZAVStreamRecency::newestRows(ZAVError* error) const {
    FMDatabase& database = repositories_.events.database();
    const auto event = readNumber(database, error, "SELECT IFNULL(MAX(database_identifier), 0) FROM events");
    const auto stream =
        event ? readNumber(database, error, "SELECT IFNULL(MAX(database_identifier), 0) FROM streams")
              : std::nullopt;
    return stream ? std::optional(Mark{*event, *stream}) : std::nullopt;
}

bool ZAVStreamRecency::catchUp(ZAVError* error) const {
    std::optional<Mark> before;
    if (!readMark(before, error)) {
        return false;
    }
    return before ? runUpdate(repositories_.events.database(), error, streamsBehindMark, before->event,
                              before->stream) &&
                        setMark(error)
                  : rebuild(error);
}

bool ZAVStreamRecency::rebuild(ZAVError* error) const {
    FMDatabase& database = repositories_.events.database();
    return runUpdate(database, error, "DELETE FROM stream_recency") &&
           runUpdate(database, error, everyStream) && setMark(error);
}

bool ZAVStreamRecency::setMark(ZAVError* error) const {
    const auto newest = newestRows(error);
    if (!newest) {
        return false;
    }
    ZAVDictionary values;
    values.set(eventKey, std::to_string(newest->event));
    values.set(streamKey, std::to_string(newest->stream));
    return repositories_.keyedValues.setKeyedValuesWithDictionary(values, std::nullopt, contextOfMark(),
                                                                  error);
}

bool ZAVStreamRecency::update(ZAVDatabaseIdentifier stream, ZAVError* error) const {
    std::optional<Mark> kept;
    return readMark(kept, error) && (!kept || refresh(stream, error));
}

bool ZAVStreamRecency::refresh(ZAVDatabaseIdentifier stream, ZAVError* error) const {
    FMDatabase& database = repositories_.events.database();
    return runUpdate(database, error, "DELETE FROM stream_recency WHERE stream_database_identifier = ?",
                     stream) &&
           runUpdate(database, error, oneStream, stream);
}

}  // namespace zav
