#include "Operations/Description.h"

#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include "Operations/Operation.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

template <class Value>
std::string text(const std::optional<Value>& value) {
    if (!value) {
        return "none";
    }
    if constexpr (std::is_same_v<Value, ZAVUUID>) {
        return value->UUIDString();
    } else if constexpr (std::is_same_v<Value, ZAVData>) {
        return std::string(value->asText());
    } else if constexpr (std::is_same_v<Value, ZAVDate>) {
        return std::to_string(value->time_since_epoch().count());
    } else {
        return *value;
    }
}

}  // namespace

std::string describeAlone(const ZAVEvent& event) {
    std::string text = event.description();
    for (const std::string_view field : {" content=", " transient_metadata="}) {
        if (const auto start = text.find(field); start != std::string::npos) {
            const auto end = text.find(')', start);
            text.erase(start, end == std::string::npos ? end : end + 1 - start);
        }
    }
    return text;
}

std::string describe(const ZAVEventContent& content) {
    return content.description() + " eventClientID=" + text(content.eventClientID()) +
           " streamUUID=" + text(content.streamUUID()) + " eventSeq=" + std::to_string(content.eventSeq()) +
           " lastAccessed=" + text(content.lastAccessed()) +
           " expiration=" + text(content.externalContentURLExpiration()) + " bytes=" + text(content.body());
}

std::vector<std::string> describeParts(const ZAVEvent& event) {
    std::vector<std::string> parts;
    for (const auto& part : event.contentParts()) {
        parts.push_back(describe(*part));
    }
    return parts;
}

std::vector<std::string> describeMetadata(const ZAVEvent& event) {
    std::vector<std::string> entries;
    if (event.transient_metadata()) {
        for (const auto& [key, value] : *event.transient_metadata()) {
            const auto* const string = std::get_if<std::string>(&value);
            entries.push_back(key + "=" +
                              (string != nullptr ? *string : std::string(std::get<ZAVData>(value).asText())));
        }
    }
    return entries;
}

std::string Answer::summary() const {
    return value == "set" ? "set of " + std::to_string(events.size() + contents.size()) : value;
}

std::vector<std::string> Answer::text() const {
    std::vector<std::string> lines{value};
    for (const auto& event : events) {
        lines.push_back(describeAlone(*event));
        for (auto& entry : describeMetadata(*event)) {
            lines.push_back("  " + std::move(entry));
        }
        for (auto& part : describeParts(*event)) {
            lines.push_back("  " + std::move(part));
        }
    }
    for (const auto& content : contents) {
        lines.push_back(describe(*content));
    }
    return lines;
}

}  // namespace zav::test
