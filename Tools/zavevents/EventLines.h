#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVURL.h>

#include "EventReader.h"
#include "LineReader.h"

namespace zavevents {

/// The events of a JSON Lines file, or of standard input, for who needs each of them.
class EventLines {
public:
    /// @param file,owner,cacheDirectory as `LineReader` and `EventReader` take them.
    /// @throws ToolError when it cannot be opened.
    EventLines(const std::string& file, std::optional<DownloadOwner> owner,
               const zav::ZAVURL& cacheDirectory);

    /// The next event; null at the end.
    /// @throws ToolError when reading fails, and when a line is not an event, which it names.
    [[nodiscard]] std::shared_ptr<zav::ZAVEvent> next();

    /// Number of the line of the event that `next` returned last, counted from 1.
    [[nodiscard]] std::uint64_t lineNumber() const { return lines_.lineNumber(); }

    /// That line, as a message about it begins.
    [[nodiscard]] std::string place() const { return lines_.place(); }

private:
    LineReader lines_;
    EventReader reader_;
};

}  // namespace zavevents
