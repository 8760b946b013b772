#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include <ZAVEventRepository/ZAVTimelineWindow.h>

#include "Store/Internal/ZAVTimelineReader.h"

namespace zav {

/// What is asked of a window.
struct ZAVTimelineRequest {
    std::size_t earlier = 0;  ///< how many events to take in before the first one
    std::size_t later = 0;    ///< how many behind the last one

    /// What to keep.
    struct Kept {
        ZAVTimelineCursor first;                ///< from here on
        std::optional<ZAVTimelineCursor> last;  ///< up to here; none to leave the end alone
    };
    std::optional<Kept> kept{};
};

/// From where to where a window goes in its timeline.
class ZAVTimelineSpan {
public:
    explicit ZAVTimelineSpan(const ZAVTimelineWindowOptions& options) : options_(options) {}

    /// Reads what there is in it, after doing what is asked.
    /// @param stream the row of the timeline's stream, which `reader` reads.
    /// @return none on failure, with the reason in `error`; it stays as it was then.
    [[nodiscard]] std::optional<ZAVTimelinePage> read(const ZAVTimelineReader& reader,
                                                      ZAVDatabaseIdentifier stream,
                                                      const std::vector<ZAVTimelineRequest>& requests,
                                                      ZAVError* error);

private:
    /// Its ends, both included.
    struct Ends {
        ZAVDatabaseIdentifier stream = ZAVDatabaseIdentifierNotSet;
        ZAVTimelinePlace first{};
        std::optional<ZAVTimelinePlace> last{};  ///< none when it follows the newest events
    };

    [[nodiscard]] std::optional<ZAVTimelinePage> begin(const ZAVTimelineReader& reader,
                                                       ZAVError* error) const;
    static bool follow(Ends& ends, const ZAVTimelineReader& reader, ZAVError* error);
    static bool answer(Ends& ends, const ZAVTimelineRequest& request, const ZAVTimelineReader& reader,
                       ZAVError* error);
    static bool keep(Ends& ends, const ZAVTimelineRequest::Kept& kept, const ZAVTimelineReader& reader,
                     ZAVError* error);

    ZAVTimelineWindowOptions options_;
    bool hadEvents_ = false;
    std::optional<Ends> ends_;  ///< none without events
};

}  // namespace zav
