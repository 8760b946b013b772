#include "EventReader.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include <ZAVEventRepository/ZAVContentPath.h>
#include <ZAVEventRepository/ZAVDictionary.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVPrintable.h>
#include <ZAVEventRepository/ZAVUTF8.h>

#include "Base64.h"
#include "JSONNumbers.h"

namespace zavevents {
namespace {

using namespace zav;
using simdjson::dom::element;

/// Whole numbers from here on fit no field.
constexpr double beyondWholeNumbers = 9223372036854775808.0;

/// One field of an object, for reading and for complaining about it.
struct Field {
    std::string_view key;
    element value;
    std::string_view place{};  ///< where its object stands in the line

    [[noreturn]] void complain(const std::string& complaint) const {
        throw BadLine(ZAVPrintable(std::string(place).append(key)) + " " + complaint);
    }

    /// The value, if it is of the parser's type.
    template <class Value>
    [[nodiscard]] Value as(const char* complaint) const {
        Value result{};
        if (value.get(result) != simdjson::SUCCESS) {
            complain(complaint);
        }
        return result;
    }

    [[nodiscard]] std::string_view text() const { return as<std::string_view>("is not text"); }
    [[nodiscard]] bool boolean() const { return as<bool>("is neither true nor false"); }
    [[nodiscard]] simdjson::dom::object object() const {
        return as<simdjson::dom::object>("is not an object");
    }
    [[nodiscard]] simdjson::dom::array array() const { return as<simdjson::dom::array>("is not an array"); }

    template <class Number>
    [[nodiscard]] Number number(std::int64_t least = std::numeric_limits<Number>::min(),
                                std::int64_t most = std::numeric_limits<Number>::max()) const {
        std::int64_t result = 0;
        const auto status = value.get_int64().get(result);
        if (status == simdjson::SUCCESS && result >= least && result <= most) {
            return static_cast<Number>(result);
        }
        double large = 0;
        const bool isLarge =
            value.get_double().get(large) == simdjson::SUCCESS && std::abs(large) >= beyondWholeNumbers;
        complain(status == simdjson::SUCCESS || isLarge ? "is out of range" : "is not a whole number");
    }

    [[nodiscard]] ZAVDate date() const {
        const auto seconds = as<double>("is not a number of seconds");
        if (std::abs(seconds) >= beyondEveryDouble) {
            complain("is out of range");
        }
        return ZAVDateFromSecondsSince1970(seconds + 0.0);  // negative zero is stored as plain zero
    }

    [[nodiscard]] ZAVUUID uuid() const {
        const auto result = ZAVUUID::fromString(text());
        if (!result) {
            complain("is not a UUID");
        }
        return *result;
    }

    [[nodiscard]] ZAVData base64() const {
        auto result = dataFromBase64(text());
        if (!result) {
            complain("is not base64");
        }
        return *std::move(result);
    }
};

/// Refuses a field that stands twice in an object: one of the two would be lost without a word. Fields that
/// are not known may.
template <std::size_t count>
class Once {
public:
    explicit Once(const std::array<std::string_view, count>& names) : names_(names) {}

    void note(const Field& field) {
        const auto name = std::find(names_.begin(), names_.end(), field.key);
        if (name == names_.end()) {
            return;
        }
        const std::uint32_t bit = 1U << (name - names_.begin());
        if ((seen_ & bit) != 0) {
            field.complain("stands there twice");
        }
        seen_ |= bit;
    }

private:
    const std::array<std::string_view, count>& names_;
    std::uint32_t seen_ = 0;
};

constexpr std::array<std::string_view, 14> eventFields{
    "client_id",        "type",       "stream_id",  "subtype",           "seq",
    "preceding_seq",    "client_seq", "target_seq", "creator_id",        "creator_name",
    "server_timestamp", "member_id",  "content",    "transient_metadata"};

constexpr std::array<std::string_view, 10> partFields{"media_type",    "size",
                                                      "text",          "body",
                                                      "external_url",  "purged",
                                                      "last_accessed", "transfer_status",
                                                      "file_path",     "external_content_url_expiration"};

ZAVData readBytes(const Field& field) {
    std::optional<ZAVData> bytes;
    for (const auto& [key, value] : field.object()) {
        if (key == "base64") {
            if (bytes) {
                field.complain("has base64 twice");
            }
            bytes = Field{field.key, value, field.place}.base64();
        }
    }
    if (!bytes) {
        field.complain("is neither text nor base64");
    }
    return *std::move(bytes);
}

/// Text also where the line has base64 of it: what is bytes is not UTF-8.
ZAVDictionary readMetadata(const Field& field) {
    ZAVDictionary metadata;
    for (const auto& [key, value] : field.object()) {
        const Field entry{key, value, "transient_metadata."};
        if (metadata.find(key) != nullptr) {
            entry.complain("stands there twice");
        }
        if (value.is_string()) {
            metadata.set(std::string(key), std::string(entry.text()));
        } else {
            ZAVData bytes = readBytes(entry);
            metadata.set(std::string(key), ZAVIsUTF8(bytes.asText())
                                               ? ZAVDictionaryValue(std::string(bytes.asText()))
                                               : ZAVDictionaryValue(std::move(bytes)));
        }
    }
    return metadata;
}

/// A part, and whether it is to be downloaded: the line says where it is, and no transfer status.
struct ReadPart {
    std::shared_ptr<ZAVEventContent> part;
    bool isToDownload;
};

ReadPart readPart(const element& source, std::size_t index, const ZAVURL& cacheDirectory) {
    const auto made = std::make_shared<ZAVEventContent>();
    ZAVEventContent& part = *made;
    bool hasStatus = false;
    const std::string name = "content[" + std::to_string(index) + "]";
    const std::string place = name + ".";
    Once once(partFields);
    for (const auto& [key, value] : Field{name, source}.object()) {
        const Field field{key, value, place};
        once.note(field);
        if (key == "media_type") {
            part.set_media_type(std::string(field.text()));
        } else if (key == "size") {
            part.set_size(field.number<std::int64_t>(0));
        } else if (key == "text" || key == "body") {
            if (part.body()) {
                field.complain("stands beside other inline data");
            }
            part.set_body(key == "text" ? ZAVData::fromText(field.text()) : field.base64());
        } else if (key == "external_url") {
            if (!ZAVURL::URLWithString(field.text())) {
                field.complain("is not a URL");
            }
            part.set_external_url(std::string(field.text()));
        } else if (key == "external_content_url_expiration") {
            part.setExternalContentURLExpiration(field.date());
        } else if (key == "last_accessed") {
            part.setLastAccessed(field.date());
        } else if (key == "transfer_status") {
            part.setTransferStatus(field.number<ZAVContentTransferStatus>(0, ZAVContentTransferComplete));
            hasStatus = true;
        } else if (key == "file_path") {
            std::string fault;
            if (!ZAVContentPath::parse(field.text(), &fault)) {
                field.complain(fault);
            }
            part.setFileURL(ZAVURL::URLWithString(field.text(), cacheDirectory));
        } else if (key == "purged") {
            part.setIsPurged(field.boolean());
        }
    }
    if (part.body() && part.external_url()) {
        throw BadLine(name + " has both inline data and an external_url");
    }
    if (!part.sizeIsSet()) {
        part.set_size(part.body() ? static_cast<std::int64_t>(part.body()->size()) : 0);
    }
    if (!hasStatus && part.body()) {
        part.setTransferStatus(ZAVContentTransferComplete);
    }
    return {made, !hasStatus && part.external_url()};
}

/// Makes the parts ready that are to be downloaded; the others stay as they are.
void prepareForDownload(const ZAVEvent& event, const std::vector<ReadPart>& parts,
                        const std::optional<DownloadOwner>& owner) {
    const auto needed =
        std::find_if(parts.begin(), parts.end(), [](const ReadPart& read) { return read.isToDownload; });
    if (needed == parts.end()) {
        return;
    }
    if (!owner) {
        throw BadLine(
            "content[" + std::to_string(needed - parts.begin()) +
            "] has an external_url and no transfer_status: --app-id and --user must say for whom to "
            "download it");
    }
    // An event that has these parts alone, at their positions, which name their files.
    ZAVEvent received;
    received.set_client_id(event.client_id());
    std::vector<std::shared_ptr<ZAVTContent>> content(parts.size());
    std::transform(parts.begin(), parts.end(), content.begin(),
                   [](const ReadPart& read) { return read.isToDownload ? read.part : nullptr; });
    received.set_content(std::move(content));
    ZAVPrepareEventContentsForDownload(received, owner->appID, owner->userID);
}

}  // namespace

class EventReader::Parser {
public:
    Parser(std::optional<DownloadOwner> owner, ZAVURL cacheDirectory)
        : owner_(std::move(owner)), cacheDirectory_(std::move(cacheDirectory)) {}

    ReadEvent read(std::string_view line) {
        const element document = parse(line);
        ReadEvent result{std::make_shared<ZAVEvent>(), std::nullopt};
        ZAVEvent& event = *result.event;
        std::vector<ReadPart> parts;
        Once once(eventFields);
        for (const auto& [key, value] : Field{"the line", document}.object()) {
            const Field field{key, value};
            once.note(field);
            readField(field, event, parts, result.unnamedStream);
        }
        if (!event.client_id()) {
            throw BadLine("client_id is missing");
        }
        if (event.type() == 0) {
            throw BadLine(event.typeIsSet() ? "type is 0" : "type is missing");
        }
        if (!parts.empty()) {
            std::vector<std::shared_ptr<ZAVTContent>> content(parts.size());
            std::transform(parts.begin(), parts.end(), content.begin(),
                           [](const ReadPart& read) { return read.part; });
            event.set_content(std::move(content));
            prepareForDownload(event, parts, owner_);
        }
        return result;
    }

private:
    [[nodiscard]] element parse(std::string_view line) {
        element document;
        auto status = json_.parse(line.data(), line.size()).get(document);
        if (status == simdjson::NUMBER_ERROR) {
            const std::string readable = withReadableNumbers(line);
            status = json_.parse(readable.data(), readable.size()).get(document);
        }
        if (status == simdjson::MEMALLOC) {
            throw std::bad_alloc();
        }
        if (status != simdjson::SUCCESS) {
            throw BadLine(std::string("is not JSON: ") + simdjson::error_message(status));
        }
        return document;
    }

    void readField(const Field& field, ZAVEvent& event, std::vector<ReadPart>& parts,
                   std::optional<std::int64_t>& unnamedStream) const {
        const std::string_view key = field.key;
        if (key == "stream_id") {
            event.set_stream_id(ZAVDataFromUUID(field.uuid()));
        } else if (key == "client_id") {
            event.set_client_id(ZAVDataFromUUID(field.uuid()));
        } else if (key == "type") {
            event.set_type(field.number<ZAVTEventType>(std::numeric_limits<std::int32_t>::min(),
                                                       std::numeric_limits<std::int32_t>::max()));
        } else if (key == "subtype") {
            event.set_subtype(field.number<std::uint8_t>());
        } else if (key == "seq") {
            if (const auto seq = field.number<ZAVSequence>(); seq != ZAVSequenceNotSet) {
                event.set_seq(seq);
            }
        } else if (key == "preceding_seq") {
            event.set_preceding_seq(field.number<ZAVSequence>());
        } else if (key == "client_seq") {
            event.set_client_seq(field.number<ZAVSequence>());
        } else if (key == "server_timestamp") {
            event.set_server_timestamp(field.number<std::int64_t>());
        } else if (key == "target_seq") {
            event.set_target_seq(field.number<ZAVSequence>());
        } else if (key == "creator_id") {
            event.set_creator_id(std::string(field.text()));
        } else if (key == "creator_name") {
            event.set_creator_name(std::string(field.text()));
        } else if (key == "member_id") {
            event.set_member_id(std::string(field.text()));
        } else if (key == "transient_metadata") {
            event.set_transient_metadata(readMetadata(field));
        } else if (key == "content") {
            for (const element& part : field.array()) {
                parts.push_back(readPart(part, parts.size(), cacheDirectory_));
            }
        } else if (key == "stream_database_identifier") {
            std::int64_t number = 0;
            if (field.value.get_int64().get(number) == simdjson::SUCCESS) {
                unnamedStream = number;
            }
        }
    }

    std::optional<DownloadOwner> owner_;
    ZAVURL cacheDirectory_;
    simdjson::dom::parser json_;
};

EventReader::EventReader(std::optional<DownloadOwner> owner, const ZAVURL& cacheDirectory)
    : parser_(std::make_unique<Parser>(std::move(owner), cacheDirectory)) {}

EventReader::~EventReader() = default;

ReadEvent EventReader::read(std::string_view line) {
    return parser_->read(line);
}

}  // namespace zavevents
