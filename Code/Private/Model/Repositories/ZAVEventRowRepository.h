#pragma once

#include <cstdint>
#include <optional>
#include <set>

#include <ZAVEventRepository/ZAVDatabaseRepository.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>

namespace zav {

/// What the rows of events and content parts hold and neither a record nor an operation of the event
/// repository tells.
class ZAV_EXPORT ZAVEventRowRepository : public ZAVDatabaseRepository {
public:
    /// Sets a repository on an open handle, which it shares.
    /// @throws NSInternalInconsistencyException when there is none.
    using ZAVDatabaseRepository::ZAVDatabaseRepository;

    /// The rows of the events that the service has not sequenced. Their records read as those of events at
    /// the sequence 0 do. None on failure, with the reason in `error`.
    [[nodiscard]] std::optional<std::set<ZAVDatabaseIdentifier>> eventsWithoutSeq(
        ZAVError* error = nullptr) const;

    /// Bytes that content files occupy, of the parts that
    /// `ZAVEventRepository::totalDiskUtilizationOfEventContentPartsWithError` counts, but in 64 bits. None on
    /// failure, with the reason in `error`.
    [[nodiscard]] std::optional<std::int64_t> diskUtilization(ZAVError* error = nullptr) const;
};

}  // namespace zav
