#include <nlohmann/json.hpp>

#include "Command.h"
#include "EventLines.h"
#include "Output.h"

namespace zavevents {
namespace {

using namespace zav;

struct SendOptions {
    std::string file = "-";
    std::optional<std::string> text;
    std::optional<ZAVUUID> clientID;
    std::optional<ZAVUUID> stream;
    std::optional<std::int64_t> streamRow;
    bool newStream = false;
    bool json = false;
    ClientOptions client;
};

/// Sends events one by one, each of which is stored, or refused, by itself.
class Sending {
public:
    Sending(ZAVEventStore& store, const SendOptions& options)
        : store_(store), options_(options), streamRow_(options.streamRow) {}

    /// @throws ToolError when the event is not stored.
    [[nodiscard]] ZAVSentEvent send(const std::shared_ptr<ZAVEvent>& event) {
        std::optional<ZAVSentEvent> sent;
        ZAVError error;
        store_.write(
            [&](const ZAVRepositories& repositories) {
                choosePlace(*event, repositories);
                sent = store_.send(event, &error);
                return sent.has_value();
            },
            &error);
        if (error || !sent) {
            throw ToolError(ZAVPrintable(error.message()));
        }
        return *sent;
    }

    /// What is told of is stored, also if something fails later.
    void tell(const ZAVEvent& event, const ZAVSentEvent& sent, std::optional<std::uint64_t> line = {}) {
        const char* const outcome = sent.isNew ? "new" : "known";
        if (options_.json) {
            nlohmann::ordered_json object;
            if (line) {
                object["line"] = *line;
            }
            object["outcome"] = outcome;
            object["database_identifier"] = sent.row;
            object["stream_database_identifier"] = event.streamDatabaseIdentifier();
            object["client_id"] = ZAVUUIDFromData(event.client_id())->UUIDString();
            output_.text() += object.dump() + '\n';
        } else {
            output_.text() += (line ? "line " + std::to_string(*line) + ": " : "") + outcome + ", row " +
                              std::to_string(sent.row) + " of stream " +
                              std::to_string(event.streamDatabaseIdentifier()) + '\n';
        }
        output_.flush();
    }

private:
    /// The stream that the command line names, if it names one: that of a line is the same then.
    void choosePlace(ZAVEvent& event, const ZAVRepositories& repositories) {
        if (options_.newStream && !streamRow_) {
            ZAVError error;
            streamRow_ = repositories.streams.createStreamWithoutUUID(&error);
            require(!error, "cannot register a stream", error);
        }
        if (streamRow_) {
            event.setStreamDatabaseIdentifier(*streamRow_);
        }
        if (options_.stream) {
            if (event.stream_id() && event.streamUUID() != options_.stream) {
                throw ToolError("it is of another stream");
            }
            event.set_stream_id(ZAVDataFromUUID(*options_.stream));
        }
    }

    ZAVEventStore& store_;
    const SendOptions& options_;
    std::optional<ZAVDatabaseIdentifier> streamRow_;
    Output output_;
};

std::shared_ptr<ZAVEvent> messageOf(const SendOptions& options) {
    auto part = std::make_shared<ZAVEventContent>();
    part->set_media_type("text/plain");
    part->set_body(ZAVData::fromText(*options.text));
    part->set_size(static_cast<std::int64_t>(options.text->size()));
    auto message = std::make_shared<ZAVEvent>();
    message->set_type(EventType_MESSAGE);
    message->set_client_id(ZAVDataFromUUID(options.clientID.value_or(ZAVUUID::random())));
    message->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});
    return message;
}

/// Sends the event of a line.
/// @throws ToolError which names the line.
ZAVSentEvent sendLine(const EventLines& lines, const std::shared_ptr<ZAVEvent>& event, Sending& sending) {
    try {
        return sending.send(event);
    } catch (const ToolError& error) {
        throw ToolError(lines.place() + error.what());
    }
}

void sendLines(Sending& sending, const SendOptions& options) {
    const auto directory = storeOptionsOf(options.client).contentDirectory;
    EventLines lines(options.file, std::nullopt,
                     directory.value_or(ZAVMessageRepositoryCacheBaseDirectoryURL()));
    std::size_t count = 0;
    try {
        while (const auto event = lines.next()) {
            const ZAVSentEvent sent = sendLine(lines, event, sending);
            ++count;
            sending.tell(*event, sent, lines.lineNumber());
        }
    } catch (const ToolError& error) {
        throw ToolError(std::string(error.what()) + "\n" + std::to_string(count) +
                        " events of the lines before are stored");
    }
}

void send(ZAVEventStore& store, const SendOptions& options) {
    Sending sending(store, options);
    if (options.text) {
        const auto message = messageOf(options);
        sending.tell(*message, sending.send(message));
    } else {
        sendLines(sending, options);
    }
}

}  // namespace

void addSendCommand(CLI::App& app, Invocation& invocation) {
    const Command<SendOptions> command(
        app, invocation, "send", "Store events of the user's, which wait for the service then",
        "--user ada --stream 48714726-d247-5be7-8537-0a57a788e38b --text 'See you at eight'");
    CLI::App& parser = command.parser();
    auto& [file, message, clientID, stream, streamRow, newStream, json, client] = command.options();
    auto* const lines = addOption(parser, "FILE", file, fileName(),
                                  "The events, one a line (default: standard input, also as -)");
    auto* const words = addOption(parser, "--text", message, text(), "Send a message with this text instead");
    words->excludes(lines);
    addOption(parser, "--client-id", clientID, uuid(),
              "With --text: its client_id, a UUID (default: a new one)")
        ->needs(words);
    auto* const known =
        addOption(parser, "--stream", stream, uuid(), "The stream's UUID (default: as each line says)");
    auto* const inRow = addOption(parser, "--stream-row", streamRow, row(), "Row of the stream instead");
    auto* const begun =
        parser.add_flag("--new-stream", newStream, "Begin a stream, which the service does not know yet");
    known->excludes(inRow)->excludes(begun);
    inRow->excludes(begun);
    addOption(parser, "--user", client.user, text(), "The user, who is the author")->required();
    addOption(parser, "--cache", client.cache, fileName(),
              "The cache directory, where the files of parts are");
    parser.add_flag("--json", json, "Write a JSON object for each event");
    command.doesInClientStore(send);
}

}  // namespace zavevents
