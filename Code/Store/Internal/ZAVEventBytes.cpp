#include "Store/Internal/ZAVEventBytes.h"

#include <optional>
#include <string_view>
#include <type_traits>
#include <variant>

namespace zav {
namespace {

/// Appends values so that no two rows of values are the same bytes.
class Bytes {
public:
    template <class Value>
    Bytes& operator<<(const Value& value) {
        if constexpr (std::is_arithmetic_v<Value> || std::is_enum_v<Value>) {
            bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
        } else {
            append(value);
        }
        return *this;
    }

    template <class Value>
    Bytes& operator<<(const std::optional<Value>& value) {
        *this << value.has_value();
        return value ? *this << *value : *this;
    }

    [[nodiscard]] std::string take() { return std::move(bytes_); }

private:
    void append(std::string_view text) {
        *this << text.size();
        bytes_ += text;
    }
    void append(const ZAVData& data) { append(data.asText()); }
    void append(const ZAVUUID& uuid) {
        append(std::string_view(reinterpret_cast<const char*>(uuid.bytes().data()), uuid.bytes().size()));
    }
    void append(const ZAVDate& date) { *this << ZAVSecondsSince1970(date); }
    void append(const ZAVURL& url) {
        append(url.text());
        *this << url.baseURL();
    }
    void append(const ZAVDictionary& dictionary) {
        *this << dictionary.size();
        for (const auto& [key, value] : dictionary) {
            append(key);
            *this << value.index();
            std::visit([this](const auto& one) { append(one); }, value);
        }
    }

    std::string bytes_;
};

void appendPart(Bytes& bytes, const ZAVEventContent& part) {
    bytes << part.media_type() << part.size() << part.body() << part.external_url()
          << part.eventDatabaseIdentifier() << part.eventClientID() << part.eventSeq() << part.index()
          << part.streamUUID() << part.transferStatus() << part.fileURL() << part.lastAccessed()
          << part.externalContentURLExpiration() << part.isPurged();
}

}  // namespace

std::string ZAVBytesOfEvent(const ZAVEvent& event) {
    Bytes bytes;
    bytes << event.databaseIdentifier() << event.streamDatabaseIdentifier() << event.stream_id()
          << event.type() << event.creator_id() << event.seq() << event.server_timestamp()
          << event.preceding_seq() << event.client_seq() << event.subtype() << event.member_id()
          << event.target_seqIsSet() << event.target_seq() << event.transient_metadata() << event.client_id()
          << event.creator_name();
    const auto parts = event.contentParts();
    bytes << parts.size();
    for (const auto& part : parts) {
        appendPart(bytes, *part);
    }
    return bytes.take();
}

}  // namespace zav
