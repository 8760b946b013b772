#include <nlohmann/json.hpp>

#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>

#include "Command.h"
#include "ProgressLine.h"
#include "StopSignals.h"

namespace zavevents {
namespace {

using namespace zav;

struct CompactOptions {
    bool json = false;
};

void printCompaction(const ZAVCompaction& result, bool asJSON) {
    if (asJSON) {
        const nlohmann::ordered_json report{{"bytes_before", result.bytesBefore},
                                            {"bytes_after", result.bytesAfter},
                                            {"log_bytes", result.logBytes},
                                            {"held_up", result.isHeldUp}};
        std::cout << report.dump() << '\n';
    } else {
        std::cout << "the database took " << result.bytesBefore << " bytes and takes " << result.bytesAfter
                  << ", " << result.logBytes << " of them for the log"
                  << (result.isHeldUp ? ", which could not be cut off" : "") << '\n';
    }
}

void compact(const DatabaseFile& file, const CompactOptions& options) {
    const StopSignals signals;
    ProgressLine progress;
    ZAVError error;
    const auto result = ZAVDatabaseMaintenance(openStore(file))
                            .compact([&](double share) { progress.showShare(share); },
                                     [&] { return signals.received() != 0; }, &error);
    const bool isDone = result && !result->isHeldUp;
    const int signal = isDone ? 0 : signals.received();
    require(result || error.code() == ZAVDatabaseErrorCancelled, "cannot compact the database", error);
    if (signal != 0) {
        progress.say(
            "zavevents: stopped by " + nameOfSignal(signal) +
            (result ? "\nthe database is compacted, but its log not folded" : "\nthe database is as it was"));
        endBySignal(signal);
    } else {
        progress.finish();
        printCompaction(*result, options.json);
    }
}

}  // namespace

void addCompactCommand(CLI::App& app, Invocation& invocation) {
    const Command<CompactOptions> command(
        app, invocation, "compact", "Give the free pages of the file back to the file system", "--json");
    command.parser().add_flag("--json", command.options().json, "Write one JSON object");
    command.does(compact);
}

}  // namespace zavevents
