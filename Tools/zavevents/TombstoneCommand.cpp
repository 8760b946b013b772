#include "Command.h"
#include "EventChanges.h"

namespace zavevents {
namespace {

using namespace zav;

struct TombstoneOptions {
    std::int64_t streamRow = 0;
    ZAVSequence seq = 0;
    WholeOption whole;
};

std::string tombstoneEvent(const std::shared_ptr<FMDatabase>& database, const TombstoneOptions& options) {
    ZAVError error;
    require(ZAVEventRepository(database).persistTombstoneEventWithTargetSeq(options.seq, options.streamRow,
                                                                            &error),
            "cannot tombstone the event", error);
    return lastChanges(*database, "event tombstoned");
}

std::string tombstoneEventWholly(ZAVEventStore& store, const TombstoneOptions& options) {
    ZAVError error;
    const bool isThere = required(store.makeTombstone(options.streamRow, options.seq, &error),
                                  "cannot tombstone the event", error);
    return std::string(isThere ? "1" : "0") + " event tombstoned without what belonged to it";
}

}  // namespace

void addTombstoneCommand(CLI::App& app, Invocation& invocation) {
    const Command<TombstoneOptions> command(app, invocation, "tombstone", "Turn an event into a tombstone",
                                            "--stream-row 1 --seq 5");
    auto& [streamRow, seq, whole] = command.options();
    addOption(command.parser(), "--stream-row", streamRow, row(), "Row of the stream")->required();
    addOption(command.parser(), "--seq", seq, sequence(), "The event's sequence")->required();
    addWholeOptionWithCache(command.parser(), whole,
                            "Delete its parts, metadata, recorded changes, messages and files too");
    command.changesOrWhole(tombstoneEvent, tombstoneEventWholly);
}

}  // namespace zavevents
