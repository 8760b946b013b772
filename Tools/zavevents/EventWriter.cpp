#include "EventWriter.h"

#include <array>
#include <charconv>
#include <cmath>
#include <concepts>
#include <optional>
#include <string_view>
#include <variant>

#include <ZAVEventRepository/ZAVUTF8.h>

#include "Base64.h"

namespace zavevents {
namespace {

using namespace zav;

void appendEscaped(std::string_view text, std::string& out) {
    static constexpr std::string_view digits = "0123456789abcdef";
    std::size_t plainFrom = 0;
    for (std::size_t position = 0; position < text.size(); ++position) {
        const auto byte = static_cast<unsigned char>(text[position]);
        if (byte >= 0x20 && byte != '"' && byte != '\\') {
            continue;
        }
        out += text.substr(plainFrom, position - plainFrom);
        plainFrom = position + 1;
        switch (byte) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                out += "\\u00";
                out += digits[byte >> 4];
                out += digits[byte & 0x0F];
        }
    }
    out += text.substr(plainFrom);
}

/// Appends text as a JSON string. A byte that is not UTF-8, which a database made elsewhere may hold, is
/// replaced: the line itself must be UTF-8.
void appendString(std::string_view text, std::string& out) {
    out += '"';
    if (ZAVIsUTF8(text)) {
        appendEscaped(text, out);
    } else {
        while (!text.empty()) {
            std::size_t length = 1;
            while (length < 4 && length < text.size() && !ZAVIsUTF8(text.substr(0, length))) {
                ++length;
            }
            if (ZAVIsUTF8(text.substr(0, length))) {
                appendEscaped(text.substr(0, length), out);
                text.remove_prefix(length);
            } else {
                out += "\xEF\xBF\xBD";
                text.remove_prefix(1);
            }
        }
    }
    out += '"';
}

/// One JSON object that is being written: commas and keys.
class ObjectWriter {
public:
    explicit ObjectWriter(std::string& out) : out_(out) { out_ += '{'; }

    /// Keys are the schema's own: nothing in them needs escaping.
    void key(std::string_view name) {
        if (!first_) {
            out_ += ',';
        }
        first_ = false;
        out_ += '"';
        out_ += name;
        out_ += "\":";
    }

    template <std::integral Number>
    void add(std::string_view name, Number number) {
        key(name);
        std::array<char, 24> digits;
        out_.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
    }
    void add(std::string_view name, bool flag) {
        key(name);
        out_ += flag ? "true" : "false";
    }
    void add(std::string_view name, std::string_view text) {
        key(name);
        appendString(text, out_);
    }
    void add(std::string_view name, const std::string& text) { add(name, std::string_view(text)); }
    void add(std::string_view name, const ZAVUUID& uuid) { add(name, std::string_view(uuid.UUIDString())); }
    void add(std::string_view name, ZAVDate date) {
        const double seconds = ZAVSecondsSince1970(date);
        if (std::isfinite(seconds)) {  // JSON has no other numbers
            key(name);
            std::array<char, 64> digits;
            char* const begin = digits.data();
            char* const limit = begin + digits.size();
            // Whole seconds in plain digits; else whatever is shortest and reads back the same. Many digits
            // without a point or an exponent would be taken for an integer, and be too long for one.
            const bool isWhole = seconds == std::trunc(seconds);
            const auto end = !isWhole ? std::to_chars(begin, limit, seconds)
                             : std::abs(seconds) < 1e15
                                 ? std::to_chars(begin, limit, seconds, std::chars_format::fixed)
                                 : std::to_chars(begin, limit, seconds, std::chars_format::scientific);
            out_.append(begin, end.ptr);
        }
    }
    template <class T>
    void add(std::string_view name, const std::optional<T>& value) {
        if (value) {
            add(name, *value);
        }
    }

    void addBase64(std::string_view name, const ZAVData& data) {
        key(name);
        out_ += '"';
        appendBase64(data.asText(), out_);
        out_ += '"';
    }

    void close() { out_ += '}'; }

private:
    std::string& out_;
    bool first_ = true;
};

void appendMetadata(const ZAVDictionary& metadata, std::string& out) {
    const char* separator = "{";
    for (const auto& [key, value] : metadata) {
        out += separator;
        separator = ",";
        appendString(key, out);
        out += ':';
        const auto* text = std::get_if<std::string>(&value);
        const std::string_view bytes = text != nullptr ? *text : std::get<ZAVData>(value).asText();
        if (ZAVIsUTF8(bytes)) {
            appendString(bytes, out);
        } else {
            out += R"({"base64":")";
            appendBase64(bytes, out);
            out += "\"}";
        }
    }
    out += '}';
}

void appendPartObject(const ZAVEventContent& part, std::string& out) {
    ObjectWriter object(out);
    object.add("media_type", part.media_type());
    object.add("size", part.size());
    if (part.body() && !part.external_url()) {
        if (ZAVIsUTF8(part.body()->asText())) {
            object.add("text", part.body()->asText());
        } else {
            object.addBase64("body", *part.body());
        }
    }
    object.add("external_url", part.external_url());
    object.add("external_content_url_expiration", part.externalContentURLExpiration());
    object.add("last_accessed", part.lastAccessed());
    object.add("transfer_status", static_cast<std::uint32_t>(part.transferStatus()));
    if (part.fileURL()) {
        object.add("file_path", part.fileURL()->relativePath());
    }
    object.add("purged", part.isPurged());
    object.add("index", part.index());
    object.add("event_database_identifier", part.eventDatabaseIdentifier());
    object.add("event_client_id", part.eventClientID());
    if (part.eventSeq() != ZAVSequenceNotSet) {
        object.add("event_seq", part.eventSeq());
    }
    object.add("stream_id", part.streamUUID());
    object.close();
}

}  // namespace

void appendEvent(const ZAVEvent& event, bool sequenced, std::string& text) {
    ObjectWriter object(text);
    object.add("database_identifier", event.databaseIdentifier());
    object.add("stream_database_identifier", event.streamDatabaseIdentifier());
    object.add("stream_id", event.streamUUID());
    object.add("client_id", ZAVUUIDFromData(event.client_id()));
    object.add("type", static_cast<std::int32_t>(event.type()));
    object.add("subtype", event.subtype());
    if (sequenced) {
        object.add("seq", event.seq());
    }
    object.add("preceding_seq", event.preceding_seq());
    object.add("client_seq", event.client_seq());
    object.add("server_timestamp", event.server_timestamp());
    if (event.target_seqIsSet()) {
        object.add("target_seq", event.target_seq());
    }
    object.add("creator_id", event.creator_id());
    object.add("creator_name", event.creator_name());
    object.add("member_id", event.member_id());
    if (event.transient_metadata() && !event.transient_metadata()->empty()) {
        object.key("transient_metadata");
        appendMetadata(*event.transient_metadata(), text);
    }
    if (event.content()) {
        object.key("content");
        char separator = '[';
        for (const auto& part : event.contentParts()) {
            text += separator;
            separator = ',';
            appendPartObject(*part, text);
        }
        text += ']';
    }
    object.close();
    text += '\n';
}

void appendPart(const ZAVEventContent& part, std::string& text) {
    appendPartObject(part, text);
    text += '\n';
}

}  // namespace zavevents
