#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVEventRowRepository.h>
#include <ZAVEventRepository/ZAVTimeline.h>

#include "Command.h"
#include "EventWriter.h"
#include "ExactExpirations.h"
#include "Output.h"
#include "ReadBackCheck.h"

namespace zavevents {
namespace {

using namespace zav;

struct EventsOptions {
    bool publishable = false;
    bool unpublishable = false;
    bool unprocessed = false;
    bool posted = false;
    std::optional<std::int64_t> revived;
    std::optional<std::int64_t> row;
    std::optional<std::int32_t> seq;
    std::optional<ZAVUUID> stream;
    std::optional<std::uint64_t> last;
    std::optional<ZAVTimelineCursor> before;
    std::optional<ZAVTimelineCursor> after;
    std::uint64_t limit = 50;
};

/// The selected events in the order in which they are written: of the revived stream in replay order, else by
/// row.
std::vector<std::shared_ptr<ZAVEvent>> select(const ZAVEventRepository& repository,
                                              const EventsOptions& options) {
    ZAVError error;
    std::optional<ZAVSet<ZAVEvent>> events;
    if (options.row || options.seq) {
        const auto event = options.row ? repository.eventForDatabaseIdentifier(*options.row, &error)
                                       : repository.eventWithSeq(*options.seq, *options.stream, &error);
        events.emplace();
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
    require(events && !error, "cannot read the events", error);
    std::vector<std::shared_ptr<ZAVEvent>> ordered(events->begin(), events->end());
    if (!options.revived) {
        std::stable_sort(ordered.begin(), ordered.end(), [](const auto& left, const auto& right) {
            return left->databaseIdentifier() < right->databaseIdentifier();
        });
    }
    return ordered;
}

/// Which of the events the service has sequenced, in their order. A record with another `seq` than 0 is;
/// 0 may be read from NULL, and then the rows decide.
std::vector<bool> sequencedOf(const std::vector<std::shared_ptr<ZAVEvent>>& events,
                              const std::shared_ptr<FMDatabase>& database, const EventsOptions& options) {
    const bool allSequenced = options.posted || options.revived || options.seq;
    const bool noneSequenced = options.publishable || options.unpublishable;
    if (allSequenced || noneSequenced) {
        return std::vector<bool>(events.size(), allSequenced);
    }
    const auto isZero = [](const auto& event) { return event->seq() == 0; };
    ZAVError error;
    const auto waiting = std::none_of(events.begin(), events.end(), isZero)
                             ? std::set<ZAVDatabaseIdentifier>()
                             : ZAVEventRowRepository(database).eventsWithoutSeq(&error);
    require(waiting.has_value(), "cannot look for events without a sequence", error);
    std::vector<bool> result;
    result.reserve(events.size());
    for (const auto& event : events) {
        result.push_back(!isZero(event) || !waiting->contains(event->databaseIdentifier()));
    }
    return result;
}

bool selectsAll(const EventsOptions& options) {
    return !(options.publishable || options.unpublishable || options.unprocessed || options.posted ||
             options.revived || options.row || options.seq);
}

std::optional<ZAVTimelinePage> selectedPage(const ZAVTimeline& timeline, const EventsOptions& options,
                                            ZAVError* error) {
    if (options.last) {
        return timeline.latest(static_cast<std::size_t>(*options.last), error);
    }
    const auto limit = static_cast<std::size_t>(options.limit);
    return options.before ? timeline.before(*options.before, limit, error)
                          : timeline.after(*options.after, limit, error);
}

/// Writes a piece of a timeline.
void writePage(const DatabaseFile& file, const EventsOptions& options) {
    const auto store = openClientStore(file, {});
    const ZAVTimeline timeline(*store, *options.stream);
    Output output;
    ZAVError error;
    store->read(
        [&](const ZAVRepositories& repositories) {
            const auto page = selectedPage(timeline, options, &error);
            require(page.has_value(), "cannot read the events", error);
            ExactExpirations expirations(repositories.events.database(), false);
            for (std::size_t index = 0; index < page->events.size(); ++index) {
                ZAVEvent& event = *page->events[index];
                const ZAVTimelineCursor& place = page->cursors[index];
                expirations.restore(event);
                appendEventObject(event, !place.waitingEvent(), output.text(), place.text());
                output.text() += '\n';
                output.flushIfLarge();
            }
        },
        &error);
    require(!error, "cannot read the events", error);
    output.flush();
}

void writeEvents(const DatabaseFile& file, const EventsOptions& options) {
    if (options.last || options.before || options.after) {
        writePage(file, options);
        return;
    }
    const auto database = openStore(file);
    // One snapshot: whether a `seq` was NULL is asked for after the events were read.
    require(database->executeUpdate("BEGIN"), "cannot read the events", database->lastError());
    const ZAVEventRepository repository(database);
    const auto events = select(repository, options);
    const std::vector<bool> isSequenced = sequencedOf(events, database, options);
    ExactExpirations expirations(*database, selectsAll(options) || options.posted);
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

void addEventsCommand(CLI::App& app, Invocation& invocation) {
    const Command<EventsOptions> command(app, invocation, "events", "Write events as JSON Lines",
                                         "--publishable");
    EventsOptions& options = command.options();
    auto* const selection =
        command.parser().add_option_group("Selection", "Which events; all of them when nothing is said");
    selection->add_flag("--all")->description("Every event");
    selection->add_flag("--publishable", options.publishable, "Those that can be sent to the service");
    selection->add_flag("--unpublishable", options.unpublishable,
                        "Those whose stream the service does not know");
    selection->add_flag("--unprocessed", options.unprocessed, "Those that wait to be processed");
    selection->add_flag("--posted", options.posted, "Those that the service has sequenced");
    addOption(*selection, "--revived", options.revived, row(),
              "The sequenced events of the stream in this row, in replay order");
    addOption(*selection, "--id", options.row, row(), "The event in this row");
    auto* const seq =
        addOption(*selection, "--seq", options.seq, sequence(), "The event at this sequence of --stream");
    const auto number = wholeNumber<std::uint64_t>(1, 1000000);
    auto* const last = addOption(*selection, "--last", options.last, number,
                                 "The newest NUMBER of --stream, in the order in which they are shown");
    auto* const before = addOption(*selection, "--before", options.before, cursor(),
                                   "Those of --stream that come next before the event of a cursor");
    auto* const after = addOption(*selection, "--after", options.after, cursor(),
                                  "Those of --stream that come next behind the event of a cursor");
    selection->require_option(0, 1);
    auto* const stream = addOption(command.parser(), "--stream", options.stream, uuid(), "A stream's UUID");
    auto* const limit = addOption(command.parser(), "--limit", options.limit, number,
                                  "At most NUMBER of those before or behind a cursor (default: 50)");
    for (auto* const ofStream : {seq, last, before, after}) {
        ofStream->needs(stream);
    }
    command.does(writeEvents, [=] {
        requireOneOf(stream, {seq, last, before, after});
        requireOneOf(limit, {before, after});
    });
}

}  // namespace zavevents
