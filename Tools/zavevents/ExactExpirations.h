#pragma once

#include <cstdint>
#include <map>
#include <utility>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVEvent.h>

namespace zavevents {

/// The exact expirations of stored parts whose records hold them as whole seconds since 1970: those with a
/// fraction, before that, or beyond the seconds that 63 bits count.
class ExactExpirations {
public:
    /// @param database an open handle, which outlives this.
    /// @param ofAll whether to look through the table once, for many events, or at each event's parts.
    /// @throws ToolError like what follows, when the database cannot be read.
    ExactExpirations(zav::FMDatabase& database, bool ofAll);

    /// Sets them in an event that was read.
    void restore(zav::ZAVEvent& event);

private:
    void take(const zav::FMResultSet& row);

    zav::FMDatabase& database_;
    bool ofAll_;
    std::map<std::pair<zav::ZAVDatabaseIdentifier, std::int64_t>, zav::ZAVDate>
        expirations_;  ///< by event and index
};

}  // namespace zavevents
