#include "Model/Values.h"

#include <limits>

#include "Model/Comparison.h"
#include "Support/TestStore.h"

namespace zav::test::values {
namespace {

using namespace std::string_literals;

constexpr auto smallest64 = std::numeric_limits<std::int64_t>::min();
constexpr auto largest64 = std::numeric_limits<std::int64_t>::max();
constexpr auto smallest32 = std::numeric_limits<std::int32_t>::min();
constexpr auto largest32 = std::numeric_limits<std::int32_t>::max();

// Each generator below makes the same draws whatever they yield, and what decides about others comes last: a
// draw that shrinks then leaves its siblings as they are.

/// A field with a value of its own; now and then its flag is down all the same.
template <class T, class Value>
rc::Gen<Field<T>> field(const rc::Gen<Value>& values) {
    return rc::gen::exec([values] {
        Field<T> field;
        field.value = *values;
        field.isSet = !onceIn(6);
        return field;
    });
}

/// What is drawn once in so many times, or but once in so many times; else what a new record has.
template <class T>
rc::Gen<T> onceIn(std::size_t times, const rc::Gen<T>& values) {
    return rc::gen::exec([values, times] {
        T value = *values;
        return values::onceIn(times) ? value : T();
    });
}
template <class T>
rc::Gen<T> usually(std::size_t times, const rc::Gen<T>& values) {
    return rc::gen::exec([values, times] {
        T value = *values;
        return values::usually(times) ? value : T();
    });
}

template <class T>
rc::Gen<std::optional<T>> optional(const rc::Gen<T>& values) {
    return rc::gen::map(values, [](const T& value) { return std::optional<T>(value); });
}

template <class T, class Value>
void draw(Field<T>& field, const rc::Gen<Value>& values) {
    field = *values::field<T>(values);
}
template <class T, class Value>
void drawOrLeave(Field<T>& field, const rc::Gen<Value>& values) {
    field = *onceIn(2, values::field<T>(values));
}

/// Elements, as many as is drawn from `counts`.
template <class T>
rc::Gen<std::vector<T>> some(const rc::Gen<T>& elements, const rc::Gen<std::size_t>& counts,
                             std::size_t atMost) {
    return rc::gen::exec([elements, counts, atMost] {
        std::vector<T> drawn;
        for (std::size_t index = 0; index < atMost; ++index) {
            drawn.push_back(*elements);
        }
        drawn.resize(*counts);
        return drawn;
    });
}

rc::Gen<double> moment() {
    return from<double>({10.5, 20, 20.25, 0, 0.5, -1.5, 1, 4102444800.75, 1e19});
}

rc::Gen<double> expiration() {
    return mostly<double>({100.75, 4102444800.75}, {4102444801, 0, 0.5, 1, -1.5, 1e19, -1e19}, 3);
}

rc::Gen<URLRecord> file() {
    return mostly<URLRecord>({{"app/ann/part-0", true}, {"part-1", true}},
                             {{"", true},
                              {"a%20b/%C3%A4", true},
                              {"file:///var/x%20y", false},
                              {"https://files.example/a/b?c#d", false},
                              {"loose/part", false},
                              {"urn:part:7", false}},
                             3);
}

rc::Gen<std::int64_t> size() {
    return mostly<std::int64_t>({0, 10, 20, 100}, {3000000000, 2147483648, -1, -30, largest64, smallest64},
                                4);
}

rc::Gen<Bytes> body() {
    return from<Bytes>({{"hello"}, {""}, {"\0\x01\xFF"s}, {std::string(40, 'x')}});
}

rc::Gen<std::int32_t> number32() {
    return mostly<std::int32_t>({0, 1, 2, 3, 5}, {-1, largest32, smallest32}, 4);
}

rc::Gen<std::int64_t> number64() {
    return mostly<std::int64_t>({0, 1, 1700000000}, {-1, largest64, smallest64}, 3);
}

}  // namespace

bool onceIn(std::size_t times) {
    return *number(times) == times - 1;
}

bool usually(std::size_t times) {
    return *number(times) != 0;
}

rc::Gen<std::size_t> number(std::size_t below) {
    return rc::gen::inRange<std::size_t>(0, below);
}

rc::Gen<ZAVDatabaseIdentifier> eventRow() {
    return mostly<ZAVDatabaseIdentifier>({1, 2, 3, 4, 5, 6, 1, 2, 3},
                                         {8, 0, -2, 12, 1000, ZAVDatabaseIdentifierNotSet, smallest64}, 8);
}

rc::Gen<ZAVDatabaseIdentifier> streamRow() {
    return mostly<ZAVDatabaseIdentifier>({1, 2, 3}, {4, 5, 0, -1, ZAVDatabaseIdentifierNotSet, smallest64},
                                         20);
}

rc::Gen<ZAVDatabaseIdentifier> smallRow() {
    return mostly<ZAVDatabaseIdentifier>({1, 2, 3, 4, 5, 6, 1, 2, 3}, {8, 12, 0, largest64}, 6);
}

rc::Gen<ZAVSequence> sequence() {
    return mostly<ZAVSequence>({1, 2, 1, 2, 3}, {4, 0, -1, ZAVSequenceNotSet, smallest32}, 4);
}

rc::Gen<ZAVUUID> streamUUID() {
    return mostly<ZAVUUID>({uuidNumber(1), uuidNumber(2)}, {uuidNumber(3), uuidNumber(9)}, 15);
}

rc::Gen<std::optional<Bytes>> clientID() {
    return mostly<std::optional<Bytes>>(
        {uuidBytes(21), uuidBytes(22), uuidBytes(23), uuidBytes(21)},
        {Bytes{""}, Bytes{"short"}, Bytes{std::string(17, 'x')}, std::nullopt}, 15);
}

rc::Gen<std::optional<std::string>> text() {
    return from<std::optional<std::string>>(
        {"ann", "bob", "", "o'hara", "\"Zo\xC3\xAB\" \xE2\x98\x83", "before\0after"s, "7", std::nullopt});
}

rc::Gen<std::string> member() {
    return from<std::string>({"ann", "bob", "", "o'hara", "ANN", "ann\0"s});
}

rc::Gen<std::string> mediaType() {
    return mostly<std::string>({"text/plain", "image/png"}, {"", "it's/odd", "te\xC3\xBFt", "%@", "\"x\""},
                               4);
}

rc::Gen<std::string> url() {
    return mostly<std::string>({"https://c.example/1", "https://c.example/2"},
                               {"HTTPS://c.example/1", "", "", "rel/path", "https://c.example/o'hara",
                                "no url", "https://c.example/\xC3\xA4", "https://c.example/1\0"s},
                               3);
}

rc::Gen<std::uint64_t> limit() {
    return from<std::uint64_t>(
        {1, 2, 3, 0, 100, std::uint64_t{1} << 63, std::numeric_limits<std::uint64_t>::max()});
}

rc::Gen<std::uint64_t> byteCount() {
    return from<std::uint64_t>(
        {10, 0, 30, 100, 4294967296, 4294967306, 4294967295, std::numeric_limits<std::uint64_t>::max()});
}

rc::Gen<std::int64_t> partIndex() {
    return mostly<std::int64_t>({0, 0, 1}, {2, 3, -1, largest64, 4294967296}, 8);
}

rc::Gen<std::uint64_t> transferStatus() {
    return mostly<std::uint64_t>({4, 0, 1, 2, 3}, {7, 4294967295, std::numeric_limits<std::uint64_t>::max()},
                                 6);
}

rc::Gen<Metadata> metadata() {
    const auto key = from<std::string>({"a", "b", "c", "", "it's", "\xC3\xA4", "b\0b"s});
    const auto value = from<MetadataValue>({"text", "", "nul\0nul"s, Bytes{"bytes"}, Bytes{""},
                                            Bytes{"\xC3\xA4"}, Bytes{"\xFF\xFE"}, Bytes{"\xED\xA0\x80"},
                                            Bytes{"\xC0\x80"}, Bytes{"\xF4\x90\x80\x80"}, Bytes{"\xE2\x98"}});
    return rc::gen::map(some(rc::gen::pair(key, value), number(4), 3),
                        [](const auto& entries) { return Metadata(entries.begin(), entries.end()); });
}

rc::Gen<std::optional<std::set<std::string>>> mediaTypes() {
    return usually(3, optional(rc::gen::map(some(mediaType(), number(3), 2), [](const auto& types) {
                       return std::set<std::string>(types.begin(), types.end());
                   })));
}

rc::Gen<std::vector<std::size_t>> eventSlots() {
    return some(number(Comparison::eventSlots), mostly<std::size_t>({1, 2}, {0, 3, 4}, 2), 4);
}

rc::Gen<std::optional<std::size_t>> slotToKeepIn(std::size_t slots) {
    return onceIn(3, optional(number(slots)));
}

rc::Gen<Comparison::PartPlace> partPlace() {
    return rc::gen::exec([]() -> Comparison::PartPlace {
        const std::size_t slot = *number(Comparison::eventSlots);
        const std::size_t number = *values::number(2);
        return onceIn(3) ? Comparison::PartPlace{std::nullopt, number} : Comparison::PartPlace{slot, number};
    });
}

namespace {

/// What only storing a part gives it.
rc::Gen<PartRecord> storedPart() {
    return rc::gen::exec([] {
        PartRecord part;
        draw(part.external_access_expiration, number64());
        part.index = *partIndex();
        part.eventDatabaseIdentifier = *eventRow();
        part.eventSeq = *sequence();
        return part;
    });
}

/// Most new events have no row; some bring one, and very few one that leaves little room for others.
rc::Gen<ZAVDatabaseIdentifier> row() {
    const std::vector<ZAVDatabaseIdentifier> none(12, ZAVDatabaseIdentifierNotSet);
    std::vector<ZAVDatabaseIdentifier> common = none;
    common.insert(common.end(), {1, 2, 3, 4, 5});
    return mostly<ZAVDatabaseIdentifier>(common, {0, -2, 12, 1000, smallest64, largest64 - 1}, 20);
}

/// How an event names its stream.
struct StreamName {
    std::optional<Bytes> stream_id;
    ZAVDatabaseIdentifier row = ZAVDatabaseIdentifierNotSet;
};

rc::Gen<StreamName> streamName() {
    return rc::gen::exec([]() -> StreamName {
        const auto uuid = bytesOf(*streamUUID());
        const auto row = *streamRow();
        const auto noUUID = *from<std::optional<Bytes>>(
            {std::nullopt, Bytes{""}, Bytes{"short"}, Bytes{std::string(17, 'x')}});
        switch (*mostly<int>({0, 1}, {2, 3, 4}, 15)) {
            case 0:
                return {uuid, ZAVDatabaseIdentifierNotSet};
            case 1:
                return {std::nullopt, row};
            case 2:
                return {uuid, row};
            case 3:
                return {noUUID, row};
            default:
                return {noUUID, ZAVDatabaseIdentifierNotSet};
        }
    });
}

}  // namespace

namespace {

/// Parts as they stand at the stages of their way, which the queues tell apart.
rc::Gen<PartRecord> partOnItsWay() {
    const auto stage = [](std::uint32_t status, std::optional<std::string> url, std::optional<URLRecord> file,
                          std::optional<double> expiration, std::optional<double> lastAccessed) {
        PartRecord part;
        part.size.set(10);
        if (url) {
            part.external_url.set(url);
        }
        part.transferStatus = status;
        part.fileURL = file;
        part.externalContentURLExpiration = expiration;
        part.lastAccessed = lastAccessed;
        return part;
    };
    const URLRecord file{"app/ann/part-0", true};
    const std::string url = "https://c.example/1";
    constexpr double past = 100.75;
    constexpr double future = 4102444800.75;
    return from<PartRecord>({
        stage(ZAVContentTransferComplete, {}, {}, {}, {}),
        stage(ZAVContentTransferAwaitingUpload, {}, file, {}, {}),
        stage(ZAVContentTransferUploading, url, file, future, 10.5),
        stage(ZAVContentTransferReadyForDownload, url, file, past, {}),
        stage(ZAVContentTransferReadyForDownload, url, file, {}, {}),
        stage(ZAVContentTransferDownloading, url, file, future, {}),
        stage(ZAVContentTransferDownloading, url, file, future, {}),
        stage(ZAVContentTransferDownloading, url, file, past, {}),
        stage(ZAVContentTransferComplete, url, file, future, 20),
        stage(ZAVContentTransferComplete, url, file, past, 10.5),
    });
}

/// Takes the place of what a part has at its stage, once in so many times.
template <class T>
void deviate(T& value, const rc::Gen<T>& values) {
    const T drawn = *values;
    if (values::onceIn(4)) {
        value = drawn;
    }
}

}  // namespace

rc::Gen<PartRecord> part() {
    return rc::gen::exec([] {
        const PartRecord stored = *onceIn(8, storedPart());
        PartRecord part = *partOnItsWay();
        part.external_access_expiration = stored.external_access_expiration;
        part.index = stored.index;
        part.eventDatabaseIdentifier = stored.eventDatabaseIdentifier;
        part.eventSeq = stored.eventSeq;
        drawOrLeave(part.media_type, mediaType());
        drawOrLeave(part.body, body());
        drawOrLeave(part.size, size());
        deviate(part.external_url, usually(3, field<std::optional<std::string>>(url())));
        deviate(part.transferStatus, transferStatus());
        deviate(part.fileURL, onceIn(2, optional(file())));
        deviate(part.lastAccessed, usually(3, optional(moment())));
        deviate(part.externalContentURLExpiration, onceIn(2, optional(expiration())));
        part.isPurged = onceIn(6);
        return part;
    });
}

namespace {

/// Now and then a part that cannot be stored.
rc::Gen<PartRecord> anyPart() {
    return rc::gen::exec([] {
        const PartRecord part = *values::part();
        PartRecord bare = part;
        bare.isBareWireRecord = true;
        return values::onceIn(150) ? recordOf(*makePart(bare)) : part;
    });
}

}  // namespace

rc::Gen<EventRecord> event() {
    return rc::gen::exec([] {
        EventRecord event;
        draw(event.type, mostly<std::int32_t>({EventType_MESSAGE, EventType_MESSAGE, EventType_MEMBER_ADDED},
                                              {EventType_TOMBSTONE, 0, -7, largest32}, 24));
        event.client_id = {*clientID(), true};
        const StreamName stream = *streamName();
        event.stream_id = stream.stream_id;
        event.streamDatabaseIdentifier = stream.row;
        event.databaseIdentifier = *row();
        drawOrLeave(event.seq, sequence());
        drawOrLeave(event.creator_id, text());
        drawOrLeave(event.server_timestamp, number64());
        drawOrLeave(event.preceding_seq, number32());
        drawOrLeave(event.client_seq, number32());
        drawOrLeave(event.subtype, from<std::uint8_t>({1, 128, 255}));
        drawOrLeave(event.member_id, text());
        drawOrLeave(event.target_seq, sequence());
        drawOrLeave(event.creator_name, text());
        drawOrLeave(event.transient_metadata, metadata());
        event.content = *usually(4, field<std::optional<std::vector<PartRecord>>>(
                                        some(anyPart(), mostly<std::size_t>({1, 2}, {0, 3}, 2), 3)));
        event.ephemeral = *onceIn(8, field<bool>(from<bool>({true})));
        event.client_timestamp = *onceIn(8, field<std::int64_t>(number64()));
        EventRecord bare = event;
        bare.isBareWireRecord = true;
        return values::onceIn(150) ? recordOf(*makeEvent(bare)) : event;
    });
}

namespace {

template <class Record, class... Values>
FieldGroup<Record> groupOf(const char* name, Values Record::*... fields) {
    return {name, [=](const Record& from, Record& to) { ((to.*fields = from.*fields), ...); }};
}

}  // namespace

rc::Gen<FieldGroup<EventRecord>> eventFields() {
    using Event = EventRecord;
    return from<FieldGroup<Event>>({
        groupOf("seq", &Event::seq),
        groupOf("content", &Event::content),
        groupOf("metadata", &Event::transient_metadata),
        groupOf("row", &Event::databaseIdentifier),
        groupOf("stream", &Event::stream_id, &Event::streamDatabaseIdentifier),
        groupOf("texts", &Event::creator_id, &Event::member_id, &Event::creator_name),
        groupOf("numbers", &Event::type, &Event::server_timestamp, &Event::preceding_seq, &Event::client_seq,
                &Event::subtype, &Event::target_seq),
        groupOf("client_id", &Event::client_id),
    });
}

rc::Gen<FieldGroup<PartRecord>> partFields() {
    using Part = PartRecord;
    return from<FieldGroup<Part>>({
        groupOf("status", &Part::transferStatus),
        groupOf("URL", &Part::external_url, &Part::externalContentURLExpiration),
        groupOf("file", &Part::fileURL, &Part::isPurged, &Part::lastAccessed),
        groupOf("size", &Part::size),
        groupOf("inline data", &Part::media_type, &Part::body),
        groupOf("place", &Part::index, &Part::eventDatabaseIdentifier),
    });
}

}  // namespace zav::test::values
