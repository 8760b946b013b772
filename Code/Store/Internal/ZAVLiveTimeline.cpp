#include "Store/Internal/ZAVLiveTimeline.h"

#include <cstddef>
#include <unordered_map>
#include <utility>

#include "Store/Internal/ZAVEventBytes.h"

namespace zav {

std::optional<ZAVTimelineDelivery> ZAVLiveTimeline::read(const ZAVRepositories& repositories,
                                                         const std::vector<ZAVTimelineRequest>& requests,
                                                         ZAVError* error) {
    ZAVTimelineSpan span = span_;
    const auto stream = question_.streamIn(repositories, error);
    auto page = stream ? span.read(ZAVTimelineReader(repositories, *stream, question_.types), *stream,
                                   requests, error)
                       : std::nullopt;
    if (!page) {
        return std::nullopt;
    }
    auto delivery = show(*std::move(page));
    span_ = span;
    stream_ = *stream;
    return delivery;
}

std::optional<ZAVTimelineDelivery> ZAVLiveTimeline::fail(const ZAVError& error) {
    if (failure_ == error) {
        return std::nullopt;
    }
    ZAVTimelineDelivery delivery{{}, page_, error};
    failure_ = error;
    return delivery;
}

std::optional<ZAVTimelineDelivery> ZAVLiveTimeline::show(ZAVTimelinePage page) {
    std::unordered_map<ZAVDatabaseIdentifier, std::size_t> former;
    for (std::size_t index = 0; index < entries_.size(); ++index) {
        former.emplace(entries_[index].event, index);
    }
    std::vector<ZAVTimelineEntry> entries;
    std::unordered_set<ZAVDatabaseIdentifier> rows;
    entries.reserve(page.events.size());
    for (auto& event : page.events) {
        entries.push_back({event->databaseIdentifier(), ZAVBytesOfEvent(*event)});
        rows.insert(entries.back().event);
        const auto place = former.find(entries.back().event);
        if (place != former.end() && entries_[place->second].content == entries.back().content) {
            event = page_.events[place->second];
        }
    }
    ZAVTimelineDelivery delivery{ZAVTimelineDifferences(entries_, entries), std::move(page), {}};
    const bool isToTell = !hasBegun_ || failure_ || !delivery.differences.empty() ||
                          delivery.page.cursors != page_.cursors ||
                          delivery.page.hasEarlier != page_.hasEarlier ||
                          delivery.page.hasLater != page_.hasLater || delivery.page.missing != page_.missing;
    page_ = delivery.page;
    // What has been told of must have been noted too: from here on nothing fails.
    hasBegun_ = true;
    entries_.swap(entries);
    rows_.swap(rows);
    failure_ = ZAVError();
    return isToTell ? std::optional(std::move(delivery)) : std::nullopt;
}

}  // namespace zav
