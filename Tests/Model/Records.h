#pragma once

#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVEventContent.h>

#include <compare>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <variant>
#include <vector>

namespace zav::test {

/// A byte string, as opposed to text.
struct Bytes {
    std::string bytes;

    friend auto operator<=>(const Bytes&, const Bytes&) = default;
};

/// A field of a wire record: its value stays readable when the flag is down.
template <class T>
struct Field {
    T value{};
    bool isSet = false;

    void set(T newValue) {
        value = std::move(newValue);
        isSet = true;
    }
    friend bool operator==(const Field&, const Field&) = default;
};

using MetadataValue = std::variant<std::string, Bytes>;
using Metadata = std::map<std::string, MetadataValue>;

/// A URL by its text, and whether it is relative to the content cache directory.
struct URLRecord {
    std::string text;
    bool inCache = false;

    friend bool operator==(const URLRecord&, const URLRecord&) = default;
};

/// Everything that a `ZAVEventContent` holds, as plain values that can be copied and compared.
struct PartRecord {
    bool isBareWireRecord = false;  ///< a `ZAVTContent` that is no `ZAVEventContent`
    Field<std::optional<std::string>> media_type;
    Field<std::int64_t> size;
    Field<std::optional<Bytes>> body;
    Field<std::optional<std::string>> external_url;
    Field<std::int64_t> external_access_expiration;
    ZAVDatabaseIdentifier eventDatabaseIdentifier = ZAVDatabaseIdentifierNotSet;
    std::optional<ZAVUUID> eventClientID;
    ZAVSequence eventSeq = ZAVSequenceNotSet;
    std::int64_t index = 0;
    std::optional<ZAVUUID> streamUUID;
    std::uint64_t transferStatus = 0;
    std::optional<URLRecord> fileURL;
    std::optional<double> lastAccessed;
    std::optional<double> externalContentURLExpiration;
    bool isPurged = false;

    friend bool operator==(const PartRecord&, const PartRecord&) = default;
};

/// Everything that a `ZAVEvent` holds.
struct EventRecord {
    bool isBareWireRecord = false;  ///< a `ZAVTEvent` that is no `ZAVEvent`
    ZAVDatabaseIdentifier databaseIdentifier = ZAVDatabaseIdentifierNotSet;
    ZAVDatabaseIdentifier streamDatabaseIdentifier = ZAVDatabaseIdentifierNotSet;
    std::optional<Bytes> stream_id;
    Field<std::int32_t> type;
    Field<bool> ephemeral;
    Field<std::optional<std::string>> creator_id;
    Field<std::int32_t> seq;
    Field<std::int64_t> server_timestamp;
    Field<std::int32_t> preceding_seq;
    Field<std::int32_t> client_seq;
    Field<std::uint8_t> subtype;
    Field<std::optional<std::vector<PartRecord>>> content;
    Field<std::optional<std::string>> member_id;
    Field<std::int32_t> target_seq;
    Field<std::optional<Metadata>> transient_metadata;
    Field<std::optional<Bytes>> client_id;
    Field<std::int64_t> client_timestamp;
    Field<std::optional<std::string>> creator_name;

    friend bool operator==(const EventRecord&, const EventRecord&) = default;
};

/// The plain values of a record, and of a record's dictionary.
[[nodiscard]] PartRecord recordOf(const ZAVTContent& part);
[[nodiscard]] EventRecord recordOf(const ZAVTEvent& event);
[[nodiscard]] Metadata recordOf(const ZAVDictionary& dictionary);

/// A new object with the values of a record.
[[nodiscard]] std::shared_ptr<ZAVTContent> makePart(const PartRecord& record);
[[nodiscard]] std::shared_ptr<ZAVTEvent> makeEvent(const EventRecord& record);
[[nodiscard]] ZAVDictionary makeDictionary(const Metadata& metadata);

/// Gives an object that exists the values of a record; it stays the same object, as do its content parts
/// where the record has as many. Object and record must agree on being bare wire records.
void assign(const PartRecord& record, ZAVTContent& part);
void assign(const EventRecord& record, ZAVTEvent& event);

[[nodiscard]] ZAVData dataOf(const Bytes& bytes);
[[nodiscard]] Bytes bytesOf(const ZAVData& data);
[[nodiscard]] Bytes bytesOf(const ZAVUUID& uuid);

/// The UUID that the bytes make up; none unless they are 16.
[[nodiscard]] std::optional<ZAVUUID> uuidOf(const std::optional<Bytes>& bytes);

/// The UUID with which number: `uuidNumber` of the stores' tests.
[[nodiscard]] Bytes uuidBytes(int number);

/// Text between quotes, with what does not print escaped.
[[nodiscard]] std::string quoted(const std::string& text);

/// Records print the fields that differ from a new record's.
std::ostream& operator<<(std::ostream& stream, const Bytes& bytes);
std::ostream& operator<<(std::ostream& stream, const URLRecord& url);
std::ostream& operator<<(std::ostream& stream, const Metadata& metadata);
std::ostream& operator<<(std::ostream& stream, const PartRecord& part);
std::ostream& operator<<(std::ostream& stream, const EventRecord& event);

}  // namespace zav::test
