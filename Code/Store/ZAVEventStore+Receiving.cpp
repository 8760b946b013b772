#include <ZAVEventRepository/ZAVEventStore.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Store/Internal/ZAVEventChecks.h"
#include "Store/Internal/ZAVReceiver.h"
#include "Store/Internal/ZAVRecordsBefore.h"
#include "Store/Internal/ZAVSequenceGaps.h"
#include "Store/Internal/ZAVStoreCore.h"
#include "Store/Internal/ZAVStoreErrors.h"

namespace zav {
namespace {

/// Receives the events. False on failure, and when one is refused that may not be, with the reason in
/// `error`.
bool receiveAll(ZAVReceiver& receiver, std::span<const std::shared_ptr<ZAVEvent>> events,
                const ZAVReceiveOptions& options, std::vector<ZAVReceivedEvent>& answers, ZAVError* error) {
    using Outcome = ZAVReceivedEvent::Outcome;
    for (const auto& event : events) {
        ZAVReceivedEvent& answer = answers.emplace_back();
        if (event == nullptr) {
            answer.reason = ZAVErrorOfUnusableEvent("there is no record");
        } else if (!receiver.receive(*event, answer, error)) {
            return false;
        }
        const bool isRefused = answer.outcome == Outcome::refused || answer.outcome == Outcome::conflict;
        if (isRefused && options.refusesAllForOne) {
            ZAVStoreError(error, {answer.reason.domain(), answer.reason.code(),
                                  "event " + std::to_string(answers.size()) + " of " +
                                      std::to_string(events.size()) + ": " + answer.reason.message()});
            return false;
        }
    }
    return receiver.finish(error);
}

}  // namespace

std::optional<std::vector<ZAVReceivedEvent>> ZAVEventStore::receive(
    const ZAVUUID& streamUUID, std::span<const std::shared_ptr<ZAVEvent>> events,
    const ZAVReceiveOptions& options, ZAVError* error) {
    const ZAVStoreOwner& owner = core_->owner();
    if (options.preparesDownloads && (!owner.userID || !owner.appID)) {
        ZAVStoreError(error, ZAVErrorOfStore(ZAVEventStoreErrorBadOption,
                                             "preparesDownloads is on, but the store was opened without "
                                             "userID or appID, which say where files go"));
        return std::nullopt;
    }
    std::vector<ZAVReceivedEvent> answers;
    answers.reserve(events.size());
    ZAVRecordsBefore before(events);
    const auto receiveThem = [&](const ZAVRepositories&) {
        ZAVReceiver receiver(core_->handleOfWork(), owner, options);
        return receiver.begin(streamUUID, error) && receiveAll(receiver, events, options, answers, error);
    };
    if (!write(receiveThem, error)) {
        return std::nullopt;
    }
    before.forget();
    return answers;
}

std::optional<ZAVReceivedEvent> ZAVEventStore::recordPosted(const ZAVUUID& streamUUID,
                                                            const ZAVUUID& clientID, ZAVSequence seq,
                                                            const std::string& creatorID,
                                                            std::int64_t serverTimestamp, ZAVError* error) {
    ZAVReceivedEvent answer;
    const auto record = [&](const ZAVRepositories&) {
        ZAVEvent posted;
        posted.set_client_id(ZAVDataFromUUID(clientID));
        posted.set_seq(seq);
        posted.set_creator_id(creatorID);
        posted.set_server_timestamp(serverTimestamp);
        const ZAVReceiveOptions options;
        ZAVReceiver receiver(core_->handleOfWork(), core_->owner(), options);
        return receiver.begin(streamUUID, error) && receiver.recordPosted(posted, answer, error) &&
               receiver.finish(error);
    };
    return write(record, error) ? std::optional(answer) : std::nullopt;
}

std::optional<std::vector<ZAVSequenceGap>> ZAVEventStore::missingSequences(const ZAVUUID& streamUUID,
                                                                           std::size_t limit,
                                                                           ZAVError* error) {
    std::vector<ZAVSequenceGap> gaps;
    ZAVError failure;
    const auto look = [&](const ZAVRepositories& repositories) {
        // From the newest on: who asks for few wants those near the end.
        auto rows = runQuery(repositories.events.database(), &failure,
                             "SELECT events.seq, streams.seq FROM streams JOIN events"
                             " ON events.stream_database_identifier = streams.database_identifier"
                             " WHERE streams.stream_id = ? AND events.seq IS NOT NULL"
                             " ORDER BY events.seq DESC",
                             streamUUID);
        std::optional<std::int64_t> above;
        while (rows && gaps.size() < limit && rows->nextWithError(&failure)) {
            const std::int64_t seq = rows->longLongIntForColumnIndex(0);
            ZAVAddGapBetween(seq, above.value_or(rows->longLongIntForColumnIndex(1) + 1), gaps);
            above = seq;
        }
    };
    if (!read(look, &failure) || failure) {
        ZAVStoreError(error, failure);
        return std::nullopt;
    }
    return gaps;
}

}  // namespace zav
