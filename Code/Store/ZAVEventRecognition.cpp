#include <ZAVEventRepository/ZAVEventRecognition.h>

#include <algorithm>
#include <utility>

#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {
namespace {

/// With fewer events of one `client_id`, reading them again is cheap, and keeping them would make memory grow
/// with what is stored.
constexpr std::size_t worthKeeping = 16;

constexpr auto leastRow = std::numeric_limits<ZAVDatabaseIdentifier>::min();

}  // namespace

ZAVEventRecognition::ZAVEventRecognition(std::shared_ptr<FMDatabase> database,
                                         std::optional<std::string> userID)
    : database_(std::move(database)), userID_(std::move(userID)) {}

std::optional<bool> ZAVEventRecognition::begin(ZAVError* error) {
    const auto version = readNumber(*database_, error, "PRAGMA data_version");
    if (!version) {
        return std::nullopt;
    }
    const bool othersWrote = version_ && version_ != version;
    version_ = version;
    if (othersWrote) {
        streams_.clear();
        clients_.clear();
    } else {
        std::erase_if(clients_, [](const auto& client) { return client.second.size() < worthKeeping; });
    }
    return othersWrote;
}

std::optional<ZAVEventRecognition::Answer> ZAVEventRecognition::recognise(const ZAVEvent& event,
                                                                          ZAVDatabaseIdentifier stream,
                                                                          ZAVError* error) {
    if (!event.seqIsSet()) {
        return byClientID(event, stream, error);
    }
    const Stream* const known = streamAt(stream, error);
    if (known == nullptr) {
        return std::nullopt;
    }
    if (event.seq() <= known->greatestSeq) {
        if (auto answer = atSequence(event, stream, error); !answer || answer->row) {
            return answer;
        }
    }
    return known->hasWaiting ? byClientID(event, stream, error) : Answer();
}

std::optional<ZAVEventRecognition::Answer> ZAVEventRecognition::waitingTwin(const ZAVEvent& event,
                                                                            ZAVDatabaseIdentifier stream,
                                                                            ZAVError* error) {
    const Stream* const known = streamAt(stream, error);
    if (known == nullptr) {
        return std::nullopt;
    }
    return known->hasWaiting ? byClientID(event, stream, error) : Answer();
}

void ZAVEventRecognition::noteStored(const ZAVEvent& event) {
    const ZAVDatabaseIdentifier row = event.streamDatabaseIdentifier();
    if (const auto stream = streams_.find(row); stream != streams_.end()) {
        if (event.seqIsSet()) {
            stream->second.greatestSeq = std::max<std::int64_t>(stream->second.greatestSeq, event.seq());
        } else {
            stream->second.hasWaiting = true;
        }
    }
    if (const auto client = clients_.find(*event.client_id()); client != clients_.end()) {
        client->second.emplace(row, authorOf(event.creator_id()), event.seqIsSet(),
                               event.databaseIdentifier());
    }
}

std::optional<ZAVEventRecognition::Answer> ZAVEventRecognition::atSequence(const ZAVEvent& event,
                                                                           ZAVDatabaseIdentifier stream,
                                                                           ZAVError* error) {
    Answer answer;
    const auto take = [&](const FMResultSet& stored) {
        answer.row = stored.longLongIntForColumnIndex(0);
        auto clientID = stored.dataForColumnIndex(1);
        if (clientID != event.client_id()) {
            answer.conflictingClientID = std::move(clientID).value_or(ZAVData());
        } else if (const auto client = clients_.find(*event.client_id()); client != clients_.end()) {
            client->second.erase({stream, authorOf(stored.stringForColumnIndex(2)), true, *answer.row});
        }
    };
    const bool succeeded = visitRows(*database_, error,
                                     "SELECT database_identifier, client_id, creator_id FROM events"
                                     " WHERE stream_database_identifier = ? AND seq = ? LIMIT 1",
                                     take, stream, event.seq());
    return succeeded ? std::optional(std::move(answer)) : std::nullopt;
}

std::optional<ZAVEventRecognition::Answer> ZAVEventRecognition::byClientID(const ZAVEvent& event,
                                                                           ZAVDatabaseIdentifier stream,
                                                                           ZAVError* error) {
    Keys* const events = eventsOf(*event.client_id(), error);
    if (events == nullptr) {
        return std::nullopt;
    }
    Answer answer;
    // The service names the author of what a user sends: a sequenced event without one is not the user's.
    const bool hasAuthor = event.creator_id() || !event.seqIsSet();
    const auto& author = authorOf(event.creator_id());
    const auto found = events->lower_bound({stream, author, false, leastRow});
    if (hasAuthor && found != events->end() && std::get<0>(*found) == stream &&
        std::get<1>(*found) == author && !(event.seqIsSet() && std::get<2>(*found))) {
        answer.row = std::get<3>(*found);
        answer.isWaiting = !std::get<2>(*found);
        events->erase(found);
        return answer;
    }
    if (!hasAuthor || userID_) {
        return answer;
    }
    // With an author, it may be an event that has none; without one, an event that has any.
    const auto other = events->lower_bound({stream, std::nullopt, false, leastRow});
    if (other != events->end() && std::get<0>(*other) == stream && !(author && std::get<1>(*other)) &&
        !(event.seqIsSet() && std::get<2>(*other))) {
        answer.passedOver = std::get<3>(*other);
    }
    return answer;
}

const ZAVEventRecognition::Stream* ZAVEventRecognition::streamAt(ZAVDatabaseIdentifier row, ZAVError* error) {
    if (const auto known = streams_.find(row); known != streams_.end()) {
        return &known->second;
    }
    Stream stream;
    const auto take = [&stream](const FMResultSet& last) {
        if (last.boolForColumnIndex(1)) {  // sorts behind all numbers: each of them is looked for then
            stream.greatestSeq = std::numeric_limits<std::int64_t>::max();
        } else if (!last.columnIndexIsNull(0)) {
            stream.greatestSeq = last.longLongIntForColumnIndex(0);
        }
        stream.hasWaiting = last.boolForColumnIndex(2);
    };
    const bool succeeded =
        visitRows(*database_, error,
                  "SELECT seq, typeof(seq) IN ('text', 'blob'), EXISTS"
                  " (SELECT 1 FROM events WHERE stream_database_identifier = ? AND seq IS NULL)"
                  " FROM events WHERE stream_database_identifier = ? ORDER BY seq DESC LIMIT 1",
                  take, row, row);
    return succeeded ? &streams_.emplace(row, stream).first->second : nullptr;
}

ZAVEventRecognition::Keys* ZAVEventRecognition::eventsOf(const ZAVData& clientID, ZAVError* error) {
    if (const auto known = clients_.find(clientID); known != clients_.end()) {
        return &known->second;
    }
    Keys events;
    const auto take = [&](const FMResultSet& row) {
        events.emplace(row.longLongIntForColumnIndex(0), authorOf(row.stringForColumnIndex(1)),
                       row.boolForColumnIndex(2), row.longLongIntForColumnIndex(3));
    };
    const bool succeeded = visitRows(
        *database_, error,
        "SELECT stream_database_identifier, creator_id, seq IS NOT NULL, database_identifier FROM events"
        " WHERE client_id = ?",
        take, clientID);
    return succeeded ? &clients_.emplace(clientID, std::move(events)).first->second : nullptr;
}

}  // namespace zav
