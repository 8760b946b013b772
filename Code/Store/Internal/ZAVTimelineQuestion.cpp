#include "Store/Internal/ZAVTimelineQuestion.h"

#include <string>

#include "Store/Internal/ZAVStoreErrors.h"

namespace zav {
namespace {

/// The types as bits, and negative when all are asked for that are none of them; none, with the reason in
/// `error`, when a type has no bit.
std::optional<std::int64_t> typesAskedFor(const ZAVTimelineOptions& options, ZAVError* error) {
    constexpr int bits = 63;
    std::uint64_t types = options.types.empty() ? ~std::uint64_t{0} : 0;
    for (const ZAVTEventType type : options.types) {
        if (type < 0 || type >= bits) {
            ZAVStoreError(error, ZAVErrorOfStore(ZAVEventStoreErrorBadOption,
                                                 "the option types has " +
                                                     std::to_string(static_cast<std::int32_t>(type)) +
                                                     ", but a timeline can ask for 0 to 62"));
            return std::nullopt;
        }
        types |= std::uint64_t{1} << static_cast<unsigned>(type);
    }
    const std::uint64_t tombstones = std::uint64_t{1} << static_cast<unsigned>(EventType_TOMBSTONE);
    return static_cast<std::int64_t>(options.tombstones ? types | tombstones : types & ~tombstones);
}

}  // namespace

std::optional<ZAVTimelineQuestion> ZAVTimelineQuestion::of(const std::optional<ZAVUUID>& uuid,
                                                           ZAVDatabaseIdentifier row,
                                                           const ZAVTimelineOptions& options,
                                                           ZAVError* error) {
    const auto types = typesAskedFor(options, error);
    return types ? std::optional(ZAVTimelineQuestion{uuid, row, *types}) : std::nullopt;
}

std::optional<ZAVDatabaseIdentifier> ZAVTimelineQuestion::streamIn(const ZAVRepositories& repositories,
                                                                   ZAVError* error) const {
    if (!uuid) {
        return row;
    }
    ZAVError failure;
    const auto found = repositories.streams.streamDatabaseIdentifierForUUID(*uuid, &failure);
    if (failure) {
        ZAVStoreError(error, failure);
        return std::nullopt;
    }
    return found;
}

}  // namespace zav
