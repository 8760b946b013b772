#include <ZAVEventRepository/ZAVTimeline.h>

#include <utility>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Private/Model/Repositories/Internal/ZAVEventRepositoryProjections.h"
#include "Store/Internal/ZAVTimelineQuestion.h"
#include "Store/Internal/ZAVTimelineReader.h"

namespace zav {

ZAVTimeline::ZAVTimeline(ZAVEventStore& store, const ZAVUUID& stream, ZAVTimelineOptions options)
    : store_(store), uuid_(stream), options_(std::move(options)) {}

ZAVTimeline::ZAVTimeline(ZAVEventStore& store, ZAVDatabaseIdentifier stream, ZAVTimelineOptions options)
    : store_(store), row_(stream), options_(std::move(options)) {}

template <class Read>
std::optional<ZAVTimelinePage> ZAVTimeline::page(const Read& read, ZAVError* error) const {
    const auto question = ZAVTimelineQuestion::of(uuid_, row_, options_, error);
    if (!question) {
        return std::nullopt;
    }
    std::optional<ZAVTimelinePage> page;
    const auto work = [&](const ZAVRepositories& repositories) {
        if (const auto stream = question->streamIn(repositories, error)) {
            page = read(ZAVTimelineReader(repositories, *stream, question->types));
        }
    };
    if (!store_.read(work, error)) {
        return std::nullopt;
    }
    return page;
}

std::optional<ZAVTimelinePage> ZAVTimeline::latest(std::size_t count, ZAVError* error) const {
    return page([&](const ZAVTimelineReader& reader) { return reader.latest(count, error); }, error);
}

std::optional<ZAVTimelinePage> ZAVTimeline::before(const ZAVTimelineCursor& cursor, std::size_t count,
                                                   ZAVError* error) const {
    return page([&](const ZAVTimelineReader& reader) { return reader.before(cursor, count, error); }, error);
}

std::optional<ZAVTimelinePage> ZAVTimeline::after(const ZAVTimelineCursor& cursor, std::size_t count,
                                                  ZAVError* error) const {
    return page([&](const ZAVTimelineReader& reader) { return reader.after(cursor, count, error); }, error);
}

std::optional<ZAVTimelinePage> ZAVTimeline::around(ZAVSequence seq, std::size_t count,
                                                   ZAVError* error) const {
    return page([&](const ZAVTimelineReader& reader) { return reader.around(seq, count, error); }, error);
}

std::optional<ZAVTimelinePage> ZAVTimeline::between(const std::optional<ZAVTimelineCursor>& first,
                                                    const std::optional<ZAVTimelineCursor>& last,
                                                    ZAVError* error) const {
    return page([&](const ZAVTimelineReader& reader) { return reader.between(first, last, error); }, error);
}

bool ZAVTimeline::replay(const std::function<bool(const std::shared_ptr<ZAVEvent>& event)>& visit,
                         ZAVError* error) const {
    ZAVError failure;
    const auto work = [&](const ZAVRepositories& repositories) {
        const auto stream = ZAVTimelineQuestion{uuid_, row_}.streamIn(repositories, &failure);
        if (!stream) {
            return;
        }
        auto rows = runQuery(repositories.events.database(), &failure, projections::replayed, *stream);
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
