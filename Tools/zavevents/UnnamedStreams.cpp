#include "UnnamedStreams.h"

#include <limits>

#include "Rows.h"

namespace zavevents {

using namespace zav;

namespace {

constexpr std::int64_t waiting = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t anySequence = std::numeric_limits<std::int64_t>::max();

/// As for `ZAVEventRecognition`: fewer are cheap to read again.
constexpr std::size_t eventsWorthKeeping = 16;

}  // namespace

UnnamedStreams::UnnamedStreams(std::shared_ptr<FMDatabase> database, const ZAVEventRecognition& recognition)
    : recognition_(recognition), repository_(std::move(database)) {}

void UnnamedStreams::begin(bool othersWrote) {
    if (!newestRowBefore_) {
        newestRowBefore_ = newestEventRow(repository_.database());
    }
    std::erase_if(clients_, [othersWrote](const auto& client) {
        return othersWrote || client.second.events < eventsWorthKeeping;
    });
}

ZAVDatabaseIdentifier UnnamedStreams::streamOf(const ReadEvent& read) {
    const auto known = streams_.find(read.unnamedStream);
    if (known != streams_.end() && !known->second.isNew) {
        return known->second.row;
    }
    if (const auto stored = streamOfStored(*read.event)) {
        streams_.insert_or_assign(read.unnamedStream, Stream{*stored, false});
        taken_.insert(*stored);
        return *stored;
    }
    if (known != streams_.end()) {
        return known->second.row;
    }
    ZAVError error;
    const ZAVDatabaseIdentifier row = repository_.createStreamWithoutUUID(&error);
    require(!error, "cannot register a stream", error);
    streams_.emplace(read.unnamedStream, Stream{row, true});
    return row;
}

std::optional<ZAVDatabaseIdentifier> UnnamedStreams::streamOfStored(const ZAVEvent& event) {
    if (newestRowBefore_ == ZAVDatabaseIdentifier{0}) {
        return std::nullopt;
    }
    Candidates& candidates = candidatesFor(*event.client_id());
    const auto& author = recognition_.authorOf(event.creator_id());
    if (event.seqIsSet()) {
        if (const auto row = firstFree(candidates, {author, event.seq()})) {
            return row;
        }
        return event.creator_id() ? firstFree(candidates, {author, waiting}) : std::nullopt;
    }
    const auto row = firstFree(candidates, {author, waiting});
    return row ? row : firstFree(candidates, {author, anySequence});
}

/// The first of the streams that no other number has got.
std::optional<ZAVDatabaseIdentifier> UnnamedStreams::firstFree(Candidates& candidates, const Key& key) {
    const auto found = candidates.streams.find(key);
    if (found == candidates.streams.end()) {
        return std::nullopt;
    }
    auto& rows = found->second;
    while (!rows.empty() && taken_.contains(rows.front())) {
        rows.pop_front();
    }
    return rows.empty() ? std::nullopt : std::optional(rows.front());
}

UnnamedStreams::Candidates& UnnamedStreams::candidatesFor(const ZAVData& clientID) {
    const auto [client, isNew] = clients_.try_emplace(clientID);
    Candidates& candidates = client->second;
    if (!isNew) {
        return candidates;
    }
    const auto take = [&](const FMResultSet& event) {
        ++candidates.events;
        const ZAVDatabaseIdentifier stream = event.longLongIntForColumnIndex(0);
        const auto creator = event.stringForColumnIndex(1);
        const auto& author = recognition_.authorOf(creator);
        const bool waits = event.columnIndexIsNull(2);
        const std::int64_t seq = waits ? waiting : event.longLongIntForColumnIndex(2);
        candidates.streams[{author, seq}].push_back(stream);
        if (!waits) {
            candidates.streams[{author, anySequence}].push_back(stream);
        }
    };
    forEachRow(repository_.database(), "cannot look for a stored stream",
               "SELECT stream_database_identifier, creator_id, events.seq FROM events JOIN streams"
               " ON (streams.database_identifier = events.stream_database_identifier)"
               " WHERE client_id = ? AND events.database_identifier <= ?"
               " ORDER BY stream_id IS NOT NULL, events.database_identifier",
               take, clientID, *newestRowBefore_);
    return candidates;
}

}  // namespace zavevents
