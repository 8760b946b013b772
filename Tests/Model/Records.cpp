#include "Model/Records.h"

#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>

#include <concepts>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "Support/TestStore.h"

namespace zav::test {
namespace {

/// What a record has for a value of a wire record, and the other way round.

template <class T>
const T& plain(const T& value) {
    return value;
}
std::optional<Bytes> plain(const std::optional<ZAVData>& data) {
    return data ? std::optional(bytesOf(*data)) : std::nullopt;
}
std::optional<Metadata> plain(const std::optional<ZAVDictionary>& dictionary) {
    return dictionary ? std::optional(recordOf(*dictionary)) : std::nullopt;
}

template <class T>
const T& wire(const T& value) {
    return value;
}
std::optional<ZAVData> wire(const std::optional<Bytes>& bytes) {
    return bytes ? std::optional(dataOf(*bytes)) : std::nullopt;
}
std::optional<ZAVDictionary> wire(const std::optional<Metadata>& metadata) {
    return metadata ? std::optional(makeDictionary(*metadata)) : std::nullopt;
}

std::optional<double> secondsOf(const std::optional<ZAVDate>& date) {
    return date ? std::optional(ZAVSecondsSince1970(*date)) : std::nullopt;
}

std::optional<ZAVDate> dateOf(const std::optional<double>& seconds) {
    return seconds ? std::optional(ZAVDateFromSecondsSince1970(*seconds)) : std::nullopt;
}

std::optional<URLRecord> urlRecordOf(const std::optional<ZAVURL>& url) {
    if (!url) {
        return std::nullopt;
    }
    const auto base = url->baseURL();
    if (base && *base != ZAVMessageRepositoryCacheBaseDirectoryURL()) {
        throw std::runtime_error("the URL " + url->text() + " has the base " + base->text());
    }
    return URLRecord{url->text(), base.has_value()};
}

std::optional<ZAVURL> urlOf(const std::optional<URLRecord>& record) {
    if (!record) {
        return std::nullopt;
    }
    const auto url = record->inCache
                         ? ZAVURL::URLWithString(record->text, ZAVMessageRepositoryCacheBaseDirectoryURL())
                         : ZAVURL::URLWithString(record->text);
    if (!url) {
        throw std::runtime_error("no URL: " + record->text);
    }
    return url;
}

void print(std::ostream& stream, const std::string& text) {
    stream << quoted(text);
}
void print(std::ostream& stream, const ZAVUUID& uuid) {
    stream << uuid.UUIDString();
}
void print(std::ostream& stream, std::integral auto number) {
    if (std::cmp_equal(number, ZAVDatabaseIdentifierNotSet)) {
        stream << "the largest";
    } else {
        stream << static_cast<std::int64_t>(number);
    }
}
void print(std::ostream& stream, bool flag) {
    stream << (flag ? "true" : "false");
}
void print(std::ostream& stream, double number) {
    stream << std::setprecision(17) << number;
}
void print(std::ostream& stream, const std::vector<PartRecord>& parts) {
    stream << '[';
    for (const PartRecord& part : parts) {
        stream << (&part == &parts.front() ? "" : ", ") << part;
    }
    stream << ']';
}
template <class T>
requires std::is_class_v<T>
void print(std::ostream& stream, const T& value) {
    stream << value;
}
template <class T>
void print(std::ostream& stream, const std::optional<T>& value) {
    if (value) {
        print(stream, *value);
    } else {
        stream << "none";
    }
}

/// Prints the fields of a record that differ from those of a new one.
class FieldPrinter {
public:
    explicit FieldPrinter(std::ostream& stream) : stream_(stream) { stream_ << '{'; }
    ~FieldPrinter() { stream_ << '}'; }
    FieldPrinter(const FieldPrinter&) = delete;
    FieldPrinter& operator=(const FieldPrinter&) = delete;

    template <class T>
    FieldPrinter& operator()(const char* name, const T& value, const T& ofANewRecord) {
        if (value != ofANewRecord) {
            begin(name);
            print(stream_, value);
        }
        return *this;
    }

    template <class T>
    FieldPrinter& operator()(const char* name, const Field<T>& field) {
        if (field != Field<T>()) {
            begin(name);
            print(stream_, field.value);
            stream_ << (field.isSet ? "" : " (unset)");
        }
        return *this;
    }

    void bareWireRecord(bool isOne) {
        if (isOne) {
            begin("bare wire record");
            stream_ << "yes";
        }
    }

private:
    void begin(const char* name) {
        stream_ << separator_ << name << '=';
        separator_ = " ";
    }

    std::ostream& stream_;
    const char* separator_ = "";
};

/// The fields that records and wire records have alike.
#define ZAV_TEST_PART_FIELDS(use) \
    use(media_type) use(size) use(body) use(external_url) use(external_access_expiration)
#define ZAV_TEST_EVENT_FIELDS(use)                                                                   \
    use(ephemeral) use(creator_id) use(seq) use(server_timestamp) use(preceding_seq) use(client_seq) \
        use(subtype) use(member_id) use(target_seq) use(transient_metadata) use(client_id)           \
            use(client_timestamp) use(creator_name)

#define ZAV_TEST_READ(field) record.field = {plain(object.field()), object.field##IsSet()};

#define ZAV_TEST_WRITE(field)                     \
    object.set_##field(wire(record.field.value)); \
    if (!record.field.isSet) {                    \
        object.unset_##field();                   \
    }

}  // namespace

PartRecord recordOf(const ZAVTContent& object) {
    PartRecord record;
    ZAV_TEST_PART_FIELDS(ZAV_TEST_READ)
    const auto* const content = dynamic_cast<const ZAVEventContent*>(&object);
    record.isBareWireRecord = content == nullptr;
    if (content != nullptr) {
        record.eventDatabaseIdentifier = content->eventDatabaseIdentifier();
        record.eventClientID = content->eventClientID();
        record.eventSeq = content->eventSeq();
        record.index = content->index();
        record.streamUUID = content->streamUUID();
        record.transferStatus = content->transferStatus();
        record.fileURL = urlRecordOf(content->fileURL());
        record.lastAccessed = secondsOf(content->lastAccessed());
        record.externalContentURLExpiration = secondsOf(content->externalContentURLExpiration());
        record.isPurged = content->isPurged();
    }
    return record;
}

EventRecord recordOf(const ZAVTEvent& object) {
    EventRecord record;
    record.type = {object.type(), object.typeIsSet()};
    ZAV_TEST_EVENT_FIELDS(ZAV_TEST_READ)
    record.content.isSet = object.contentIsSet();
    if (object.content()) {
        record.content.value.emplace();
        for (const auto& part : *object.content()) {
            record.content.value->push_back(recordOf(*part));
        }
    }
    const auto* const event = dynamic_cast<const ZAVEvent*>(&object);
    record.isBareWireRecord = event == nullptr;
    if (event != nullptr) {
        record.databaseIdentifier = event->databaseIdentifier();
        record.streamDatabaseIdentifier = event->streamDatabaseIdentifier();
        record.stream_id = plain(event->stream_id());
    }
    return record;
}

Metadata recordOf(const ZAVDictionary& dictionary) {
    Metadata metadata;
    for (const auto& [key, value] : dictionary) {
        if (const auto* text = std::get_if<std::string>(&value)) {
            metadata.emplace(key, *text);
        } else {
            metadata.emplace(key, bytesOf(std::get<ZAVData>(value)));
        }
    }
    return metadata;
}

void assign(const PartRecord& record, ZAVTContent& object) {
    ZAV_TEST_PART_FIELDS(ZAV_TEST_WRITE)
    if (!record.isBareWireRecord) {
        auto& part = dynamic_cast<ZAVEventContent&>(object);
        part.setEventDatabaseIdentifier(record.eventDatabaseIdentifier);
        part.setEventClientID(record.eventClientID);
        part.setEventSeq(record.eventSeq);
        part.setIndex(record.index);
        part.setStreamUUID(record.streamUUID);
        part.setTransferStatus(static_cast<ZAVContentTransferStatus>(record.transferStatus));
        part.setFileURL(urlOf(record.fileURL));
        part.setLastAccessed(dateOf(record.lastAccessed));
        part.setExternalContentURLExpiration(dateOf(record.externalContentURLExpiration));
        part.setIsPurged(record.isPurged);
    }
}

void assign(const EventRecord& record, ZAVTEvent& object) {
    object.set_type(static_cast<ZAVTEventType>(record.type.value));
    if (!record.type.isSet) {
        object.unset_type();
    }
    ZAV_TEST_EVENT_FIELDS(ZAV_TEST_WRITE)

    std::optional<std::vector<std::shared_ptr<ZAVTContent>>> content;
    if (record.content.value) {
        const auto& parts = *record.content.value;
        const bool keepsParts = object.content() && object.content()->size() == parts.size();
        content.emplace();
        for (std::size_t index = 0; index < parts.size(); ++index) {
            const auto kept = keepsParts ? (*object.content())[index] : nullptr;
            const bool isBare = dynamic_cast<const ZAVEventContent*>(kept.get()) == nullptr;
            if (kept != nullptr && isBare == parts[index].isBareWireRecord) {
                assign(parts[index], *kept);
                content->push_back(kept);
            } else {
                content->push_back(makePart(parts[index]));
            }
        }
    }
    object.set_content(std::move(content));
    if (!record.content.isSet) {
        object.unset_content();
    }
    if (!record.isBareWireRecord) {
        auto& event = dynamic_cast<ZAVEvent&>(object);
        event.setDatabaseIdentifier(record.databaseIdentifier);
        event.setStreamDatabaseIdentifier(record.streamDatabaseIdentifier);
        event.set_stream_id(wire(record.stream_id));
    }
}

std::shared_ptr<ZAVTContent> makePart(const PartRecord& record) {
    auto part =
        record.isBareWireRecord ? std::make_shared<ZAVTContent>() : std::make_shared<ZAVEventContent>();
    assign(record, *part);
    return part;
}

std::shared_ptr<ZAVTEvent> makeEvent(const EventRecord& record) {
    auto event = record.isBareWireRecord ? std::make_shared<ZAVTEvent>() : std::make_shared<ZAVEvent>();
    assign(record, *event);
    return event;
}

ZAVDictionary makeDictionary(const Metadata& metadata) {
    ZAVDictionary dictionary;
    for (const auto& [key, value] : metadata) {
        if (const auto* text = std::get_if<std::string>(&value)) {
            dictionary.set(key, *text);
        } else {
            dictionary.set(key, dataOf(std::get<Bytes>(value)));
        }
    }
    return dictionary;
}

ZAVData dataOf(const Bytes& bytes) {
    return ZAVData::fromText(bytes.bytes);
}

Bytes bytesOf(const ZAVData& data) {
    return {std::string(data.asText())};
}

Bytes bytesOf(const ZAVUUID& uuid) {
    return {std::string(uuid.bytes().begin(), uuid.bytes().end())};
}

std::optional<ZAVUUID> uuidOf(const std::optional<Bytes>& bytes) {
    if (!bytes || bytes->bytes.size() != 16) {
        return std::nullopt;
    }
    ZAVUUID::Bytes raw;
    for (std::size_t index = 0; index < raw.size(); ++index) {
        raw[index] = static_cast<std::uint8_t>(bytes->bytes[index]);
    }
    return ZAVUUID(raw);
}

Bytes uuidBytes(int number) {
    return bytesOf(uuidNumber(number));
}

std::string quoted(const std::string& text) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string result = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x20 || byte == 0x7F) {
            result += std::string("\\x") + digits[byte >> 4] + digits[byte & 0x0F];
        } else {
            result += character == '"' || character == '\\' ? std::string("\\") + character
                                                            : std::string(1, character);
        }
    }
    return result + "\"";
}

std::ostream& operator<<(std::ostream& stream, const Bytes& bytes) {
    if (const auto uuid = uuidOf(bytes)) {
        return stream << uuid->UUIDString();
    }
    static constexpr char digits[] = "0123456789ABCDEF";
    stream << "x'";
    for (const char character : bytes.bytes) {
        const auto byte = static_cast<unsigned char>(character);
        stream << digits[byte >> 4] << digits[byte & 0x0F];
    }
    return stream << '\'';
}

std::ostream& operator<<(std::ostream& stream, const URLRecord& url) {
    return stream << (url.inCache ? "cache/" : "") << quoted(url.text);
}

std::ostream& operator<<(std::ostream& stream, const Metadata& metadata) {
    stream << '{';
    const char* separator = "";
    for (const auto& [key, value] : metadata) {
        stream << separator << quoted(key) << ": ";
        std::visit([&](const auto& held) { print(stream, held); }, value);
        separator = ", ";
    }
    return stream << '}';
}

std::ostream& operator<<(std::ostream& stream, const PartRecord& part) {
    static const PartRecord fresh;
    FieldPrinter printed(stream);
    printed.bareWireRecord(part.isBareWireRecord);
    printed("media_type", part.media_type)("size", part.size)("body", part.body)(
        "external_url", part.external_url)("external_access_expiration", part.external_access_expiration)(
        "event", part.eventDatabaseIdentifier, fresh.eventDatabaseIdentifier)(
        "eventClientID", part.eventClientID, fresh.eventClientID)("eventSeq", part.eventSeq, fresh.eventSeq)(
        "index", part.index, fresh.index)("streamUUID", part.streamUUID, fresh.streamUUID)(
        "status", part.transferStatus, fresh.transferStatus)("file", part.fileURL, fresh.fileURL)(
        "lastAccessed", part.lastAccessed, fresh.lastAccessed)(
        "expiration", part.externalContentURLExpiration, fresh.externalContentURLExpiration)(
        "purged", part.isPurged, fresh.isPurged);
    return stream;
}

std::ostream& operator<<(std::ostream& stream, const EventRecord& event) {
    static const EventRecord fresh;
    FieldPrinter printed(stream);
    printed.bareWireRecord(event.isBareWireRecord);
    printed("row", event.databaseIdentifier, fresh.databaseIdentifier)(
        "stream", event.streamDatabaseIdentifier, fresh.streamDatabaseIdentifier)(
        "stream_id", event.stream_id, fresh.stream_id)("type", event.type)("ephemeral", event.ephemeral)(
        "creator_id", event.creator_id)("seq", event.seq)("server_timestamp", event.server_timestamp)(
        "preceding_seq", event.preceding_seq)("client_seq", event.client_seq)("subtype", event.subtype)(
        "content", event.content)("member_id", event.member_id)("target_seq", event.target_seq)(
        "transient_metadata", event.transient_metadata)("client_id", event.client_id)(
        "client_timestamp", event.client_timestamp)("creator_name", event.creator_name);
    return stream;
}

}  // namespace zav::test
