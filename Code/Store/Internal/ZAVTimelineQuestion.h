#pragma once

#include <cstdint>
#include <optional>

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVRepositories.h>
#include <ZAVEventRepository/ZAVTimeline.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

/// Which events of which stream a timeline has.
struct ZAVTimelineQuestion {
    std::optional<ZAVUUID> uuid;  ///< of the stream; none for that in the row
    ZAVDatabaseIdentifier row = ZAVDatabaseIdentifierNotSet;
    std::int64_t types = -1;  ///< as bits; a negative number also asks for types that are none of its bits

    /// None when the options are invalid, with the reason in `error`.
    [[nodiscard]] static std::optional<ZAVTimelineQuestion> of(const std::optional<ZAVUUID>& uuid,
                                                               ZAVDatabaseIdentifier row,
                                                               const ZAVTimelineOptions& options,
                                                               ZAVError* error);

    /// The row of the stream; `ZAVDatabaseIdentifierNotSet` for one that is not registered. None on failure,
    /// with the reason in `error`.
    [[nodiscard]] std::optional<ZAVDatabaseIdentifier> streamIn(const ZAVRepositories& repositories,
                                                                ZAVError* error) const;
};

}  // namespace zav
