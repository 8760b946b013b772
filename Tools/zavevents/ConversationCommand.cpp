#include <ZAVEventRepository/ZAVConversationRepository.h>

#include "Command.h"

namespace zavevents {
namespace {

using namespace zav;

struct ConversationOptions {
    std::optional<ZAVUUID> stream;
    std::vector<std::string> members;
};

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

}  // namespace

void addConversationCommand(CLI::App& app, Invocation& invocation) {
    const Command<ConversationOptions> command(
        app, invocation, "conversation",
        "Make the conversation that shows a stream, and add who takes part in it",
        "--stream 48714726-d247-5be7-8537-0a57a788e38b --member ada bruno");
    auto& [stream, members] = command.options();
    addOption(command.parser(), "--stream", stream, uuid(), "The stream's UUID")->required();
    addOption(command.parser(), "--member", members, text(),
              "Members to add; who takes part already stays as recorded");
    command.changes(makeConversation);
}

}  // namespace zavevents
