// The commands on the rows that an application keeps beside the events: conversations, who takes part in
// them, and messages.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVConversationRepository.h>
#include <ZAVEventRepository/ZAVMessageRepository.h>

#include "StoreCommand.h"

namespace zavevents {
namespace {

using namespace zav;

struct ConversationOptions {
    std::optional<ZAVUUID> stream;
    std::vector<std::string> members;
    std::string member;
    std::int64_t event = 0;
    ZAVSequence seq = 0;
};

using ConversationCommand = StoreCommand<ConversationOptions>;

std::string makeConversation(const std::shared_ptr<FMDatabase>& database,
                             const ConversationOptions& options) {
    const ZAVConversationRepository conversations(database);
    ZAVError error;
    const auto row = conversations.findOrCreateConversationWithStreamUUID(*options.stream, &error);
    require(row != ZAVDatabaseIdentifierNotSet, "cannot make the conversation", error);
    int added = 0;
    for (const std::string& member : options.members) {
        require(conversations.addParticipant(member, row, &error), "cannot add a participant", error);
        added += database->changes();
    }
    return "conversation " + std::to_string(row) + ": " + std::to_string(added) + " participants added";
}

std::string makeMessage(const std::shared_ptr<FMDatabase>& database, const ConversationOptions& options) {
    static_cast<void>(eventInRow(ZAVEventRepository(database), options.event));
    ZAVError error;
    const auto message =
        ZAVMessageRepository(database).findOrCreateMessageForEventDatabaseIdentifier(options.event, &error);
    require(message != nullptr, "cannot make the message", error);
    return std::to_string(message->databaseIdentifier());
}

std::string recordParticipantSeq(const std::shared_ptr<FMDatabase>& database,
                                 const ConversationOptions& options) {
    const ZAVEventRepository repository(database);
    ZAVError error;
    if (!repository.persistConversationsParticipantsSeq(options.seq, options.member, *options.stream,
                                                        &error)) {
        throw error ? ToolError("cannot record the sequence", error)
                    : ToolError("the stream " + options.stream->UUIDString() + " has no conversation");
    }
    return lastChanges(*database, "participant updated");
}

std::string recordMessageSeq(const std::shared_ptr<FMDatabase>& database,
                             const ConversationOptions& options) {
    const ZAVEventRepository repository(database);
    ZAVError error;
    require(repository.persistMessageSeq(options.seq, options.event, &error), "cannot record the sequence",
            error);
    return lastChanges(*database, "message updated");
}

}  // namespace

void addConversationCommands(CLI::App& app, Action& action) {
    const ConversationCommand conversation(
        app, "conversation", "Make the conversation that shows a stream, and add who takes part in it",
        "--stream 48714726-d247-5be7-8537-0a57a788e38b --member ada bruno");
    addOption(conversation.command(), "--stream", conversation.options().stream, uuid(), "The stream's UUID")
        ->required();
    addOption(conversation.command(), "--member", conversation.options().members, text(),
              "Members to add; who takes part already stays as recorded");
    conversation.does(action, makeConversation);

    const ConversationCommand message(
        app, "message", "Make the message that an event carries, and print its row", "--event 17");
    addOption(message.command(), "--event", message.options().event, row(), "Row of the event")->required();
    message.does(action, makeMessage);

    const ConversationCommand participantSeq(
        app, "participant-seq", "Record how far a member of a conversation has progressed",
        "--stream 48714726-d247-5be7-8537-0a57a788e38b --member ada --seq 12");
    addOption(participantSeq.command(), "--stream", participantSeq.options().stream, uuid(),
              "The stream's UUID")
        ->required();
    addOption(participantSeq.command(), "--member", participantSeq.options().member, text(), "The member")
        ->required();
    addOption(participantSeq.command(), "--seq", participantSeq.options().seq, assignedSequence(),
              "The sequence")
        ->required();
    participantSeq.does(action, recordParticipantSeq);

    const ConversationCommand messageSeq(app, "message-seq",
                                         "Record the sequence of the message that an event carries",
                                         "--event 17 --seq 12");
    addOption(messageSeq.command(), "--event", messageSeq.options().event, row(), "Row of the event")
        ->required();
    addOption(messageSeq.command(), "--seq", messageSeq.options().seq, assignedSequence(), "The sequence")
        ->required();
    messageSeq.does(action, recordMessageSeq);
}

}  // namespace zavevents
