#include "Command.h"
#include "EventChanges.h"

namespace zavevents {
namespace {

using namespace zav;

struct TombstoneOptions {
    std::int64_t streamRow = 0;
    ZAVSequence seq = 0;
};

std::string tombstoneEvent(const std::shared_ptr<FMDatabase>& database, const TombstoneOptions& options) {
    ZAVError error;
    require(ZAVEventRepository(database).persistTombstoneEventWithTargetSeq(options.seq, options.streamRow,
                                                                            &error),
            "cannot tombstone the event", error);
    return lastChanges(*database, "event tombstoned");
}

}  // namespace

void addTombstoneCommand(CLI::App& app, Invocation& invocation) {
    const Command<TombstoneOptions> command(app, invocation, "tombstone", "Turn an event into a tombstone",
                                            "--stream-row 1 --seq 5");
    auto& [streamRow, seq] = command.options();
    addOption(command.parser(), "--stream-row", streamRow, row(), "Row of the stream")->required();
    addOption(command.parser(), "--seq", seq, sequence(), "The event's sequence")->required();
    command.changes(tombstoneEvent);
}

}  // namespace zavevents
