#include "Command.h"
#include "EventChanges.h"

namespace zavevents {
namespace {

using namespace zav;

struct DeleteOptions {
    std::vector<std::int64_t> rows;
};

std::string deleteEvents(const std::shared_ptr<FMDatabase>& database, const DeleteOptions& options) {
    return countOfChanged(database, options.rows, &ZAVEventRepository::deleteEvents,
                          "cannot delete the events") +
           " events deleted";
}

}  // namespace

void addDeleteCommand(CLI::App& app, Invocation& invocation) {
    const Command<DeleteOptions> command(app, invocation, "delete", "Delete events; their content parts stay",
                                         "--id 18 19");
    addOption(command.parser(), "--id", command.options().rows, row(), "Rows of the events")->required();
    command.changes(deleteEvents);
}

}  // namespace zavevents
