#include "Command.h"
#include "EventChanges.h"

namespace zavevents {
namespace {

using namespace zav;

struct ProcessedOptions {
    std::vector<std::int64_t> rows;
};

std::string forgetChanges(const std::shared_ptr<FMDatabase>& database, const ProcessedOptions& options) {
    return countOfChanged(database, options.rows, &ZAVEventRepository::deleteUnprocessedEvents,
                          "cannot forget the events' changes") +
           " events processed";
}

}  // namespace

void addProcessedCommand(CLI::App& app, Invocation& invocation) {
    const Command<ProcessedOptions> command(app, invocation, "processed",
                                            "Forget that events wait to be processed", "--id 1 2 3");
    addOption(command.parser(), "--id", command.options().rows, row(), "Rows of the events")->required();
    command.changes(forgetChanges);
}

}  // namespace zavevents
