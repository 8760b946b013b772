#include "Model/StoreModel.h"

#include <sqlite3.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace zav::test {
namespace {

using Row = Tables::Row;
using Number = std::optional<std::int64_t>;
using Text = std::optional<std::string>;

constexpr std::uint64_t noLimitFrom = std::uint64_t{1} << 63;  ///< the engine reads it as a negative number

constexpr std::int64_t tombstone = 10;
constexpr std::int64_t message = 4;

enum Status : std::int64_t { awaitingUpload, uploading, readyForDownload, downloading, complete };

bool isHexDigit(char character) {
    return std::string("0123456789abcdefABCDEF").find(character) != std::string::npos;
}

/// The path of a URL that stands alone.
std::string pathOf(std::string url) {
    url.resize(std::min(url.find_first_of("?#"), url.size()));
    if (hasScheme(url)) {
        url = url.substr(url.find(':') + 1);
    }
    if (url.starts_with("//")) {
        const auto slash = url.find('/', 2);
        url = slash == std::string::npos ? "" : url.substr(slash);
    }
    return url;
}

Text storedPath(const std::optional<URLRecord>& url) {
    if (!url) {
        return std::nullopt;
    }
    return url->inCache ? url->text : pathOf(url->text);
}

/// A stored number read as 32 bits.
std::int32_t int32(const Number& number) {
    return static_cast<std::int32_t>(
        static_cast<std::uint32_t>(static_cast<std::uint64_t>(number.value_or(0))));
}

/// A stored moment read as whole seconds.
std::uint64_t wholeSeconds(const std::optional<double>& moment) {
    const double seconds = moment.value_or(0);
    constexpr double beyond = 9223372036854775808.0;
    if (seconds >= beyond) {
        return static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    }
    if (seconds <= -beyond) {
        return static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::min());
    }
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(seconds));
}

bool isUTF8(const std::string& bytes) {
    std::size_t position = 0;
    const auto byteAt = [&](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
    while (position < bytes.size()) {
        const unsigned lead = byteAt(position);
        const std::size_t length = lead < 0x80 ? 1 : lead < 0xC0 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        if (length == 0 || lead > 0xF7 || position + length > bytes.size()) {
            return false;
        }
        unsigned character = length == 1 ? lead : lead & (0x7FU >> length);
        for (std::size_t offset = 1; offset < length; ++offset) {
            if ((byteAt(position + offset) & 0xC0) != 0x80) {
                return false;
            }
            character = (character << 6) | (byteAt(position + offset) & 0x3FU);
        }
        static constexpr unsigned smallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (character < smallest[length] || character > 0x10FFFF ||
            (character >= 0xD800 && character <= 0xDFFF)) {
            return false;
        }
        position += length;
    }
    return true;
}

/// Sorts by `before` and puts into one tier what it does not tell apart.
template <class Ranked, class Before>
std::vector<std::vector<PartRecord>> tiersOf(std::vector<Ranked> ranked, const Before& before) {
    std::stable_sort(ranked.begin(), ranked.end(), before);
    std::vector<std::vector<PartRecord>> tiers;
    for (std::size_t index = 0; index < ranked.size(); ++index) {
        if (index == 0 || before(ranked[index - 1], ranked[index])) {
            tiers.emplace_back();
        }
        tiers.back().push_back(ranked[index].record);
    }
    return tiers;
}

std::optional<std::uint64_t> limitOf(std::uint64_t limit) {
    return limit < noLimitFrom ? std::optional(limit) : std::nullopt;
}

bool isPresentFile(const Tables::Part& part) {
    return part.file_path && part.purged.value_or(0) == 0;
}

Tables::KeyedValues& keyedValuesOf(Tables& tables, bool remote) {
    return remote ? tables.keyedValuesRemote : tables.keyedValuesLocal;
}

Tables::Owner metadataOf(Row event) {
    return {event, "event", 0};
}

template <class Rows>
Row nextRow(const Rows& rows) {
    return rows.empty() ? 1 : rows.rbegin()->first + 1;
}

}  // namespace

bool isURL(const std::string& text) {
    static const std::string allowed =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~:/?#@!$&'()*+,;=%";
    for (std::size_t position = 0; position < text.size(); ++position) {
        if (allowed.find(text[position]) == std::string::npos) {
            return false;
        }
        if (text[position] == '%' && (position + 2 >= text.size() || !isHexDigit(text[position + 1]) ||
                                      !isHexDigit(text[position + 2]))) {
            return false;
        }
    }
    return true;
}

bool hasScheme(const std::string& text) {
    const auto colon = text.find(':');
    return colon != std::string::npos && colon < text.find('/');
}

template <class Value, class Work>
ModelAnswer<Value> StoreModel::attempt(Value onFailure, const Work& work) {
    metadataError_.reset();
    try {
        Value value = work();
        return {std::move(value), metadataError_};
    } catch (const StatementFailure& failure) {
        return {std::move(onFailure), failure.code};
    }
}

ModelAnswer<bool> StoreModel::begin() {
    if (inTransaction()) {
        return {false, SQLITE_ERROR};
    }
    tablesBeforeTransaction_ = tables;
    return {true};
}

ModelAnswer<bool> StoreModel::commit() {
    if (!inTransaction()) {
        return {false, ErrorCode(ZAVDatabaseErrorTransactionEnded, ZAVErrorDomainDatabase)};
    }
    tablesBeforeTransaction_.reset();
    return {true};
}

void StoreModel::rollback() {
    if (inTransaction()) {
        tables = *tablesBeforeTransaction_;
        tablesBeforeTransaction_.reset();
    }
}

void StoreModel::touch(std::initializer_list<const char*> names) const {
    for (const char* name : names) {
        if (withheldTable == name) {
            throw StatementFailure{SQLITE_AUTH};
        }
    }
}

/// Engines before 3.19 do not ask whether a table may be touched of which no column is read.
void StoreModel::touchWithoutColumns(const char* name) const {
    if (sqlite3_libversion_number() >= 3019000) {
        touch({name});
    }
}

void StoreModel::failIfRefused(Refusal statement) const {
    if (refusal == statement) {
        throw StatementFailure{SQLITE_CONSTRAINT_TRIGGER};
    }
}

Row StoreModel::usable(Row row) {
    if (row == ZAVDatabaseIdentifierNotSet) {
        throw StatementFailure{{14, "ZAVDatabase"}};
    }
    return row;
}

Row StoreModel::nextCountedRow(const std::string& table) {
    const auto largest = tables.largestRows.find(table);
    if (largest == tables.largestRows.end()) {
        return 1;
    }
    if (largest->second == std::numeric_limits<Row>::max()) {
        rollback();
        throw StatementFailure{SQLITE_FULL};
    }
    return largest->second + 1;
}

void StoreModel::countRow(const std::string& table, Row row) {
    Row& largest = tables.largestRows[table];
    largest = std::max(largest, row);
}

const Tables::Stream* StoreModel::streamOf(const Tables::Event& event) const {
    if (!event.stream_database_identifier) {
        return nullptr;
    }
    const auto stream = tables.streams.find(*event.stream_database_identifier);
    return stream == tables.streams.end() ? nullptr : &stream->second;
}

const Tables::Event* StoreModel::eventOf(const Tables::Part& part) const {
    const auto event = tables.events.find(part.event_database_identifier);
    return event == tables.events.end() ? nullptr : &event->second;
}

const Tables::Stream* StoreModel::streamOf(const Tables::Part& part) const {
    const Tables::Event* const event = eventOf(part);
    return event == nullptr ? nullptr : streamOf(*event);
}

/// The one event at a sequence of a stream. What is NULL equals nothing.
std::optional<Row> StoreModel::eventAt(std::optional<Row> stream, std::optional<std::int64_t> seq) const {
    for (const auto& [row, event] : tables.events) {
        if (stream && seq && event.stream_database_identifier == stream && event.seq == seq) {
            return row;
        }
    }
    return std::nullopt;
}

// --- Reading rows into records -----------------------------------------------------------------------------

PartRecord StoreModel::record(const Tables::Part& part) const {
    const Tables::Event* const event = eventOf(part);
    const Tables::Stream* const stream = streamOf(part);
    PartRecord record;
    record.index = part.event_content_part_id;
    record.eventDatabaseIdentifier = part.event_database_identifier;
    record.media_type.set(part.type.value_or("application/octet-stream"));
    record.size.set(part.size.value_or(0));
    if (part.url) {
        if (isURL(*part.url)) {
            record.external_url.set(*part.url);
        }
    } else {
        record.body.set(part.value.value_or(Bytes{}));
    }
    if (const std::uint64_t seconds = wholeSeconds(part.access_expiration); seconds != 0) {
        record.externalContentURLExpiration = static_cast<double>(seconds);
    }
    if (part.file_path && isURL(*part.file_path)) {
        record.fileURL = {*part.file_path, !hasScheme(*part.file_path)};
    }
    record.transferStatus = static_cast<std::uint64_t>(std::int64_t{int32(part.transfer_status)});
    record.lastAccessed = part.last_accessed;
    record.isPurged = part.purged.value_or(0) != 0;
    if (event != nullptr) {
        record.eventClientID = uuidOf(event->client_id);
        record.eventSeq = event->seq ? int32(event->seq) : ZAVSequenceNotSet;
    }
    if (stream != nullptr) {
        record.streamUUID = uuidOf(stream->stream_id);
    }
    return record;
}

EventRecord StoreModel::record(Row row, const Tables::Event& event) {
    EventRecord record;
    record.databaseIdentifier = row;
    record.streamDatabaseIdentifier = event.stream_database_identifier.value_or(0);
    record.client_id.set(event.client_id);
    record.client_seq.set(int32(event.client_seq));
    record.creator_id.set(event.creator_id);
    record.creator_name.set(event.creator_name);
    record.member_id.set(event.member_id);
    record.preceding_seq.set(int32(event.preceding_seq));
    record.subtype.set(static_cast<std::uint8_t>(int32(event.subtype)));
    if (event.target_seq) {
        record.target_seq.set(int32(event.target_seq));
    }
    record.server_timestamp.set(event.timestamp.value_or(0));
    record.type.set(int32(event.type));
    record.seq.set(int32(event.seq));
    if (const Tables::Stream* const stream = streamOf(event)) {
        record.stream_id = stream->stream_id;
    }

    Metadata metadata;
    if (withheldTable == "keyed_values_remote") {
        metadataError_ = SQLITE_AUTH;
    } else if (const auto stored = tables.keyedValuesRemote.find(metadataOf(row));
               stored != tables.keyedValuesRemote.end()) {
        for (const auto& [key, keyed] : stored->second) {
            const auto* const text = std::get_if<std::string>(&keyed.value);
            metadata.emplace(key, text != nullptr ? Bytes{*text} : std::get<Bytes>(keyed.value));
        }
    }
    record.transient_metadata.set(metadata);

    std::vector<PartRecord> content;
    if (withheldTable != "event_content_parts") {
        content =
            partsWhere([&](Row, const Tables::Part& part) { return part.event_database_identifier == row; });
        std::sort(content.begin(), content.end(),
                  [](const PartRecord& left, const PartRecord& right) { return left.index < right.index; });
    }
    record.content.set(content.empty() ? std::nullopt : std::optional(content));
    return record;
}

std::vector<EventRecord> StoreModel::eventsWhere(const EventCondition& condition) {
    std::vector<EventRecord> records;
    for (const auto& [row, event] : tables.events) {
        if (condition(row, event)) {
            records.push_back(record(row, event));
        }
    }
    return records;
}

std::vector<PartRecord> StoreModel::partsWhere(const PartCondition& condition) const {
    std::vector<PartRecord> records;
    for (const auto& [row, part] : tables.parts) {
        if (condition(row, part)) {
            records.push_back(record(part));
        }
    }
    return records;
}

ModelAnswer<StoreModel::Events> StoreModel::selectEvents(const EventCondition& condition) {
    return attempt(Events(), [&]() -> Events {
        touch({"events", "streams"});
        return Event{{eventsWhere(condition)}, {}, {}};
    });
}

ModelAnswer<StoreModel::Event> StoreModel::selectEvent(const EventCondition& condition) {
    return attempt(Event(), [&] {
        touch({"events", "streams"});
        return Event{{eventsWhere(condition)}, 1, {}};
    });
}

ModelAnswer<StoreModel::Part> StoreModel::selectPart(const PartCondition& condition) {
    return attempt(Part(), [&] {
        touch({"event_content_parts", "events", "streams"});
        return Part{{partsWhere(condition)}, 1, {}};
    });
}

// --- Event queries -----------------------------------------------------------------------------------------

ModelAnswer<StoreModel::Events> StoreModel::allEvents() {
    return selectEvents([](Row, const Tables::Event&) { return true; });
}

ModelAnswer<std::uint64_t> StoreModel::countOfEvents() {
    return attempt(std::uint64_t{0}, [&] {
        touchWithoutColumns("events");
        return std::uint64_t{tables.events.size()};
    });
}

ModelAnswer<StoreModel::Events> StoreModel::publishableEvents() {
    const auto isTransferred = [&](Row row) {
        bool hasParts = false;
        for (const auto& [partRow, part] : tables.parts) {
            if (part.event_database_identifier == row) {
                hasParts = true;
                if (part.transfer_status != complete) {
                    return false;
                }
            }
        }
        return hasParts && withheldTable != "event_content_parts";
    };
    // Metadata are read before the parts are looked at: not reading them shows also for a message that waits.
    bool anyWasRead = false;
    auto answer = selectEvents([&](Row row, const Tables::Event& event) {
        const Tables::Stream* const stream = streamOf(event);
        if (event.seq || stream == nullptr || !stream->stream_id) {
            return false;
        }
        anyWasRead = true;
        return int32(event.type) != message || isTransferred(row);
    });
    if (anyWasRead && withheldTable == "keyed_values_remote") {
        answer.error = SQLITE_AUTH;
    }
    return answer;
}

ModelAnswer<StoreModel::Events> StoreModel::unpublishableEvents() {
    return selectEvents([&](Row, const Tables::Event& event) {
        const Tables::Stream* const stream = streamOf(event);
        return !event.seq && (stream == nullptr || !stream->stream_id);
    });
}

ModelAnswer<StoreModel::Events> StoreModel::unprocessedEvents() {
    return attempt(Events(), [&]() -> Events {
        touch({"events", "streams", "synced_changes"});
        return Event{{eventsWhere([&](Row row, const Tables::Event&) {
                         return std::any_of(
                             tables.changes.begin(), tables.changes.end(), [&](const auto& entry) {
                                 const Tables::Change& change = entry.second;
                                 return change.table_name == "events" && change.row_identifier == row &&
                                        change.change_type == 0;
                             });
                     })},
                     {},
                     {}};
    });
}

ModelAnswer<StoreModel::Events> StoreModel::eventsFromRevivedStream(Row stream) {
    return attempt(Events(), [&]() -> Events {
        touch({"events", "streams"});
        std::map<std::tuple<Number, Text, Number>, std::vector<EventRecord>> byPosition;
        for (const auto& [row, event] : tables.events) {
            if (event.seq && streamOf(event) != nullptr && event.stream_database_identifier == stream) {
                byPosition[{event.preceding_seq, event.creator_id, event.client_seq}].push_back(
                    record(row, event));
            }
        }
        Event selection;
        for (const auto& [position, records] : byPosition) {
            selection.tiers.push_back(records);
        }
        return selection;
    });
}

ModelAnswer<StoreModel::Events> StoreModel::postedAndProcessedEvents() {
    return selectEvents([](Row, const Tables::Event& event) { return event.seq.has_value(); });
}

ModelAnswer<StoreModel::Event> StoreModel::eventWithSeq(ZAVSequence seq, const ZAVUUID& uuid) {
    return selectEvent([&](Row, const Tables::Event& event) {
        const Tables::Stream* const stream = streamOf(event);
        return event.seq == seq && stream != nullptr && stream->stream_id == bytesOf(uuid);
    });
}

ModelAnswer<StoreModel::Event> StoreModel::eventForDatabaseIdentifier(Row row) {
    return selectEvent([&](Row candidate, const Tables::Event&) { return candidate == row; });
}

// --- Storing events ----------------------------------------------------------------------------------------

ModelAnswer<bool> StoreModel::persistEvents(const std::vector<EventRecord*>& events) {
    return attempt(false, [&] {
        for (EventRecord* const event : events) {
            persist(*event);
        }
        return true;
    });
}

void StoreModel::persist(EventRecord& event) {
    if (event.isBareWireRecord) {
        throw Violation{
            "Failed to persist an event. Expected 'ZAVEvent' but received an object of type 'ZAVTEvent'"};
    }
    const std::string description = makeEvent(event)->description();
    if (event.type.value == 0) {
        throw Violation{"Cannot persist event: invalid type of 0 encountered. (" + description + ")"};
    }
    if (!event.stream_id && event.streamDatabaseIdentifier == ZAVDatabaseIdentifierNotSet) {
        throw Violation{
            "Failed to persist an event. Event should have 'stream_id' OR 'streamDatabaseIdentifier' set!"};
    }
    if (!event.client_id.value) {
        throw Violation{"Failed to persist an event with an undefined client_id; event = " + description};
    }
    for (const PartRecord& part : event.content.value.value_or(std::vector<PartRecord>())) {
        if (part.isBareWireRecord) {
            throw Violation{
                "Failed to persist an event's content. Expected 'ZAVEventContent' but received an object of "
                "type 'ZAVTContent'"};
        }
    }
    resolveStream(event);
    insertOrUpdate(event);
    if (event.transient_metadata.value) {
        Metadata storable;
        for (const auto& [key, value] : *event.transient_metadata.value) {
            const auto* const bytes = std::get_if<Bytes>(&value);
            if (bytes == nullptr) {
                storable[key] = value;
            } else if (isUTF8(bytes->bytes)) {
                storable[key] = bytes->bytes;
            }
        }
        storeKeyedValues(true, metadataOf(event.databaseIdentifier), storable, std::nullopt);
    }
    persistParts(event);
}

void StoreModel::resolveStream(EventRecord& event) const {
    touch({"streams"});
    if (event.streamDatabaseIdentifier != ZAVDatabaseIdentifierNotSet) {
        const auto stream = tables.streams.find(event.streamDatabaseIdentifier);
        if (stream == tables.streams.end()) {
            throw Violation{
                "Failed to persist the event. stream_database_identifier='" +
                std::to_string(event.streamDatabaseIdentifier) +
                "' doesn't exist in the database. The stream might have been deleted before the event "
                "could be persisted."};
        }
        event.stream_id = stream->second.stream_id;
        return;
    }
    for (const auto& [row, stream] : tables.streams) {
        if (stream.stream_id == event.stream_id) {
            event.streamDatabaseIdentifier = usable(row);
            return;
        }
    }
    const auto uuid = uuidOf(event.stream_id);
    throw Violation{
        "Failed to persist an event. stream_id='" + (uuid ? uuid->UUIDString() : "(null)") +
        "' doesn't exist yet in the database. Should create a new stream with that identifier before "
        "persisting the event."};
}

void StoreModel::insertOrUpdate(EventRecord& event) {
    if (!insert(event)) {
        if (event.databaseIdentifier == ZAVDatabaseIdentifierNotSet) {
            const auto existing = eventAt(event.streamDatabaseIdentifier, event.seq.value);
            if (!existing) {
                throw Violation{"Failed to persist an event with an existing stream_id and seq."};
            }
            event.databaseIdentifier = usable(*existing);
        }
        update(event);
    }
    if (event.databaseIdentifier == ZAVDatabaseIdentifierNotSet) {
        event.databaseIdentifier = usable(lastInsertedRow_);
    }
}

namespace {

Tables::Event rowOf(const EventRecord& event, Number seq) {
    Tables::Event row;
    row.type = event.type.value;
    row.creator_id = event.creator_id.value;
    row.seq = seq;
    row.timestamp = event.server_timestamp.value;
    row.preceding_seq = event.preceding_seq.value;
    row.client_seq = event.client_seq.value;
    row.subtype = event.subtype.value;
    row.member_id = event.member_id.value;
    row.target_seq = event.target_seq.isSet ? Number(event.target_seq.value) : std::nullopt;
    row.stream_database_identifier = event.streamDatabaseIdentifier;
    row.client_id = *event.client_id.value;
    row.creator_name = event.creator_name.value;
    return row;
}

}  // namespace

/// False when the row collides with one that exists.
bool StoreModel::insert(const EventRecord& event) {
    touch({"events"});
    failIfRefused(Refusal::insertOfEvent);
    if (refusal == Refusal::insertOfEventSilently) {
        return false;
    }
    const bool hasSeq = event.seq.isSet && event.seq.value != ZAVSequenceNotSet;
    const Number seq = hasSeq ? Number(event.seq.value) : std::nullopt;
    const Row row = event.databaseIdentifier == ZAVDatabaseIdentifierNotSet ? nextCountedRow("events")
                                                                            : event.databaseIdentifier;
    // The engine counts the row also when it then leaves it out.
    countRow("events", row);
    if (tables.events.contains(row) || eventAt(event.streamDatabaseIdentifier, seq)) {
        return false;
    }
    tables.events[row] = rowOf(event, seq);
    lastInsertedRow_ = row;
    return true;
}

void StoreModel::update(const EventRecord& event) {
    touch({"events"});
    const auto existing = tables.events.find(event.databaseIdentifier);
    if (existing == tables.events.end()) {
        return;
    }
    failIfRefused(Refusal::updateOfEvent);
    const Number seq = event.seq.isSet ? Number(event.seq.value) : std::nullopt;
    if (const auto other = eventAt(event.streamDatabaseIdentifier, seq); other && *other != existing->first) {
        throw StatementFailure{SQLITE_CONSTRAINT_UNIQUE};
    }
    existing->second = rowOf(event, seq);
}

void StoreModel::persistParts(EventRecord& event) {
    if (!event.content.value) {
        return;
    }
    std::int64_t index = 0;
    for (PartRecord& part : *event.content.value) {
        part.eventDatabaseIdentifier = event.databaseIdentifier;
        part.eventClientID = uuidOf(event.client_id.value);
        part.streamUUID = uuidOf(event.stream_id);

        touch({"event_content_parts"});
        if (index == 1) {
            failIfRefused(Refusal::insertOfSecondPart);
        }
        const bool exists = std::any_of(tables.parts.begin(), tables.parts.end(), [&](const auto& entry) {
            return entry.second.event_database_identifier == event.databaseIdentifier &&
                   entry.second.event_content_part_id == index;
        });
        if (!exists) {
            Tables::Part row;
            row.event_content_part_id = index;
            row.event_database_identifier = event.databaseIdentifier;
            row.type = part.media_type.value;
            row.value = part.body.value;
            row.access_expiration = part.externalContentURLExpiration;
            row.url = part.external_url.value;
            row.size = part.size.value;
            row.transfer_status = static_cast<std::int64_t>(part.transferStatus);
            row.file_path = storedPath(part.fileURL);
            row.last_accessed = part.lastAccessed;
            row.purged = part.isPurged ? 1 : 0;
            lastInsertedRow_ = nextRow(tables.parts);
            tables.parts[lastInsertedRow_] = row;
        }
        ++index;
    }
}

// --- Other writes of events --------------------------------------------------------------------------------

ModelAnswer<bool> StoreModel::updateObject(const EventRecord& event) {
    if (!event.stream_id) {
        throw Violation{
            "Failed to persist sequence by event. Event's stream_id property shouldn't be `nil`, since it's not "
            "possible to publish events for streams that don't exist in the data source yet."};
    }
    auto answer = attempt(false, [&] {
        touch({"events"});
        const auto existing = tables.events.find(event.databaseIdentifier);
        if (existing != tables.events.end()) {
            failIfRefused(Refusal::updateOfEvent);
            const auto other = eventAt(existing->second.stream_database_identifier, event.seq.value);
            if (other && *other != existing->first) {
                throw StatementFailure{SQLITE_CONSTRAINT_UNIQUE};
            }
            existing->second.seq = event.seq.value;
            existing->second.creator_id = event.creator_id.value;
            existing->second.timestamp = event.server_timestamp.value;
        }
        return true;
    });
    answer.error.reset();  // this operation never says why
    return answer;
}

ModelAnswer<bool> StoreModel::deleteUnprocessedEvents(const std::vector<EventRecord*>& events) {
    return attempt(false, [&] {
        if (events.empty()) {
            return false;
        }
        touch({"synced_changes"});
        std::vector<Row> doomed;
        for (const auto& [row, change] : tables.changes) {
            if (change.table_name == "events" &&
                std::any_of(events.begin(), events.end(), [&, &recorded = change](const EventRecord* event) {
                    return event->databaseIdentifier == recorded.row_identifier;
                })) {
                failIfRefused(Refusal::deletionOfChange);
                doomed.push_back(row);
            }
        }
        for (const Row row : doomed) {
            tables.changes.erase(row);
        }
        return true;
    });
}

ModelAnswer<bool> StoreModel::deleteEvents(const std::vector<EventRecord*>& events) {
    return attempt(false, [&] {
        for (const EventRecord* const event : events) {
            touch({"events"});
            const Row row = event->databaseIdentifier;
            if (tables.events.contains(row)) {
                if (row % 2 == 0) {
                    failIfRefused(Refusal::deletionOfEventInEvenRow);
                }
                tables.events.erase(row);
            }
        }
        return !events.empty();
    });
}

ModelAnswer<bool> StoreModel::persistTombstone(ZAVSequence targetSeq, Row stream) {
    return attempt(false, [&] {
        touch({"events"});
        if (const auto row = eventAt(stream, targetSeq)) {
            failIfRefused(Refusal::updateOfEvent);
            tables.events[*row].type = tombstone;
        }
        return true;
    });
}

ModelAnswer<bool> StoreModel::persistConversationsParticipantsSeq(ZAVSequence seq, const std::string& member,
                                                                  const ZAVUUID& stream) {
    return attempt(false, [&] {
        touch({"conversations"});
        const auto conversation =
            std::find_if(tables.conversations.begin(), tables.conversations.end(),
                         [&](const auto& entry) { return entry.second.stream_id == bytesOf(stream); });
        if (conversation == tables.conversations.end()) {
            return false;
        }
        touch({"conversation_participants"});
        for (auto& [row, participant] : tables.participants) {
            if (participant.conversation_database_identifier == conversation->first &&
                participant.member_id == member) {
                failIfRefused(Refusal::updateOfParticipant);
                participant.seq = seq;
            }
        }
        return true;
    });
}

ModelAnswer<bool> StoreModel::persistMessageSeq(ZAVSequence seq, Row event) {
    return attempt(false, [&] {
        touch({"messages"});
        for (auto& [row, carried] : tables.messages) {
            if (carried.event_database_identifier == event) {
                failIfRefused(Refusal::updateOfMessage);
                carried.seq = seq;
            }
        }
        return true;
    });
}

// --- Content parts -----------------------------------------------------------------------------------------

ModelAnswer<StoreModel::Part> StoreModel::partInRow(Row row) {
    return selectPart([&](Row candidate, const Tables::Part&) { return candidate == row; });
}

ModelAnswer<StoreModel::Part> StoreModel::partOfEvent(Row event, std::int64_t index) {
    return selectPart([&](Row, const Tables::Part& part) {
        return part.event_database_identifier == event && part.event_content_part_id == index;
    });
}

ModelAnswer<StoreModel::Part> StoreModel::partOfMessage(Row messageRow, std::uint64_t index) {
    const auto carrying = tables.messages.find(messageRow);
    auto answer = selectPart([&](Row, const Tables::Part& part) {
        return carrying != tables.messages.end() &&
               carrying->second.event_database_identifier == part.event_database_identifier &&
               part.event_content_part_id == static_cast<std::int64_t>(index);
    });
    if (withheldTable == "messages") {
        return {{}, SQLITE_AUTH};
    }
    return answer;
}

ModelAnswer<StoreModel::Part> StoreModel::partOfClientID(const std::optional<Bytes>& clientID,
                                                         std::int64_t index) {
    return selectPart([&](Row, const Tables::Part& part) {
        const Tables::Event* const event = eventOf(part);
        return clientID && event != nullptr && event->client_id == *clientID &&
               part.event_content_part_id == index;
    });
}

ModelAnswer<StoreModel::Part> StoreModel::partWithURL(const std::string& url) {
    return selectPart([&](Row, const Tables::Part& part) { return part.url == url; });
}

ModelAnswer<StoreModel::Parts> StoreModel::partsHavingUnassignedURLs() {
    return attempt(Parts(), [&]() -> Parts {
        touch({"event_content_parts", "events", "streams"});
        return Part{{partsWhere([&](Row, const Tables::Part& part) {
                        const Tables::Stream* const stream = streamOf(part);
                        return stream != nullptr && stream->stream_id && part.file_path && !part.url &&
                               (part.transfer_status == awaitingUpload || part.transfer_status == uploading);
                    })},
                    {},
                    {}};
    });
}

ModelAnswer<StoreModel::Parts> StoreModel::partsHavingIncompleteUploads(std::uint64_t limit) {
    return attempt(Parts(), [&]() -> Parts {
        touch({"event_content_parts", "events", "streams"});
        return Part{{partsWhere([&](Row, const Tables::Part& part) {
                        return part.file_path && part.url && part.transfer_status == uploading;
                    })},
                    limitOf(limit),
                    {}};
    });
}

Selection<PartRecord> StoreModel::downloads(const PartCondition& condition, std::uint64_t limit) const {
    struct Ranked {
        Number distanceFromEndOfStream;
        Number clientSeq;
        Text creator;
        PartRecord record;
    };
    std::vector<Ranked> ranked;
    for (const auto& [row, part] : tables.parts) {
        if (isPresentFile(part) && condition(row, part)) {
            Ranked candidate;
            candidate.record = record(part);
            if (const Tables::Event* const event = eventOf(part)) {
                candidate.clientSeq = event->client_seq;
                candidate.creator = event->creator_id;
                const Tables::Stream* const stream = streamOf(*event);
                if (stream != nullptr && stream->seq && event->preceding_seq) {
                    candidate.distanceFromEndOfStream = *stream->seq - *event->preceding_seq;
                }
            }
            ranked.push_back(candidate);
        }
    }
    // What is absent is the smallest, as NULL is: first where the order ascends, last where it descends.
    const auto before = [](const Ranked& left, const Ranked& right) {
        return std::tie(left.distanceFromEndOfStream, right.clientSeq, right.creator) <
               std::tie(right.distanceFromEndOfStream, left.clientSeq, left.creator);
    };
    return {tiersOf(ranked, before), limitOf(limit), {}};
}

ModelAnswer<StoreModel::Parts> StoreModel::partsHavingExpiredDownloadURLs(
    const std::optional<std::set<std::string>>& types, std::uint64_t maxSize, std::uint64_t limit,
    double now) {
    return attempt(Parts(), [&]() -> Parts {
        // Types become part of the statement as they are.
        if (types && std::any_of(types->begin(), types->end(), [](const std::string& type) {
                return type.find('\'') != std::string::npos;
            })) {
            throw StatementFailure{SQLITE_ERROR};
        }
        touch({"event_content_parts", "events", "streams"});
        const auto isWanted = [&](const Tables::Part& part) {
            return !types || (part.type && types->contains(*part.type)) ||
                   (part.size && *part.size <= static_cast<std::int64_t>(maxSize % 4294967296));
        };
        return downloads(
            [&](Row, const Tables::Part& part) {
                const bool needsURL = !part.url || !part.access_expiration || *part.access_expiration <= now;
                return needsURL && (part.transfer_status == downloading ||
                                    (part.transfer_status == readyForDownload && isWanted(part)));
            },
            limit);
    });
}

ModelAnswer<StoreModel::Parts> StoreModel::partsHavingIncompleteDownloads(std::uint64_t limit, double now) {
    return attempt(Parts(), [&]() -> Parts {
        touch({"event_content_parts", "events", "streams"});
        return downloads(
            [&](Row, const Tables::Part& part) {
                return part.url && part.access_expiration && *part.access_expiration > now &&
                       part.transfer_status == downloading;
            },
            limit);
    });
}

ModelAnswer<bool> StoreModel::persistEventContentUpdate(const PartRecord& update) {
    if (update.eventDatabaseIdentifier == ZAVDatabaseIdentifierNotSet) {
        throw Violation{
            "Failed to persist event content update for event content that hasn't been persisted before; "
            "eventContent=" +
            makePart(update)->description()};
    }
    return attempt(false, [&] {
        touch({"event_content_parts"});
        for (auto& [row, part] : tables.parts) {
            if (part.event_database_identifier == update.eventDatabaseIdentifier &&
                part.event_content_part_id == update.index) {
                failIfRefused(Refusal::updateOfPart);
                part.access_expiration = update.externalContentURLExpiration;
                part.url = update.external_url.value;
                part.size = update.size.value;
                part.transfer_status = static_cast<std::int64_t>(update.transferStatus);
                part.file_path = storedPath(update.fileURL);
                part.last_accessed = update.lastAccessed;
                part.purged = update.isPurged ? 1 : 0;
            }
        }
        return true;
    });
}

ModelAnswer<std::set<std::uint64_t>> StoreModel::totalDiskUtilization() {
    constexpr std::uint64_t unknown = std::numeric_limits<std::uint64_t>::max();
    if (withheldTable == "event_content_parts") {
        return {{unknown}, SQLITE_AUTH, true};
    }
    // The engine adds up 64-bit numbers, one after the other, and gives up when one sum does not fit.
    __extension__ using Wide = __int128;
    Wide gains = 0;
    Wide losses = 0;
    for (const auto& [row, part] : tables.parts) {
        if (isPresentFile(part) && part.size &&
            (part.transfer_status == awaitingUpload || part.transfer_status == uploading ||
             part.transfer_status == complete)) {
            (*part.size > 0 ? gains : losses) += *part.size;
        }
    }
    const auto fits = [](Wide sum) {
        return sum >= std::numeric_limits<std::int64_t>::min() &&
               sum <= std::numeric_limits<std::int64_t>::max();
    };
    std::set<std::uint64_t> totals;
    if (fits(gains + losses)) {
        totals.insert(static_cast<std::uint64_t>(
            static_cast<std::int64_t>(int32(static_cast<std::int64_t>(gains + losses)))));
    }
    if (!fits(gains) || !fits(losses)) {
        totals.insert(unknown);
    }
    return {totals, std::nullopt};
}

ModelAnswer<StoreModel::Parts> StoreModel::leastRecentlyAccessedParts(std::uint64_t totalSize) {
    return attempt(Parts(), [&]() -> Parts {
        touch({"event_content_parts", "events", "streams"});
        std::map<double, std::vector<PartRecord>> byLastAccess;
        for (const auto& [row, part] : tables.parts) {
            if (isPresentFile(part) && part.last_accessed && part.transfer_status &&
                part.transfer_status != awaitingUpload && part.transfer_status != uploading) {
                byLastAccess[*part.last_accessed].push_back(record(part));
            }
        }
        Part selection;
        for (const auto& [moment, records] : byLastAccess) {
            selection.tiers.push_back(records);
        }
        selection.bytes = totalSize;
        return selection;
    });
}

void StoreModel::prepareForDownload(EventRecord& event, const ZAVUUID& app, const std::string& user) {
    if (!event.content.value) {
        return;
    }
    std::size_t index = 0;
    for (PartRecord& part : *event.content.value) {
        if (!part.isBareWireRecord && part.external_url.value && !part.external_url.value->empty()) {
            part.transferStatus = readyForDownload;
            part.fileURL.reset();
            if (const auto uuid = uuidOf(event.client_id.value)) {
                part.fileURL = {app.UUIDString() + "/" + user + "/" + uuid->UUIDString() + "/part-" +
                                    std::to_string(index),
                                true};
            }
        }
        ++index;
    }
}

// --- Neighbours --------------------------------------------------------------------------------------------

ModelAnswer<Row> StoreModel::streamWithUUID(const ZAVUUID& uuid) {
    return attempt(ZAVDatabaseIdentifierNotSet, [&] {
        touch({"streams"});
        for (const auto& [row, stream] : tables.streams) {
            if (stream.stream_id == bytesOf(uuid)) {
                return usable(row);
            }
        }
        return ZAVDatabaseIdentifierNotSet;
    });
}

ModelAnswer<Row> StoreModel::findOrCreateStream(const ZAVUUID& uuid) {
    const auto existing = streamWithUUID(uuid);
    if (existing.error || existing.value != ZAVDatabaseIdentifierNotSet) {
        return existing;
    }
    return attempt(ZAVDatabaseIdentifierNotSet, [&] { return usable(insertStream(bytesOf(uuid))); });
}

ModelAnswer<Row> StoreModel::createStreamWithoutUUID() {
    return attempt(ZAVDatabaseIdentifierNotSet, [&] { return usable(insertStream(std::nullopt)); });
}

Row StoreModel::insertStream(const std::optional<Bytes>& uuid) {
    touch({"streams"});
    failIfRefused(Refusal::insertOfStream);
    lastInsertedRow_ = nextCountedRow("streams");
    countRow("streams", lastInsertedRow_);
    tables.streams[lastInsertedRow_] = {uuid, std::nullopt};
    return lastInsertedRow_;
}

ModelAnswer<bool> StoreModel::setStreamUUID(const ZAVUUID& uuid, Row row) {
    return attempt(false, [&] {
        touch({"streams"});
        const auto stream = tables.streams.find(row);
        if (stream != tables.streams.end()) {
            failIfRefused(Refusal::updateOfStream);
            for (const auto& [otherRow, other] : tables.streams) {
                if (otherRow != row && other.stream_id == bytesOf(uuid)) {
                    throw StatementFailure{SQLITE_CONSTRAINT_UNIQUE};
                }
            }
            stream->second.stream_id = bytesOf(uuid);
        }
        return true;
    });
}

ModelAnswer<bool> StoreModel::setStreamSeq(ZAVSequence seq, Row row) {
    return attempt(false, [&] {
        touch({"streams"});
        const auto stream = tables.streams.find(row);
        if (stream != tables.streams.end()) {
            failIfRefused(Refusal::updateOfStream);
            stream->second.seq = seq;
        }
        return true;
    });
}

ModelAnswer<std::optional<std::uint64_t>> StoreModel::countOfStreams() {
    return attempt(std::optional<std::uint64_t>(), [&] {
        touchWithoutColumns("streams");
        return std::optional(std::uint64_t{tables.streams.size()});
    });
}

ModelAnswer<bool> StoreModel::recordChange(const std::string& table, Row row, std::int64_t type) {
    return attempt(false, [&] {
        touch({"synced_changes"});
        failIfRefused(Refusal::insertOfChange);
        lastInsertedRow_ = nextRow(tables.changes);
        tables.changes[lastInsertedRow_] = {table, row, type};
        return true;
    });
}

ModelAnswer<bool> StoreModel::setKeyedValues(bool remote, const Tables::Owner& owner, const Metadata& values,
                                             std::optional<double> timestamp) {
    return attempt(false, [&] {
        storeKeyedValues(remote, owner, values, timestamp);
        return true;
    });
}

/// New values go first, in the order of their keys; what is no longer wanted goes last.
void StoreModel::storeKeyedValues(bool remote, const Tables::Owner& owner, const Metadata& values,
                                  std::optional<double> timestamp) {
    touch({remote ? "keyed_values_remote" : "keyed_values_local"});
    std::map<std::string, Tables::KeyedValue>& stored = keyedValuesOf(tables, remote)[owner];
    for (const auto& [key, value] : values) {
        if (remote && key == "b") {
            failIfRefused(Refusal::insertOfMetadataB);
        }
        stored[key] = {value, timestamp};
    }
    std::vector<std::string> obsolete;
    for (const auto& [key, value] : stored) {
        if (!values.contains(key)) {
            obsolete.push_back(key);
        }
    }
    for (const std::string& key : obsolete) {
        if (remote) {
            failIfRefused(Refusal::deletionOfMetadata);
        }
        stored.erase(key);
    }
}

ModelAnswer<std::optional<Metadata>> StoreModel::keyedValues(bool remote, const Tables::Owner& owner) {
    return attempt(std::optional<Metadata>(), [&] {
        touch({remote ? "keyed_values_remote" : "keyed_values_local"});
        Metadata values;
        for (const auto& [key, keyed] : keyedValuesOf(tables, remote)[owner]) {
            values.emplace(key, keyed.value);
        }
        return std::optional(values);
    });
}

// --- Rows that other components write ----------------------------------------------------------------------

void StoreModel::insertMessage(std::optional<Row> event) {
    lastInsertedRow_ = nextCountedRow("messages");
    countRow("messages", lastInsertedRow_);
    tables.messages[lastInsertedRow_] = {event, std::nullopt};
}

void StoreModel::insertConversation(const std::optional<Bytes>& streamID) {
    lastInsertedRow_ = nextCountedRow("conversations");
    countRow("conversations", lastInsertedRow_);
    tables.conversations[lastInsertedRow_] = {streamID};
}

bool StoreModel::insertParticipant(Row conversation, const std::string& member) {
    for (const auto& [row, participant] : tables.participants) {
        if (participant.conversation_database_identifier == conversation && participant.member_id == member) {
            return false;
        }
    }
    lastInsertedRow_ = nextRow(tables.participants);
    tables.participants[lastInsertedRow_] = {conversation, member, std::nullopt};
    return true;
}

}  // namespace zav::test
