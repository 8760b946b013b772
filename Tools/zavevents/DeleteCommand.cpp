#include "Command.h"
#include "EventChanges.h"

namespace zavevents {
namespace {

using namespace zav;

struct DeleteOptions {
    std::vector<std::int64_t> rows;
    WholeOption whole;
};

std::string deleteEvents(const std::shared_ptr<FMDatabase>& database, const DeleteOptions& options) {
    return countOfChanged(database, options.rows, &ZAVEventRepository::deleteEvents,
                          "cannot delete the events") +
           " events deleted";
}

std::string deleteEventsWholly(ZAVEventStore& store, const DeleteOptions& options) {
    ZAVError error;
    const auto count = required(store.deleteEvents(options.rows, &error), "cannot delete the events", error);
    return std::to_string(count) + " events deleted with all that belongs to them";
}

}  // namespace

void addDeleteCommand(CLI::App& app, Invocation& invocation) {
    const Command<DeleteOptions> command(app, invocation, "delete", "Delete events; their content parts stay",
                                         "--id 18 19");
    addOption(command.parser(), "--id", command.options().rows, row(), "Rows of the events")->required();
    addWholeOptionWithCache(command.parser(), command.options().whole,
                            "Delete their parts, metadata, recorded changes, messages and files too");
    command.changesOrWhole(deleteEvents, deleteEventsWholly);
}

}  // namespace zavevents
