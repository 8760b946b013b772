#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>
#include <ZAVEventRepository/ZAVURL.h>
#include <ZAVEventRepository/ZAVUUID.h>

#include "BadLine.h"

namespace zavevents {

/// For whom the files of content to download are kept.
struct DownloadOwner {
    zav::ZAVUUID appID;
    std::string userID;
};

/// An event as it is read from a line.
struct ReadEvent {
    std::shared_ptr<zav::ZAVEvent> event;

    /// The line's `stream_database_identifier`, which counts only when the event has no `stream_id`: lines of
    /// one file that carry the same number were in one stream.
    std::optional<std::int64_t> unnamedStream;
};

/// Turns lines of JSON into events.
class EventReader {
public:
    /// @param owner needed only for content that is to be downloaded.
    /// @param cacheDirectory where the files of content are.
    explicit EventReader(
        std::optional<DownloadOwner> owner,
        const zav::ZAVURL& cacheDirectory = zav::ZAVMessageRepositoryCacheBaseDirectoryURL());
    ~EventReader();
    EventReader(const EventReader&) = delete;
    EventReader& operator=(const EventReader&) = delete;

    /// @throws BadLine
    [[nodiscard]] ReadEvent read(std::string_view line);

private:
    class Parser;
    std::unique_ptr<Parser> parser_;
};

}  // namespace zavevents
