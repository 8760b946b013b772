#include "Command.h"
#include "EventChanges.h"

namespace zavevents {
namespace {

using namespace zav;

struct SequenceOptions {
    std::int64_t row = 0;
    ZAVSequence seq = 0;
    std::string creator;
    std::int64_t timestamp = 0;
};

std::string recordSequence(const std::shared_ptr<FMDatabase>& database, const SequenceOptions& options) {
    const ZAVEventRepository repository(database);
    const auto event = eventInRow(repository, options.row);
    event->set_seq(options.seq);
    event->set_creator_id(options.creator);
    event->set_server_timestamp(options.timestamp);
    require(repository.updateObject(*event), "cannot record the sequence", database->lastError());
    return lastChanges(*database, "event sequenced");
}

}  // namespace

void addSequenceCommand(CLI::App& app, Invocation& invocation) {
    const Command<SequenceOptions> command(app, invocation, "sequence",
                                           "Record what the service assigned to a posted event",
                                           "--id 17 --seq 12 --creator ada --timestamp 1760000492000");
    auto& [id, seq, creator, timestamp] = command.options();
    addOption(command.parser(), "--id", id, row(), "Row of the event")->required();
    addOption(command.parser(), "--seq", seq, assignedSequence(), "The event's sequence")->required();
    addOption(command.parser(), "--creator", creator, text(), "The event's author")->required();
    addOption(command.parser(), "--timestamp", timestamp, wholeNumber<std::int64_t>(), "The service's time")
        ->required();
    command.changes(recordSequence);
}

}  // namespace zavevents
