#include <nlohmann/json.hpp>

#include "Command.h"
#include "EventLines.h"

namespace zavevents {
namespace {

using namespace zav;

struct ReceiveOptions {
    std::string file = "-";
    std::optional<ZAVUUID> stream;
    bool recordChanges = false;
    bool allOrNone = false;
    bool json = false;
    ClientOptions client;
};

/// Events, and the lines that they are from.
struct ReceivedLines {
    std::vector<std::shared_ptr<ZAVEvent>> events{};
    std::vector<std::uint64_t> numbers{};
    std::vector<std::string> places{};
};

const char* nameOf(ZAVReceivedEvent::Outcome outcome) {
    switch (outcome) {
        case ZAVReceivedEvent::Outcome::added:
            return "new";
        case ZAVReceivedEvent::Outcome::own:
            return "own";
        case ZAVReceivedEvent::Outcome::known:
            return "known";
        case ZAVReceivedEvent::Outcome::changed:
            return "changed";
        case ZAVReceivedEvent::Outcome::tombstone:
            return "tombstone";
        case ZAVReceivedEvent::Outcome::conflict:
            return "conflict";
        case ZAVReceivedEvent::Outcome::refused:
            break;
    }
    return "refused";
}

bool isStored(const ZAVReceivedEvent& received) {
    return received.outcome != ZAVReceivedEvent::Outcome::conflict &&
           received.outcome != ZAVReceivedEvent::Outcome::refused;
}

ReceivedLines readLines(const ReceiveOptions& options) {
    EventLines lines(options.file, ownerOf(options.client), ZAVMessageRepositoryCacheBaseDirectoryURL());
    ReceivedLines received;
    while (auto event = lines.next()) {
        received.events.push_back(std::move(event));
        received.numbers.push_back(lines.lineNumber());
        received.places.push_back(lines.place());
    }
    return received;
}

/// Receives all of them, in one transaction.
std::vector<ZAVReceivedEvent> receiveLines(ZAVEventStore& store, const ReceivedLines& lines,
                                           const ReceiveOptions& options) {
    ZAVReceiveOptions wanted;
    wanted.preparesDownloads = options.client.appID.has_value();
    wanted.recordsChanges = options.recordChanges;
    std::optional<std::vector<ZAVReceivedEvent>> outcomes;
    ZAVError error;
    store.write(
        [&](const ZAVRepositories&) {
            outcomes = store.receive(*options.stream, lines.events, wanted, &error);
            require(outcomes.has_value(), "cannot receive the events", error);
            for (std::size_t index = 0; options.allOrNone && index < outcomes->size(); ++index) {
                const ZAVReceivedEvent& outcome = (*outcomes)[index];
                if (!isStored(outcome)) {
                    throw ToolError(lines.places[index] + ZAVPrintable(outcome.reason.message()) +
                                    "\nnone of the events is stored");
                }
            }
            return true;
        },
        &error);
    require(!error, "cannot receive the events", error);
    return *std::move(outcomes);
}

void printOutcome(std::uint64_t line, const ZAVReceivedEvent& outcome, bool json) {
    const bool hasRow = outcome.row != ZAVDatabaseIdentifierNotSet;
    const std::string reason = ZAVPrintable(outcome.reason.message());
    if (json) {
        nlohmann::ordered_json object{{"line", line}, {"outcome", nameOf(outcome.outcome)}};
        if (hasRow) {
            object["database_identifier"] = outcome.row;
        }
        if (!reason.empty()) {
            object["reason"] = reason;
        }
        std::cout << object.dump() << '\n';
    } else {
        std::cout << "line " << line << ": " << nameOf(outcome.outcome)
                  << (hasRow ? ", row " + std::to_string(outcome.row) : "")
                  << (reason.empty() ? "" : ": " + reason) << '\n';
    }
}

void receive(ZAVEventStore& store, const ReceiveOptions& options) {
    const ReceivedLines lines = readLines(options);
    const std::vector<ZAVReceivedEvent> outcomes = receiveLines(store, lines, options);
    std::size_t notStored = 0;
    for (std::size_t index = 0; index < outcomes.size(); ++index) {
        printOutcome(lines.numbers[index], outcomes[index], options.json);
        notStored += isStored(outcomes[index]) ? 0 : 1;
    }
    if (notStored != 0) {
        throw ToolError(std::to_string(notStored) + " of " + std::to_string(outcomes.size()) +
                        " events are not stored");
    }
}

}  // namespace

void addReceiveCommand(CLI::App& app, Invocation& invocation) {
    const Command<ReceiveOptions> command(
        app, invocation, "receive", "Store what the service sent of one stream, as a client does",
        "received.jsonl --stream 48714726-d247-5be7-8537-0a57a788e38b --user ada --cache ~/.cache/ZAVEventRepository");
    CLI::App& parser = command.parser();
    auto& [file, stream, recordChanges, allOrNone, json, client] = command.options();
    addOption(parser, "FILE", file, fileName(),
              "The events, one a line (default: standard input, also as -)");
    addOption(parser, "--stream", stream, uuid(), "The stream's UUID")->required();
    addOption(parser, "--user", client.user, text(), "The user, whose own events are recognised")->required();
    addCacheOption(parser, client);
    addOption(parser, "--app-id", client.appID, uuid(),
              "The application, a UUID, that content is downloaded for");
    parser.add_flag("--record-changes", recordChanges, "Record what changes as waiting to be processed");
    parser.add_flag("--all-or-none", allOrNone, "Store none of the events when one of them is refused");
    parser.add_flag("--json", json, "Write a JSON object for each event");
    command.doesInClientStore(receive);
}

}  // namespace zavevents
