#include "EventRecognition.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "Rows.h"

namespace zavevents {

using namespace zav;

namespace {

/// With fewer events of one `client_id`, reading them again is cheap, and keeping them would make memory grow
/// with what is imported.
constexpr std::size_t worthKeeping = 16;

constexpr const char* cannotLook = "cannot look for a stored event";

}  // namespace

EventRecognition::EventRecognition(std::shared_ptr<FMDatabase> database, std::optional<std::string> userID)
    : database_(std::move(database)), userID_(std::move(userID)) {}

bool EventRecognition::begin() {
    const std::int64_t version = queryNumber(*database_, cannotLook, "PRAGMA data_version");
    const bool othersWrote = version_ && *version_ != version;
    version_ = version;
    if (othersWrote) {
        streams_.clear();
        clients_.clear();
    } else {
        std::erase_if(clients_, [](const auto& client) { return client.second.size() < worthKeeping; });
    }
    return othersWrote;
}

EventRecognition::Answer EventRecognition::recognise(const ZAVEvent& event, ZAVDatabaseIdentifier stream) {
    if (!event.seqIsSet()) {
        return byClientID(event, stream);
    }
    const Stream& known = streamAt(stream);
    if (event.seq() <= known.greatestSeq) {
        if (Answer answer = atSequence(event, stream); answer.row) {
            return answer;
        }
    }
    return known.hasWaiting ? byClientID(event, stream) : Answer();
}

void EventRecognition::noteStored(const ZAVEvent& event) {
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

EventRecognition::Answer EventRecognition::atSequence(const ZAVEvent& event, ZAVDatabaseIdentifier stream) {
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
    forEachRow(*database_, cannotLook,
               "SELECT database_identifier, client_id, creator_id FROM events"
               " WHERE stream_database_identifier = ? AND seq = ? LIMIT 1",
               take, stream, event.seq());
    return answer;
}

EventRecognition::Answer EventRecognition::byClientID(const ZAVEvent& event, ZAVDatabaseIdentifier stream) {
    constexpr auto leastRow = std::numeric_limits<ZAVDatabaseIdentifier>::min();
    Keys& events = eventsOf(*event.client_id());
    Answer answer;
    // The service names the author of what a user sends: a sequenced event without one is not the user's.
    const bool hasAuthor = event.creator_id() || !event.seqIsSet();
    const auto& author = authorOf(event.creator_id());
    const auto found = events.lower_bound({stream, author, false, leastRow});
    if (hasAuthor && found != events.end() && std::get<0>(*found) == stream &&
        std::get<1>(*found) == author && !(event.seqIsSet() && std::get<2>(*found))) {
        answer.row = std::get<3>(*found);
        events.erase(found);
        return answer;
    }
    if (!hasAuthor || userID_) {
        return answer;
    }
    // With an author, it may be an event that has none; without one, an event that has any.
    const auto other = events.lower_bound({stream, std::nullopt, false, leastRow});
    if (other != events.end() && std::get<0>(*other) == stream && !(author && std::get<1>(*other)) &&
        !(event.seqIsSet() && std::get<2>(*other))) {
        answer.passedOver = std::get<3>(*other);
    }
    return answer;
}

EventRecognition::Stream& EventRecognition::streamAt(ZAVDatabaseIdentifier row) {
    const auto [stream, isNew] = streams_.try_emplace(row);
    if (isNew) {
        const auto take = [&known = stream->second](const FMResultSet& last) {
            if (last.boolForColumnIndex(1)) {  // sorts behind all numbers: each of them is looked for then
                known.greatestSeq = std::numeric_limits<std::int64_t>::max();
            } else if (!last.columnIndexIsNull(0)) {
                known.greatestSeq = last.longLongIntForColumnIndex(0);
            }
            known.hasWaiting = last.boolForColumnIndex(2);
        };
        forEachRow(*database_, cannotLook,
                   "SELECT seq, typeof(seq) IN ('text', 'blob'), EXISTS"
                   " (SELECT 1 FROM events WHERE stream_database_identifier = ? AND seq IS NULL)"
                   " FROM events WHERE stream_database_identifier = ? ORDER BY seq DESC LIMIT 1",
                   take, row, row);
    }
    return stream->second;
}

EventRecognition::Keys& EventRecognition::eventsOf(const ZAVData& clientID) {
    if (const auto known = clients_.find(clientID); known != clients_.end()) {
        return known->second;
    }
    Keys events;
    const auto take = [&](const FMResultSet& row) {
        events.emplace(row.longLongIntForColumnIndex(0), authorOf(row.stringForColumnIndex(1)),
                       row.boolForColumnIndex(2), row.longLongIntForColumnIndex(3));
    };
    forEachRow(
        *database_, cannotLook,
        "SELECT stream_database_identifier, creator_id, seq IS NOT NULL, database_identifier FROM events"
        " WHERE client_id = ?",
        take, clientID);
    return clients_.emplace(clientID, std::move(events)).first->second;
}

}  // namespace zavevents
