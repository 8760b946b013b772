#include "EventLines.h"

#include <utility>
#include <variant>

#include <ZAVEventRepository/ZAVDictionary.h>
#include <ZAVEventRepository/ZAVPrintable.h>

#include "BadLine.h"
#include "ToolError.h"

namespace zavevents {
namespace {

/// Metadata that are not text would be left out without a word.
void expectTextAlone(const zav::ZAVEvent& event) {
    if (!event.transient_metadata()) {
        return;
    }
    for (const auto& [key, value] : *event.transient_metadata()) {
        if (!std::holds_alternative<std::string>(value)) {
            throw BadLine("transient_metadata." + zav::ZAVPrintable(key) +
                          " is not text, which alone is stored");
        }
    }
}

}  // namespace

EventLines::EventLines(const std::string& file, std::optional<DownloadOwner> owner,
                       const zav::ZAVURL& cacheDirectory)
    : lines_(file), reader_(std::move(owner), cacheDirectory) {}

std::shared_ptr<zav::ZAVEvent> EventLines::next() {
    try {
        const auto line = lines_.nextWithText();
        if (!line) {
            return nullptr;
        }
        auto event = reader_.read(*line).event;
        expectTextAlone(*event);
        return event;
    } catch (const BadLine& bad) {
        throw ToolError(place() + bad.what());
    }
}

}  // namespace zavevents
