#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <memory>
#include <string_view>
#include <vector>

#include <ZAVEventRepository/ZAVPrintable.h>
#include <ZAVEventRepository/ZAVTimelineWindow.h>

#include "CallQueue.h"
#include "Command.h"
#include "EventWriter.h"
#include "ObjectWriter.h"
#include "Output.h"
#include "StopSignals.h"

namespace zavevents {
namespace {

using namespace zav;

struct WatchOptions {
    std::optional<ZAVUUID> stream;
    std::uint64_t last = 50;
    std::uint64_t every = 100;
};

using Kind = ZAVTimelineDifference::Kind;

std::string_view nameOf(Kind kind) {
    switch (kind) {
        case Kind::removed:
            return "removed";
        case Kind::moved:
            return "moved";
        case Kind::inserted:
            return "inserted";
        default:
            return "changed";
    }
}

/// The end of a timeline, as whoever reads the output knows it.
class WatchedTimeline {
public:
    WatchedTimeline(const ZAVTimeline& timeline, const ZAVRegisteredStream& stream, std::size_t count,
                    std::string& text)
        : stream_(stream), text_(text) {
        ZAVTimelineWindowOptions options;
        options.count = count;
        options.coalescing = std::chrono::milliseconds::zero();  // the store looks at intervals
        ZAVError error;
        window_ = ZAVTimelineWindow::open(
            timeline, [this](const ZAVTimelineDelivery& delivery) { tell(delivery); }, options, &error);
        require(window_ != nullptr, "cannot watch", error);
    }

private:
    void tell(const ZAVTimelineDelivery& delivery) {
        if (delivery.error) {
            std::cerr << "zavevents: cannot read the events: " << ZAVPrintable(delivery.error.description())
                      << '\n';
        }
        const auto& events = delivery.page.events;
        if (!events.empty()) {
            stream_ = {events.back()->streamDatabaseIdentifier(), events.back()->streamUUID()};
        }
        std::size_t step = 0;
        for (const ZAVTimelineDifference& difference : delivery.differences) {
            const ZAVDatabaseIdentifier row = apply(difference, delivery.page);
            ObjectWriter object(text_);
            object.add("difference", nameOf(difference.kind));
            object.add("step", ++step);
            object.add("steps", delivery.differences.size());
            object.add("stream_database_identifier", stream_.row);
            object.add("stream_id", stream_.uuid);
            object.add("event_database_identifier", row);
            object.add("position", difference.position);
            if (difference.kind == Kind::moved) {
                object.add("from", difference.from);
            }
            if (difference.kind != Kind::removed) {
                object.key("event");
                // All before an insertion has come, and changes come last: both stand where they do in the
                // end.
                const std::size_t position =
                    difference.kind == Kind::moved ? positionOf(row, delivery.page) : difference.position;
                const ZAVTimelineCursor& cursor = delivery.page.cursors.at(position);
                appendEventObject(*delivery.page.events.at(position), !cursor.waitingEvent(), text_,
                                  cursor.text());
            }
            object.close();
            text_ += '\n';
        }
    }

    /// Takes a step in the list of rows; answers the row that it is about.
    ZAVDatabaseIdentifier apply(const ZAVTimelineDifference& difference, const ZAVTimelinePage& page) {
        const auto place = [this](std::size_t position) {
            return rows_.begin() + static_cast<std::ptrdiff_t>(position);
        };
        if (difference.kind == Kind::inserted) {
            const auto row = page.events.at(difference.position)->databaseIdentifier();
            return *rows_.insert(place(difference.position), row);
        }
        const ZAVDatabaseIdentifier row = rows_.at(difference.from);
        if (difference.kind != Kind::changed) {
            rows_.erase(place(difference.from));
        }
        if (difference.kind == Kind::moved) {
            rows_.insert(place(difference.position), row);
        }
        return row;
    }

    static std::size_t positionOf(ZAVDatabaseIdentifier row, const ZAVTimelinePage& page) {
        const auto isIt = [row](const auto& event) { return event->databaseIdentifier() == row; };
        return static_cast<std::size_t>(std::find_if(page.events.begin(), page.events.end(), isIt) -
                                        page.events.begin());
    }

    ZAVRegisteredStream stream_;
    std::string& text_;
    std::vector<ZAVDatabaseIdentifier> rows_;
    std::unique_ptr<ZAVTimelineWindow> window_;
};

/// The ends of one timeline, or of those of all streams, also of the ones that are still to come.
class Watch {
public:
    Watch(ZAVEventStore& store, const WatchOptions& options, std::string& text)
        : store_(store), options_(options), text_(text) {
        if (options.stream) {
            watch(ZAVTimeline(store, *options.stream), {ZAVDatabaseIdentifierNotSet, options.stream});
            return;
        }
        ZAVError error;
        subscription_ = store.subscribe([this](const ZAVStoreCommit&) { watchNewStreams(); }, &error);
        require(static_cast<bool>(subscription_), "cannot watch", error);
        watchNewStreams();
    }

private:
    void watchNewStreams() {
        std::optional<std::vector<ZAVRegisteredStream>> streams;
        ZAVError error;
        store_.read(
            [&](const ZAVRepositories& repositories) {
                streams = repositories.streams.streamsAbove(newestStream_, &error);
            },
            &error);
        require(!error && streams, "cannot look for streams", error);
        for (const ZAVRegisteredStream& stream : *streams) {
            watch(ZAVTimeline(store_, stream.row), stream);
            newestStream_ = stream.row;
        }
    }

    void watch(const ZAVTimeline& timeline, const ZAVRegisteredStream& stream) {
        timelines_.push_back(std::make_unique<WatchedTimeline>(
            timeline, stream, static_cast<std::size_t>(options_.last), text_));
    }

    ZAVEventStore& store_;
    const WatchOptions& options_;
    std::string& text_;
    ZAVDatabaseIdentifier newestStream_ = 0;
    std::vector<std::unique_ptr<WatchedTimeline>> timelines_;
    ZAVStoreSubscription subscription_;
};

/// Runs the calls that come, and writes what they tell, until a signal asks to end or nobody reads any more.
void runUntilTheEnd(CallQueue& calls, const StopSignals& signals, Output& output) {
    std::array<pollfd, 2> waitedFor{{{calls.descriptor(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
    while (signals.waitFor(waitedFor) && waitedFor[1].revents == 0) {
        calls.run();
        output.flush();
    }
}

void watch(const DatabaseFile& file, const WatchOptions& options) {
    // That nobody reads any more is the end, as a signal is, and no failure.
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    const StopSignals signals;
    CallQueue calls;
    Output output;
    ZAVEventStoreOptions storeOptions;
    storeOptions.executor = calls.executor();
    storeOptions.lookForCommitsOfOthersEvery = std::chrono::milliseconds(options.every);
    const auto store = openClientStore(file, storeOptions);
    const Watch watch(*store, options, output.text());
    try {
        runUntilTheEnd(calls, signals, output);
    } catch (const ToolError&) {
        if (!Output::isClosed()) {
            throw;
        }
    }
}

}  // namespace

void addWatchCommand(CLI::App& app, Invocation& invocation) {
    const Command<WatchOptions> command(app, invocation, "watch",
                                        "Write how timelines change as JSON Lines, until it is interrupted",
                                        "--last 1 | head -n 1");
    auto& [stream, last, every] = command.options();
    addOption(command.parser(), "--stream", stream, uuid(), "The stream's UUID (default: all streams)");
    addOption(command.parser(), "--last", last, wholeNumber<std::uint64_t>(1, 1000000),
              "Begin with the newest NUMBER events of each (default: 50)");
    addOption(command.parser(), "--every", every, wholeNumber<std::uint64_t>(1, 3600000),
              "Look for what others have written each NUMBER milliseconds (default: 100)");
    command.does(watch);
}

}  // namespace zavevents
