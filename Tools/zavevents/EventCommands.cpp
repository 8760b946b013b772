// The commands that change single events, and the rows that mirror them.

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Arguments.h"
#include "Commands.h"
#include "Help.h"
#include "Private/Model/Repositories/ZAVEventRepository.h"
#include "Store.h"
#include "ToolError.h"

namespace zavevents {
namespace {

using namespace zav;

struct EventOptions {
    std::string database;
    std::int64_t row = 0;
    std::vector<std::int64_t> rows;
    std::int64_t streamRow = 0;
    std::int32_t seq = 0;
    std::int64_t timestamp = 0;
    std::string creator;
    std::string stream;
    std::string member;
};

/// A command on an existing store: its options, and what it does with them and the repository.
struct EventCommand {
    CLI::App* command;
    std::shared_ptr<EventOptions> options = std::make_shared<EventOptions>();

    EventCommand(CLI::App& app, const std::string& name, const std::string& description,
                 const std::string& example)
        : command(app.add_subcommand(name, description)) {
        addDatabaseOption(*command, options->database);
        setExample(*command, "chat.db " + example);
    }

    template <class Work>
    void does(Action& action, Work work) const {
        command->callback([kept = options, work, &action] {
            action = [kept, work] { work(ZAVEventRepository(openStore(kept->database)), *kept); };
        });
    }
};

void require(bool succeeded, const std::string& what, const ZAVError& error) {
    if (!succeeded) {
        throw ToolError(what, error);
    }
}

/// Says how many rows the last statement changed.
void printChanges(const ZAVEventRepository& repository, const std::string& what) {
    std::cout << repository.database().changes() << ' ' << what << '\n';
}

std::uint64_t countOfEvents(const ZAVEventRepository& repository) {
    ZAVError error;
    const auto count = repository.countOfEvents(&error);
    require(!error, "cannot count the events", error);
    return count;
}

ZAVSet<ZAVEvent> eventsInRows(const std::vector<std::int64_t>& rows) {
    ZAVSet<ZAVEvent> events;
    for (const std::int64_t row : rows) {
        events.insert(std::make_shared<ZAVEvent>(row, ZAVDatabaseIdentifierNotSet));
    }
    return events;
}

void recordSequence(const ZAVEventRepository& repository, const EventOptions& options) {
    ZAVError error;
    const auto event = repository.eventForDatabaseIdentifier(options.row, &error);
    require(!error, "cannot read the event", error);
    if (event == nullptr) {
        throw ToolError("there is no event in row " + std::to_string(options.row));
    }
    event->set_seq(options.seq);
    event->set_creator_id(options.creator);
    event->set_server_timestamp(options.timestamp);
    require(repository.updateObject(*event), "cannot record the sequence", repository.database().lastError());
    printChanges(repository, "event sequenced");
}

}  // namespace

void addEventCommands(CLI::App& app, Action& action) {
    const EventCommand sequence(app, "sequence", "Record what the service assigned to a posted event",
                                "--id 17 --seq 12 --creator ada --timestamp 1760000492000");
    sequence.command->add_option("--id", sequence.options->row, "Row of the event")
        ->check(isNumber())
        ->required();
    sequence.command->add_option("--seq", sequence.options->seq, "The event's sequence")->required();
    sequence.command->add_option("--creator", sequence.options->creator, "The event's author")->required();
    sequence.command->add_option("--timestamp", sequence.options->timestamp, "The service's time")
        ->check(isNumber())
        ->required();
    sequence.does(action, recordSequence);

    const EventCommand tombstone(app, "tombstone", "Turn an event into a tombstone",
                                 "--stream-row 1 --seq 5");
    tombstone.command->add_option("--stream-row", tombstone.options->streamRow, "Row of the stream")
        ->check(isNumber())
        ->required();
    tombstone.command->add_option("--seq", tombstone.options->seq, "The event's sequence")->required();
    tombstone.does(action, [](const ZAVEventRepository& repository, const EventOptions& options) {
        ZAVError error;
        require(repository.persistTombstoneEventWithTargetSeq(options.seq, options.streamRow, &error),
                "cannot tombstone the event", error);
        printChanges(repository, "event tombstoned");
    });

    const EventCommand remove(app, "delete", "Delete events; their content parts stay", "--id 18 19");
    remove.command->add_option("--id", remove.options->rows, "Rows of the events")
        ->check(isNumber())
        ->required();
    remove.does(action, [](const ZAVEventRepository& repository, const EventOptions& options) {
        ZAVError error;
        const auto before = countOfEvents(repository);
        require(repository.deleteEvents(eventsInRows(options.rows), &error), "cannot delete the events",
                error);
        std::cout << before - countOfEvents(repository) << " events deleted\n";
    });

    const EventCommand processed(app, "processed", "Forget that events wait to be processed", "--id 1 2 3");
    processed.command->add_option("--id", processed.options->rows, "Rows of the events")
        ->check(isNumber())
        ->required();
    processed.does(action, [](const ZAVEventRepository& repository, const EventOptions& options) {
        ZAVError error;
        require(repository.deleteUnprocessedEvents(eventsInRows(options.rows), &error),
                "cannot forget the events' changes", error);
        std::cout << "done\n";
    });

    const EventCommand participant(app, "participant-seq",
                                   "Record how far a member of a conversation has progressed",
                                   "--stream 48714726-d247-5be7-8537-0a57a788e38b --member ada --seq 12");
    participant.command->add_option("--stream", participant.options->stream, "The stream's UUID")
        ->required()
        ->check(isUUID());
    participant.command->add_option("--member", participant.options->member, "The member")->required();
    participant.command->add_option("--seq", participant.options->seq, "The sequence")->required();
    participant.does(action, [](const ZAVEventRepository& repository, const EventOptions& options) {
        ZAVError error;
        if (!repository.persistConversationsParticipantsSeq(options.seq, options.member,
                                                            uuidFrom(options.stream), &error)) {
            throw error ? ToolError("cannot record the sequence", error)
                        : ToolError("the stream " + options.stream + " has no conversation");
        }
        printChanges(repository, "participant updated");
    });

    const EventCommand message(app, "message-seq", "Record the sequence of the message that an event carries",
                               "--event 17 --seq 12");
    message.command->add_option("--event", message.options->row, "Row of the event")
        ->check(isNumber())
        ->required();
    message.command->add_option("--seq", message.options->seq, "The sequence")->required();
    message.does(action, [](const ZAVEventRepository& repository, const EventOptions& options) {
        ZAVError error;
        require(repository.persistMessageSeq(options.seq, options.row, &error), "cannot record the sequence",
                error);
        printChanges(repository, "message updated");
    });
}

}  // namespace zavevents
