#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include <ZAVEventRepository/ZAVEventRepository.h>

#include "Arguments.h"
#include "Commands.h"
#include "EventWriter.h"
#include "ExactExpirations.h"
#include "Help.h"
#include "Output.h"

#include "ReadBackCheck.h"
#include "Store.h"
#include "ToolError.h"

namespace zavevents {
namespace {

using namespace zav;

struct EventsOptions {
    std::string database;
    bool all = false;
    bool publishable = false;
    bool unpublishable = false;
    bool unprocessed = false;
    bool posted = false;
    std::optional<std::int64_t> revived;
    std::optional<std::int64_t> row;
    std::optional<std::int32_t> seq;
    std::optional<ZAVUUID> stream;
};

/// Tells which events the service has sequenced. A record with another `seq` than 0 tells it by itself; 0 may
/// be read from NULL, and then the repository is asked.
class SequencedEvents {
public:
    explicit SequencedEvents(const ZAVEventRepository& repository) : repository_(repository) {}

    [[nodiscard]] bool contains(const ZAVEvent& event) {
        if (event.seq() != 0) {
            return true;
        }
        if (const auto stream = event.streamUUID()) {
            const auto found = withSequenceZero(*stream);
            if (!found || *found == event.databaseIdentifier()) {
                return found.has_value();
            }
        }
        return posted().contains(event.databaseIdentifier());
    }

private:
    /// The event that is found for the sequence 0 of a stream. Asked once a stream: an engine that is old may
    /// look through all events for it.
    std::optional<ZAVDatabaseIdentifier> withSequenceZero(const ZAVUUID& stream) {
        const auto [entry, isNew] = withSequenceZero_.try_emplace(stream);
        if (isNew) {
            ZAVError error;
            const auto event = repository_.eventWithSeq(0, stream, &error);
            if (error) {
                throw ToolError("cannot look for an event's sequence", error);
            }
            if (event != nullptr) {
                entry->second = event->databaseIdentifier();
            }
        }
        return entry->second;
    }

    const std::unordered_set<ZAVDatabaseIdentifier>& posted() {
        if (!posted_) {
            ZAVError error;
            const auto events = repository_.postedAndProcessedEvents(&error);
            if (!events) {
                throw ToolError("cannot read the posted events", error);
            }
            posted_.emplace();
            for (const auto& event : *events) {
                posted_->insert(event->databaseIdentifier());
            }
        }
        return *posted_;
    }

    const ZAVEventRepository& repository_;
    std::map<ZAVUUID, std::optional<ZAVDatabaseIdentifier>> withSequenceZero_;
    std::optional<std::unordered_set<ZAVDatabaseIdentifier>> posted_;
};

/// The selected events in the order in which they are written: of the revived stream in replay order, else by
/// row.
std::vector<std::shared_ptr<ZAVEvent>> select(const ZAVEventRepository& repository,
                                              const EventsOptions& options) {
    ZAVError error;
    std::optional<ZAVSet<ZAVEvent>> events;
    if (options.row || options.seq) {
        std::shared_ptr<ZAVEvent> event;
        if (options.row) {
            event = repository.eventForDatabaseIdentifier(*options.row, &error);
        } else {
            event = repository.eventWithSeq(*options.seq, *options.stream, &error);
        }
        if (!error || event) {
            events.emplace();
        }
        if (event) {
            events->insert(event);
        }
    } else if (options.publishable) {
        events = repository.publishableEvents(&error);
    } else if (options.unpublishable) {
        events = repository.unpublishableEvents(&error);
    } else if (options.unprocessed) {
        events = repository.unprocessedEvents(&error);
    } else if (options.posted) {
        events = repository.postedAndProcessedEvents(&error);
    } else if (options.revived) {
        events = repository.eventsFromRevivedStreamWithStreamDatabaseIdentifier(*options.revived, &error);
    } else {
        events = repository.allEvents(&error);
    }
    if (!events || error) {
        throw ToolError("cannot read the events", error);
    }
    std::vector<std::shared_ptr<ZAVEvent>> ordered(events->begin(), events->end());
    if (!options.revived) {
        std::stable_sort(ordered.begin(), ordered.end(), [](const auto& left, const auto& right) {
            return left->databaseIdentifier() < right->databaseIdentifier();
        });
    }
    return ordered;
}

/// Which of the events the service has sequenced, in their order.
std::vector<bool> sequencedOf(const std::vector<std::shared_ptr<ZAVEvent>>& events,
                              const ZAVEventRepository& repository, const EventsOptions& options) {
    const bool allSequenced = options.posted || options.revived || options.seq;
    const bool noneSequenced = options.publishable || options.unpublishable;
    SequencedEvents sequenced(repository);
    std::vector<bool> result;
    result.reserve(events.size());
    for (const auto& event : events) {
        result.push_back(allSequenced || (!noneSequenced && sequenced.contains(*event)));
    }
    return result;
}

bool selectsAll(const EventsOptions& options) {
    return !(options.publishable || options.unpublishable || options.unprocessed || options.posted ||
             options.revived || options.row || options.seq);
}

void writeEvents(const EventsOptions& options) {
    const auto database = openStore(options.database);
    const ZAVEventRepository repository(database);
    const auto events = select(repository, options);
    const std::vector<bool> isSequenced = sequencedOf(events, repository, options);
    ExactExpirations expirations(database, selectsAll(options) || options.posted);
    std::optional<ReadBackCheck> check;
    if (selectsAll(options)) {
        check.emplace(*database);
        check->findTwins(events, isSequenced);
    }
    Output output;
    for (std::size_t index = 0; index < events.size(); ++index) {
        ZAVEvent& event = *events[index];
        expirations.restore(event);
        const std::size_t begin = output.text().size();
        appendEvent(event, isSequenced[index], output.text());
        if (check) {
            const std::string reasons =
                check->reasonsFor(event, std::string_view(output.text()).substr(begin));
            if (!reasons.empty()) {
                std::cerr << "zavevents: row " << event.databaseIdentifier()
                          << " cannot be read back as it is: " << reasons << '\n';
            }
        }
        output.flushIfLarge();
    }
    output.flush();
}

}  // namespace

void addEventsCommand(CLI::App& app, Action& action) {
    auto* const command = app.add_subcommand("events", "Write events as JSON Lines");
    const auto options = std::make_shared<EventsOptions>();
    addDatabaseOption(*command, options->database);
    auto* const selection =
        command->add_option_group("Selection", "Which events; all of them when nothing is said");
    selection->add_flag("--all", options->all, "Every event");
    selection->add_flag("--publishable", options->publishable, "Those that can be sent to the service");
    selection->add_flag("--unpublishable", options->unpublishable,
                        "Those whose stream the service does not know");
    selection->add_flag("--unprocessed", options->unprocessed, "Those that wait to be processed");
    selection->add_flag("--posted", options->posted, "Those that the service has sequenced");
    addOption(*selection, "--revived", options->revived, row(),
              "The sequenced events of the stream in this row, in replay order");
    addOption(*selection, "--id", options->row, row(), "The event in this row");
    auto* const seq =
        addOption(*selection, "--seq", options->seq, sequence(), "The event at this sequence of --stream");
    selection->require_option(0, 1);
    auto* const stream = addOption(*command, "--stream", options->stream, uuid(), "A stream's UUID");
    seq->needs(stream);
    stream->needs(seq);
    setExample(*command, "chat.db --publishable");
    command->callback([options, &action] { action = [options] { writeEvents(*options); }; });
}

}  // namespace zavevents
