#include <ZAVEventRepository/ZAVConversationList.h>

#include "Command.h"
#include "EventWriter.h"
#include "ExactExpirations.h"
#include "ObjectWriter.h"
#include "Output.h"

namespace zavevents {
namespace {

using namespace zav;

struct ConversationsOptions {
    std::optional<std::string> member;
    std::optional<ZAVConversationCursor> after;
    std::uint64_t limit = 50;
    std::uint64_t unreadCap = 100;
    ClientOptions client;
};

ZAVConversationPage readPage(ZAVEventStore& store, const ConversationsOptions& options) {
    ZAVConversationListOptions listOptions;
    listOptions.participant = options.member;
    listOptions.unreadCap = static_cast<std::size_t>(options.unreadCap);
    const ZAVConversationList list(store, listOptions);
    const auto limit = static_cast<std::size_t>(options.limit);
    ZAVError error;
    return required(options.after ? list.after(*options.after, limit, &error) : list.first(limit, &error),
                    "cannot read the conversations", error);
}

void appendConversation(const ZAVConversationSummary& conversation, std::string& text) {
    ObjectWriter object(text);
    object.add("stream_database_identifier", conversation.stream);
    object.add("stream_id", conversation.streamUUID);
    object.add("waiting", conversation.waiting);
    object.add("unread", conversation.unread);
    object.add("cursor", conversation.cursor.text());
    if (conversation.lastEvent != nullptr) {
        object.key("last_event");
        // Those that wait come last in a timeline.
        appendEventObject(*conversation.lastEvent, conversation.waiting == 0, text);
    }
    object.close();
    text += '\n';
}

void writeConversations(ZAVEventStore& store, const ConversationsOptions& options) {
    const ZAVConversationPage page = readPage(store, options);
    Output output;
    ZAVError error;
    store.read(
        [&](const ZAVRepositories& repositories) {
            ExactExpirations expirations(repositories.events.database(), false);
            for (const auto& conversation : page.conversations) {
                if (conversation.lastEvent != nullptr) {
                    expirations.restore(*conversation.lastEvent);
                }
                appendConversation(conversation, output.text());
                output.flushIfLarge();
            }
        },
        &error);
    require(!error, "cannot read the conversations", error);
    output.flush();
}

}  // namespace

void addConversationsCommand(CLI::App& app, Invocation& invocation) {
    const Command<ConversationsOptions> command(
        app, invocation, "conversations",
        "Write the streams with their last events, the newest first, as JSON Lines", "--member ada");
    auto& [member, after, limit, unreadCap, client] = command.options();
    addOption(command.parser(), "--member", member, text(),
              "Count the messages that this member has not read");
    addOption(command.parser(), "--unread-cap", unreadCap, wholeNumber<std::uint64_t>(1, 1000000),
              "Count at most so many in a stream (default: 100)");
    addOption(command.parser(), "--after", after, conversationCursor(),
              "Those that come next behind a cursor");
    addOption(command.parser(), "--limit", limit, wholeNumber<std::uint64_t>(1, 1000000),
              "At most so many streams (default: 50)");
    command.doesInClientStore(writeConversations);
}

}  // namespace zavevents
