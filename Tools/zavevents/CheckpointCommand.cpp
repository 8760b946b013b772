#include <nlohmann/json.hpp>

#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>

#include "Command.h"

namespace zavevents {
namespace {

using namespace zav;

struct CheckpointOptions {
    bool json = false;
    bool passive = false;
    bool truncates = false;

    [[nodiscard]] ZAVCheckpointMode mode() const {
        return passive     ? ZAVCheckpointMode::passive
               : truncates ? ZAVCheckpointMode::truncate
                           : ZAVCheckpointMode::complete;
    }
};

void checkpoint(const DatabaseFile& file, const CheckpointOptions& options) {
    ZAVError error;
    const auto result = required(ZAVDatabaseMaintenance(openStore(file)).checkpoint(options.mode(), &error),
                                 "cannot fold the log", error);
    if (options.json) {
        const nlohmann::ordered_json report{
            {"frames", result.frames}, {"copied", result.copied}, {"held_up", result.isHeldUp}};
        std::cout << report.dump() << '\n';
    } else {
        std::cout << "the log has " << result.frames << " pages, " << result.copied << " of them in the file"
                  << (result.isHeldUp ? "; another connection held it up" : "") << '\n';
    }
}

}  // namespace

void addCheckpointCommand(CLI::App& app, Invocation& invocation) {
    const Command<CheckpointOptions> command(app, invocation, "checkpoint",
                                             "Fold the write-ahead log into the file", "--truncate");
    CheckpointOptions& options = command.options();
    auto* const passive =
        command.parser().add_flag("--passive", options.passive, "Copy what can be copied without waiting");
    command.parser()
        .add_flag("--truncate", options.truncates, "Have the log take no more than a page afterwards")
        ->excludes(passive);
    command.parser().add_flag("--json", options.json, "Write one JSON object");
    command.does(checkpoint);
}

}  // namespace zavevents
