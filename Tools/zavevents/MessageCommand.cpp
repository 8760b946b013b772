#include <ZAVEventRepository/ZAVMessageRepository.h>

#include "Command.h"
#include "EventChanges.h"

namespace zavevents {
namespace {

using namespace zav;

struct MessageOptions {
    std::int64_t event = 0;
};

std::string makeMessage(const std::shared_ptr<FMDatabase>& database, const MessageOptions& options) {
    static_cast<void>(eventInRow(ZAVEventRepository(database), options.event));
    ZAVError error;
    const auto message =
        ZAVMessageRepository(database).findOrCreateMessageForEventDatabaseIdentifier(options.event, &error);
    require(message != nullptr, "cannot make the message", error);
    return std::to_string(message->databaseIdentifier());
}

}  // namespace

void addMessageCommand(CLI::App& app, Invocation& invocation) {
    const Command<MessageOptions> command(app, invocation, "message",
                                          "Make the message that an event carries, and print its row",
                                          "--event 17");
    addOption(command.parser(), "--event", command.options().event, row(), "Row of the event")->required();
    command.changes(makeMessage);
}

}  // namespace zavevents
