#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <ZAVEventRepository/ZAVDatabaseRepository.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

/// A stream as it is registered.
struct ZAVRegisteredStream {
    ZAVDatabaseIdentifier row = ZAVDatabaseIdentifierNotSet;  ///< where it is
    std::optional<ZAVUUID> uuid{};  ///< its identifier; none while the service does not know it

    /// Equal when both are.
    friend bool operator==(const ZAVRegisteredStream&, const ZAVRegisteredStream&) = default;
};

/// The registry of streams. An event is stored in a stream that is registered here.
class ZAV_EXPORT ZAVStreamRepository : public ZAVDatabaseRepository {
public:
    /// Sets a repository on an open handle, which it shares.
    /// @throws NSInternalInconsistencyException when there is none.
    using ZAVDatabaseRepository::ZAVDatabaseRepository;

    /// Row of the stream with this identifier; `ZAVDatabaseIdentifierNotSet` when there is none, or on
    /// failure, with the reason in `error`.
    [[nodiscard]] ZAVDatabaseIdentifier streamDatabaseIdentifierForUUID(const ZAVUUID& uuid,
                                                                        ZAVError* error = nullptr) const;

    /// The same, but registers the stream when there is none.
    ZAVDatabaseIdentifier findOrCreateStreamWithUUID(const ZAVUUID& uuid, ZAVError* error = nullptr) const;

    /// Registers a stream that the service does not know yet: its events wait until it gets its identifier.
    ZAVDatabaseIdentifier createStreamWithoutUUID(ZAVError* error = nullptr) const;

    /// Gives a stream the identifier under which the service knows it.
    bool setUUID(const ZAVUUID& uuid, ZAVDatabaseIdentifier streamDatabaseIdentifier,
                 ZAVError* error = nullptr) const;

    /// Records the stream's latest sequence, by which the download queues tell what is recent. No other
    /// operation writes it.
    bool setSeq(ZAVSequence seq, ZAVDatabaseIdentifier streamDatabaseIdentifier,
                ZAVError* error = nullptr) const;

    /// The stream in a row; none when there is none, or on failure, with the reason in `error`.
    [[nodiscard]] std::optional<ZAVRegisteredStream> streamForDatabaseIdentifier(
        ZAVDatabaseIdentifier streamDatabaseIdentifier, ZAVError* error = nullptr) const;

    /// The streams in the rows above one, by their rows; none on failure.
    [[nodiscard]] std::optional<std::vector<ZAVRegisteredStream>> streamsAbove(
        ZAVDatabaseIdentifier streamDatabaseIdentifier, ZAVError* error = nullptr) const;

    /// How many streams there are; none on failure.
    [[nodiscard]] std::optional<std::uint64_t> countOfStreams(ZAVError* error = nullptr) const;
};

}  // namespace zav
