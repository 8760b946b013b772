#include <ZAVEventRepository/ZAVTimeline.h>

#include <utility>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Private/Model/Repositories/Internal/ZAVEventRepositoryProjections.h"
#include "Store/Internal/ZAVStoreErrors.h"
#include "Store/Internal/ZAVTimelineReader.h"

namespace zav {
namespace {

constexpr auto replayed = projections::selectEvents(
    " WHERE events.seq IS NOT NULL AND streams.database_identifier = ?"
    " ORDER BY events.preceding_seq, events.creator_id, events.client_seq");

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

ZAVTimeline::ZAVTimeline(ZAVEventStore& store, const ZAVUUID& stream, ZAVTimelineOptions options)
    : store_(store), uuid_(stream), options_(std::move(options)) {}

ZAVTimeline::ZAVTimeline(ZAVEventStore& store, ZAVDatabaseIdentifier stream, ZAVTimelineOptions options)
    : store_(store), row_(stream), options_(std::move(options)) {}

/// The row of the stream; `ZAVDatabaseIdentifierNotSet` for one that is not registered. None on failure, with
/// the reason in `error`.
std::optional<ZAVDatabaseIdentifier> ZAVTimeline::streamIn(const ZAVRepositories& repositories,
                                                           ZAVError* error) const {
    if (!uuid_) {
        return row_;
    }
    ZAVError failure;
    const auto row = repositories.streams.streamDatabaseIdentifierForUUID(*uuid_, &failure);
    if (failure) {
        ZAVStoreError(error, failure);
        return std::nullopt;
    }
    return row;
}

template <class Read>
std::optional<ZAVTimelinePage> ZAVTimeline::page(const Read& read, ZAVError* error) const {
    const auto types = typesAskedFor(options_, error);
    if (!types) {
        return std::nullopt;
    }
    std::optional<ZAVTimelinePage> page;
    ZAVError failure;
    const auto work = [&](const ZAVRepositories& repositories) {
        if (const auto stream = streamIn(repositories, &failure)) {
            page = read(ZAVTimelineReader(repositories, *stream, *types), &failure);
        }
    };
    if (!store_.read(work, &failure) || !page) {
        ZAVStoreError(error, failure);
        return std::nullopt;
    }
    return page;
}

std::optional<ZAVTimelinePage> ZAVTimeline::latest(std::size_t count, ZAVError* error) const {
    return page([&](const ZAVTimelineReader& reader, ZAVError* why) { return reader.latest(count, why); },
                error);
}

std::optional<ZAVTimelinePage> ZAVTimeline::before(const ZAVTimelineCursor& cursor, std::size_t count,
                                                   ZAVError* error) const {
    return page(
        [&](const ZAVTimelineReader& reader, ZAVError* why) { return reader.before(cursor, count, why); },
        error);
}

std::optional<ZAVTimelinePage> ZAVTimeline::after(const ZAVTimelineCursor& cursor, std::size_t count,
                                                  ZAVError* error) const {
    return page(
        [&](const ZAVTimelineReader& reader, ZAVError* why) { return reader.after(cursor, count, why); },
        error);
}

std::optional<ZAVTimelinePage> ZAVTimeline::around(ZAVSequence seq, std::size_t count,
                                                   ZAVError* error) const {
    return page(
        [&](const ZAVTimelineReader& reader, ZAVError* why) { return reader.around(seq, count, why); },
        error);
}

std::optional<ZAVTimelinePage> ZAVTimeline::between(const std::optional<ZAVTimelineCursor>& first,
                                                    const std::optional<ZAVTimelineCursor>& last,
                                                    ZAVError* error) const {
    return page(
        [&](const ZAVTimelineReader& reader, ZAVError* why) { return reader.between(first, last, why); },
        error);
}

bool ZAVTimeline::replay(const std::function<bool(const std::shared_ptr<ZAVEvent>& event)>& visit,
                         ZAVError* error) const {
    ZAVError failure;
    const auto work = [&](const ZAVRepositories& repositories) {
        const auto stream = streamIn(repositories, &failure);
        if (!stream) {
            return;
        }
        auto rows = runQuery(repositories.events.database(), &failure, replayed, *stream);
        while (rows && rows->nextWithError(&failure)) {
            const auto event = repositories.events.objectFromResultSet(*rows, &failure);
            if (failure || !visit(event)) {
                return;
            }
        }
    };
    const bool wasRead = store_.read(work, &failure);
    if (failure) {
        ZAVStoreError(error, failure);
    }
    return wasRead && !failure;
}

}  // namespace zav
