#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVEvent.h>

#include "EventReader.h"

namespace zavevents {

/// Finds the events that `import` would not read back from their lines as they are stored, and why.
///
/// What reading an event into a record loses is looked for in the tables; what its line loses, in the record;
/// what `import` would refuse, by reading the line.
class ReadBackCheck {
public:
    /// Looks through the tables.
    /// @throws ToolError
    explicit ReadBackCheck(zav::FMDatabase& database);

    /// Finds events that `import` would take for one another.
    /// @param events in the order of their lines; `isSequenced` says which of them the service has
    /// sequenced.
    void findTwins(const std::vector<std::shared_ptr<zav::ZAVEvent>>& events,
                   const std::vector<bool>& isSequenced);

    /// Why the event is not read back as it is; empty when it is.
    [[nodiscard]] std::string reasonsFor(const zav::ZAVEvent& event, std::string_view line);

private:
    void note(zav::ZAVDatabaseIdentifier event, const std::string& reason);

    EventReader reader_;
    std::unordered_map<zav::ZAVDatabaseIdentifier, std::string> reasons_;
};

}  // namespace zavevents
