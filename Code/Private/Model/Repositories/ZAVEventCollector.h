#pragma once

#include <unordered_set>
#include <utility>

#include "Private/Foundation/ZAVSet.h"
#include "Private/Model/Synchronization/ZAVEvent.h"

namespace zav {

/// Collects the events of one query in row order. A stored row that the query yields more than once, which a
/// join to several change records does, counts once.
class ZAVEventCollector {
public:
    void add(std::shared_ptr<ZAVEvent> event) {
        if (isNew(event->databaseIdentifier())) {
            events_.append(std::move(event));
        }
    }

    [[nodiscard]] ZAVSet<ZAVEvent> take() { return std::move(events_); }

private:
    /// While rows come in ascending order, as most queries yield them, the last one tells; only then is there
    /// a need to remember them all.
    [[nodiscard]] bool isNew(ZAVDatabaseIdentifier row) {
        if (ascending_ && (events_.empty() || row > last_)) {
            last_ = row;
            return true;
        }
        if (ascending_) {
            ascending_ = false;
            for (const auto& event : events_) {
                seen_.insert(event->databaseIdentifier());
            }
        }
        return seen_.insert(row).second;
    }

    ZAVSet<ZAVEvent> events_;
    ZAVDatabaseIdentifier last_ = 0;
    bool ascending_ = true;
    std::unordered_set<ZAVDatabaseIdentifier> seen_;
};

}  // namespace zav
