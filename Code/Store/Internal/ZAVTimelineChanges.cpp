#include "Store/Internal/ZAVTimelineChanges.h"

#include <cstddef>
#include <new>
#include <string_view>

namespace zav {

void ZAVTimelineChanges::add(std::span<const FMRowChange> changes) noexcept {
    isAnything_ = isAnything_ || changes.empty();
    try {
        for (auto change = changes.begin(); !isAnything_ && change != changes.end(); ++change) {
            addOne(*change);
        }
    } catch (const std::bad_alloc&) {
        isAnything_ = true;
    }
}

void ZAVTimelineChanges::addOne(const FMRowChange& change) {
    const std::string_view table = change.table;
    const bool isRemoval = change.kind == FMRowChange::Kind::removal;
    if (table == "events") {
        addRow(isRemoval ? Kind::removedEvent : Kind::event, change.row);
    } else if (table == "event_content_parts") {
        arePartsRemoved_ = arePartsRemoved_ || isRemoval;
        if (!isRemoval) {
            addRow(Kind::part, change.row);
        }
    } else if (table == "keyed_values_remote") {
        if (change.objectType == "event") {
            addRow(Kind::metadata, change.row);
        }
    } else if (table == "streams") {
        addRow(Kind::stream, change.row);
    }
}

void ZAVTimelineChanges::addRow(Kind kind, ZAVDatabaseIdentifier row) {
    constexpr std::size_t ofACommit = 16;
    constexpr std::size_t mostRows = 500;  // to read anew is less than to ask about more
    const Change change{row, kind};
    if (rows_.empty()) {
        rows_.reserve(ofACommit);
    } else if (rows_.back() == change) {
        return;
    }
    rows_.push_back(change);
    isAnything_ = rows_.size() > mostRows;
}

}  // namespace zav
