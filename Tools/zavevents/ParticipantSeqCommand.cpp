#include "Command.h"
#include "EventChanges.h"

namespace zavevents {
namespace {

using namespace zav;

struct ParticipantSeqOptions {
    std::optional<ZAVUUID> stream;
    std::string member;
    ZAVSequence seq = 0;
    WholeOption whole;
};

std::string recordParticipantSeq(const std::shared_ptr<FMDatabase>& database,
                                 const ParticipantSeqOptions& options) {
    ZAVError error;
    if (!ZAVEventRepository(database).persistConversationsParticipantsSeq(options.seq, options.member,
                                                                          *options.stream, &error)) {
        throw error ? ToolError("cannot record the sequence", error)
                    : ToolError("the stream " + options.stream->UUIDString() + " has no conversation");
    }
    return lastChanges(*database, "participant updated");
}

std::string advanceParticipantSeq(ZAVEventStore& store, const ParticipantSeqOptions& options) {
    ZAVError error;
    const bool isRecorded =
        required(store.recordParticipantSeq(*options.stream, options.member, options.seq,
                                            ZAVEventStore::SequenceChange::forward, &error),
                 "cannot record the sequence", error);
    return std::string(isRecorded ? "1" : "0") + " participant updated";
}

}  // namespace

void addParticipantSeqCommand(CLI::App& app, Invocation& invocation) {
    const Command<ParticipantSeqOptions> command(
        app, invocation, "participant-seq", "Record how far a member of a conversation has progressed",
        "--stream 48714726-d247-5be7-8537-0a57a788e38b --member ada --seq 12");
    auto& [stream, member, seq, whole] = command.options();
    addOption(command.parser(), "--stream", stream, uuid(), "The stream's UUID")->required();
    addOption(command.parser(), "--member", member, text(), "The member")->required();
    addOption(command.parser(), "--seq", seq, assignedSequence(), "The sequence")->required();
    addWholeOption(command.parser(), whole, "Record it only where the member has not come as far before");
    command.changesOrWhole(recordParticipantSeq, advanceParticipantSeq);
}

}  // namespace zavevents
