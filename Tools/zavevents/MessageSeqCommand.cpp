#include "Command.h"
#include "EventChanges.h"

namespace zavevents {
namespace {

using namespace zav;

struct MessageSeqOptions {
    std::int64_t event = 0;
    ZAVSequence seq = 0;
    WholeOption whole;
};

std::string recordMessageSeq(const std::shared_ptr<FMDatabase>& database, const MessageSeqOptions& options) {
    ZAVError error;
    require(ZAVEventRepository(database).persistMessageSeq(options.seq, options.event, &error),
            "cannot record the sequence", error);
    return lastChanges(*database, "message updated");
}

std::string advanceMessageSeq(ZAVEventStore& store, const MessageSeqOptions& options) {
    ZAVError error;
    const bool isRecorded = required(
        store.recordMessageSeq(options.event, options.seq, ZAVEventStore::SequenceChange::forward, &error),
        "cannot record the sequence", error);
    return std::string(isRecorded ? "1" : "0") + " message updated";
}

}  // namespace

void addMessageSeqCommand(CLI::App& app, Invocation& invocation) {
    const Command<MessageSeqOptions> command(app, invocation, "message-seq",
                                             "Record the sequence of the message that an event carries",
                                             "--event 17 --seq 12");
    auto& [event, seq, whole] = command.options();
    addOption(command.parser(), "--event", event, row(), "Row of the event")->required();
    addOption(command.parser(), "--seq", seq, assignedSequence(), "The sequence")->required();
    addWholeOption(command.parser(), whole, "Record it only where none that is as great stands");
    command.changesOrWhole(recordMessageSeq, advanceMessageSeq);
}

}  // namespace zavevents
