#include "Command.h"
#include "EventWriter.h"
#include "ExactExpirations.h"
#include "Output.h"

namespace zavevents {
namespace {

using namespace zav;

struct OutboxOptions {
    ZAVOutboxOptions outbox;
    ClientOptions client;
};

void writeOutbox(ZAVEventStore& store, const OutboxOptions& options) {
    Output output;
    ZAVError error;
    store.read(
        [&](const ZAVRepositories& repositories) {
            const auto events = store.outbox(options.outbox, &error);
            require(events.has_value(), "cannot read the events", error);
            ExactExpirations expirations(repositories.events.database(), false);
            for (const auto& event : *events) {
                expirations.restore(*event);
                appendEvent(*event, false, output.text());
                output.flushIfLarge();
            }
        },
        &error);
    require(!error, "cannot read the events", error);
    output.flush();
}

}  // namespace

void addOutboxCommand(CLI::App& app, Invocation& invocation) {
    const Command<OutboxOptions> command(
        app, invocation, "outbox", "Write the events that can be sent to the service, in their order", "");
    command.parser().add_flag("--hold-back", command.options().outbox.holdsBackBehindUploads,
                              "Leave out what follows a message of its stream that is still being uploaded");
    command.doesInClientStore(writeOutbox);
}

}  // namespace zavevents
