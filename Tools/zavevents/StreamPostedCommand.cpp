#include <ZAVEventRepository/ZAVPrintable.h>

#include "Command.h"

namespace zavevents {
namespace {

using namespace zav;

struct StreamPostedOptions {
    std::int64_t streamRow = 0;
    std::optional<ZAVUUID> uuid;
    ClientOptions client;
};

void recordStreamPosted(ZAVEventStore& store, const StreamPostedOptions& options) {
    ZAVError error;
    const auto row = store.streamPosted(options.streamRow, *options.uuid, &error);
    if (!row) {
        throw ToolError(ZAVPrintable(error.message()));
    }
    const std::string stream = "stream " + std::to_string(options.streamRow);
    std::cout << (*row == options.streamRow ? stream + " has its UUID\n"
                                            : "what waited in " + stream + " waits in stream " +
                                                  std::to_string(*row) + ", which had the UUID before\n");
}

}  // namespace

void addStreamPostedCommand(CLI::App& app, Invocation& invocation) {
    const Command<StreamPostedOptions> command(
        app, invocation, "stream-posted",
        "Record the UUID under which the service knows a stream that was begun offline",
        "--stream-row 3 --stream c2b9b7de-4f0b-4a52-9d5f-3a1c5d7e9f10");
    auto& [streamRow, uuidOfService, client] = command.options();
    addOption(command.parser(), "--stream-row", streamRow, row(), "Row of the stream")->required();
    addOption(command.parser(), "--stream", uuidOfService, uuid(), "The stream's UUID")->required();
    command.doesInClientStore(recordStreamPosted);
}

}  // namespace zavevents
