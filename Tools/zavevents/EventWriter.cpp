#include "EventWriter.h"

#include <optional>
#include <string_view>
#include <variant>

#include <ZAVEventRepository/ZAVUTF8.h>

#include "Base64.h"
#include "ObjectWriter.h"

namespace zavevents {
namespace {

using namespace zav;

void appendMetadata(const ZAVDictionary& metadata, std::string& out) {
    const char* separator = "{";
    for (const auto& [key, value] : metadata) {
        out += separator;
        separator = ",";
        appendJSONString(key, out);
        out += ':';
        const auto* text = std::get_if<std::string>(&value);
        const std::string_view bytes = text != nullptr ? *text : std::get<ZAVData>(value).asText();
        if (ZAVIsUTF8(bytes)) {
            appendJSONString(bytes, out);
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

void appendEventObject(const ZAVEvent& event, bool sequenced, std::string& text,
                       const std::optional<std::string>& cursor) {
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
    object.add("cursor", cursor);
    object.close();
}

void appendEvent(const ZAVEvent& event, bool sequenced, std::string& text) {
    appendEventObject(event, sequenced, text);
    text += '\n';
}

void appendPart(const ZAVEventContent& part, std::string& text) {
    appendPartObject(part, text);
    text += '\n';
}

}  // namespace zavevents
