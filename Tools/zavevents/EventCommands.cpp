// The commands that change single events.

#include <memory>
#include <string>
#include <vector>

#include "StoreCommand.h"

namespace zavevents {
namespace {

using namespace zav;

struct EventOptions {
    std::int64_t row = 0;
    std::vector<std::int64_t> rows;
    std::int64_t streamRow = 0;
    ZAVSequence seq = 0;
    std::int64_t timestamp = 0;
    std::string creator;
};

using EventCommand = StoreCommand<EventOptions>;

/// Applies an operation on events to each row by itself, and counts the rows for which it changed anything:
/// the database tells of the last statement only.
template <class Operation>
std::size_t countOfChanged(const ZAVEventRepository& repository, const std::vector<std::int64_t>& rows,
                           const std::string& failure, Operation operation) {
    std::size_t count = 0;
    for (const std::int64_t row : rows) {
        ZAVError error;
        const auto event = std::make_shared<ZAVEvent>(row, ZAVDatabaseIdentifierNotSet);
        require(operation(ZAVSet<ZAVEvent>{event}, &error), failure, error);
        count += repository.database().changes() != 0 ? 1 : 0;
    }
    return count;
}

std::string recordSequence(const std::shared_ptr<FMDatabase>& database, const EventOptions& options) {
    const ZAVEventRepository repository(database);
    const auto event = eventInRow(repository, options.row);
    event->set_seq(options.seq);
    event->set_creator_id(options.creator);
    event->set_server_timestamp(options.timestamp);
    require(repository.updateObject(*event), "cannot record the sequence", database->lastError());
    return lastChanges(*database, "event sequenced");
}

std::string tombstoneEvent(const std::shared_ptr<FMDatabase>& database, const EventOptions& options) {
    const ZAVEventRepository repository(database);
    ZAVError error;
    require(repository.persistTombstoneEventWithTargetSeq(options.seq, options.streamRow, &error),
            "cannot tombstone the event", error);
    return lastChanges(*database, "event tombstoned");
}

std::string deleteEvents(const std::shared_ptr<FMDatabase>& database, const EventOptions& options) {
    const ZAVEventRepository repository(database);
    const auto count = countOfChanged(
        repository, options.rows, "cannot delete the events",
        [&](const auto& events, ZAVError* error) { return repository.deleteEvents(events, error); });
    return std::to_string(count) + " events deleted";
}

std::string forgetChanges(const std::shared_ptr<FMDatabase>& database, const EventOptions& options) {
    const ZAVEventRepository repository(database);
    const auto count = countOfChanged(repository, options.rows, "cannot forget the events' changes",
                                      [&](const auto& events, ZAVError* error) {
                                          return repository.deleteUnprocessedEvents(events, error);
                                      });
    return std::to_string(count) + " events processed";
}

}  // namespace

void addEventCommands(CLI::App& app, Action& action) {
    const EventCommand sequenced(app, "sequence", "Record what the service assigned to a posted event",
                                 "--id 17 --seq 12 --creator ada --timestamp 1760000492000");
    addOption(sequenced.command(), "--id", sequenced.options().row, row(), "Row of the event")->required();
    addOption(sequenced.command(), "--seq", sequenced.options().seq, assignedSequence(),
              "The event's sequence")
        ->required();
    addOption(sequenced.command(), "--creator", sequenced.options().creator, text(), "The event's author")
        ->required();
    addOption(sequenced.command(), "--timestamp", sequenced.options().timestamp, wholeNumber<std::int64_t>(),
              "The service's time")
        ->required();
    sequenced.does(action, recordSequence);

    const EventCommand tombstone(app, "tombstone", "Turn an event into a tombstone",
                                 "--stream-row 1 --seq 5");
    addOption(tombstone.command(), "--stream-row", tombstone.options().streamRow, row(), "Row of the stream")
        ->required();
    addOption(tombstone.command(), "--seq", tombstone.options().seq, sequence(), "The event's sequence")
        ->required();
    tombstone.does(action, tombstoneEvent);

    const EventCommand remove(app, "delete", "Delete events; their content parts stay", "--id 18 19");
    addOption(remove.command(), "--id", remove.options().rows, row(), "Rows of the events")->required();
    remove.does(action, deleteEvents);

    const EventCommand processed(app, "processed", "Forget that events wait to be processed", "--id 1 2 3");
    addOption(processed.command(), "--id", processed.options().rows, row(), "Rows of the events")->required();
    processed.does(action, forgetChanges);
}

}  // namespace zavevents
