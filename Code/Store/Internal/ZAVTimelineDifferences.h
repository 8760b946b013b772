#pragma once

#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVTimelineWindow.h>

namespace zav {

/// An event in a list: which, and all that it consists of.
struct ZAVTimelineEntry {
    ZAVDatabaseIdentifier event = ZAVDatabaseIdentifierNotSet;
    std::string content;
};

/// The steps from one list to another, as `ZAVTimelineDelivery` describes them; as few of them are moves as
/// can be. Each event must stand in a list once.
[[nodiscard]] std::vector<ZAVTimelineDifference> ZAVTimelineDifferences(
    const std::vector<ZAVTimelineEntry>& before, const std::vector<ZAVTimelineEntry>& after);

}  // namespace zav
