#include <utility>

#include "Command.h"
#include "EventChanges.h"

namespace zavevents {
namespace {

using namespace zav;

struct SequenceOptions {
    std::int64_t row = 0;
    ZAVSequence seq = 0;
    std::int64_t timestamp = 0;
    WholeOption whole;  // the author is whose client it is: what was posted is the user's own

    [[nodiscard]] const std::string& creator() const { return *whole.client.user; }
};

std::string recordSequence(const std::shared_ptr<FMDatabase>& database, const SequenceOptions& options) {
    const ZAVEventRepository repository(database);
    const auto event = eventInRow(repository, options.row);
    event->set_seq(options.seq);
    event->set_creator_id(options.creator());
    event->set_server_timestamp(options.timestamp);
    require(repository.updateObject(*event), "cannot record the sequence", database->lastError());
    return lastChanges(*database, "event sequenced");
}

/// What tells the service's event in a row from others: its stream and `client_id`.
std::pair<ZAVUUID, ZAVUUID> identityOf(const ZAVEvent& event) {
    const auto stream = event.streamUUID();
    const auto clientID = ZAVUUIDFromData(event.client_id());
    const std::string place = "the event in row " + std::to_string(event.databaseIdentifier());
    if (!stream) {
        throw ToolError(place + " is in a stream without a UUID: 'zavevents stream-posted' records it");
    }
    if (!clientID) {
        throw ToolError(place + " has no client_id that is a UUID");
    }
    return {*stream, *clientID};
}

std::string recordPosted(ZAVEventStore& store, const SequenceOptions& options) {
    std::optional<ZAVReceivedEvent> answer;
    ZAVError error;
    store.write(
        [&](const ZAVRepositories& repositories) {
            const auto [stream, clientID] = identityOf(*eventInRow(repositories.events, options.row));
            answer = store.recordPosted(stream, clientID, options.seq, options.creator(), options.timestamp,
                                        &error);
            return answer.has_value();
        },
        &error);
    require(!error && answer, "cannot record the sequence", error);
    using Outcome = ZAVReceivedEvent::Outcome;
    require(answer->outcome == Outcome::own || answer->outcome == Outcome::known,
            "cannot record the sequence", answer->reason);
    return std::string(answer->outcome == Outcome::own ? "1" : "0") + " event sequenced, which is in row " +
           std::to_string(answer->row);
}

}  // namespace

void addSequenceCommand(CLI::App& app, Invocation& invocation) {
    const Command<SequenceOptions> command(app, invocation, "sequence",
                                           "Record what the service assigned to a posted event",
                                           "--id 17 --seq 12 --creator ada --timestamp 1760000492000");
    auto& [id, seq, timestamp, whole] = command.options();
    addOption(command.parser(), "--id", id, row(), "Row of the event")->required();
    addOption(command.parser(), "--seq", seq, assignedSequence(), "The event's sequence")->required();
    addOption(command.parser(), "--creator", whole.client.user, text(), "The event's author")->required();
    addOption(command.parser(), "--timestamp", timestamp, wholeNumber<std::int64_t>(), "The service's time")
        ->required();
    addWholeOptionWithCache(command.parser(), whole,
                            "Record it whatever else came before: the event itself, or its deletion");
    command.changesOrWhole(recordSequence, recordPosted);
}

}  // namespace zavevents
