#include "Command.h"

namespace zavevents {
namespace {

using namespace zav;

struct DeleteStreamOptions {
    std::int64_t streamRow = 0;
    ClientOptions client;
};

void deleteStream(ZAVEventStore& store, const DeleteStreamOptions& options) {
    ZAVError error;
    const bool isThere =
        required(store.deleteStream(options.streamRow, &error), "cannot delete the stream", error);
    std::cout << (isThere ? 1 : 0) << " stream deleted with all that belongs to it\n";
}

}  // namespace

void addDeleteStreamCommand(CLI::App& app, Invocation& invocation) {
    const Command<DeleteStreamOptions> command(app, invocation, "delete-stream",
                                               "Delete a stream with its events and all that belongs to them",
                                               "--stream-row 2 --cache ~/.cache/ZAVEventRepository");
    auto& [streamRow, client] = command.options();
    addOption(command.parser(), "--stream-row", streamRow, row(), "Row of the stream")->required();
    addCacheOption(command.parser(), client);
    command.doesInClientStore(deleteStream);
}

}  // namespace zavevents
