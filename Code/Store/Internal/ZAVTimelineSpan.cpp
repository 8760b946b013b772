#include "Store/Internal/ZAVTimelineSpan.h"

#include <algorithm>

namespace zav {

std::optional<ZAVTimelinePage> ZAVTimelineSpan::read(const ZAVTimelineReader& reader,
                                                     ZAVDatabaseIdentifier stream,
                                                     const std::vector<ZAVTimelineRequest>& requests,
                                                     ZAVError* error) {
    std::optional<ZAVTimelinePage> page;
    std::optional<Ends> ends = ends_;
    if (ends && ends->stream == stream) {
        if (!follow(*ends, reader, error)) {
            return std::nullopt;
        }
        for (const ZAVTimelineRequest& request : requests) {
            if (!answer(*ends, request, reader, error)) {
                return std::nullopt;
            }
        }
        page = reader.between(ends->first, ends->last.value_or(ZAVTimelinePlace::end()), error);
        if (!page) {
            return std::nullopt;
        }
    }
    if (!page || page->events.empty()) {
        page = begin(reader, error);
        if (!page) {
            return std::nullopt;
        }
        ends.reset();
        if (!page->events.empty()) {
            ends = Ends{stream, ZAVTimelinePlace::of(page->cursors.front()),
                        ZAVTimelinePlace::of(page->cursors.back())};
        }
    }
    if (ends && !page->hasLater) {
        ends->last.reset();
    }
    ends_ = ends;
    hadEvents_ = hadEvents_ || ends;
    return page;
}

std::optional<ZAVTimelinePage> ZAVTimelineSpan::begin(const ZAVTimelineReader& reader,
                                                      ZAVError* error) const {
    if (hadEvents_ || std::holds_alternative<std::monostate>(options_.around)) {
        return reader.latest(options_.count, error);
    }
    if (const auto* const seq = std::get_if<ZAVSequence>(&options_.around)) {
        return reader.around(*seq, options_.count, error);
    }
    const auto place = reader.placeOf(std::get<ZAVTimelineCursor>(options_.around), error);
    return place ? reader.around(*place, options_.count, error) : std::nullopt;
}

/// When the first event waited, and has got its sequence, what stands between the two places comes in. The
/// last place stays, so that those who still wait before it stay too.
bool ZAVTimelineSpan::follow(Ends& ends, const ZAVTimelineReader& reader, ZAVError* error) {
    if (!ends.first.isWaiting) {
        return true;
    }
    const auto present =
        reader.placeOf(ZAVTimelineCursor::atWaiting(ends.stream, ends.first.number, ends.first.event), error);
    if (present) {
        ends.first = std::min(ends.first, *present);
    }
    return present.has_value();
}

bool ZAVTimelineSpan::answer(Ends& ends, const ZAVTimelineRequest& request, const ZAVTimelineReader& reader,
                             ZAVError* error) {
    if (request.earlier > 0) {
        const auto first = reader.placeBefore(ends.first, request.earlier, error);
        if (!first) {
            return false;
        }
        ends.first = *first;
    }
    if (request.later > 0 && ends.last) {
        const auto last = reader.placeBehind(*ends.last, request.later, error);
        if (!last) {
            return false;
        }
        ends.last = *last;
    }
    return !request.kept || keep(ends, *request.kept, reader, error);
}

bool ZAVTimelineSpan::keep(Ends& ends, const ZAVTimelineRequest::Kept& kept, const ZAVTimelineReader& reader,
                           ZAVError* error) {
    if (kept.first.stream() != ends.stream || (kept.last && kept.last->stream() != ends.stream)) {
        return true;
    }
    const auto first = reader.placeOf(kept.first, error);
    const auto last = first && kept.last ? reader.placeOf(*kept.last, error) : std::nullopt;
    if (!first || (kept.last && !last)) {
        return false;
    }
    ends.first = std::max(ends.first, *first);
    if (last) {
        ends.last = std::min(ends.last.value_or(*last), *last);
    }
    return true;
}

}  // namespace zav
