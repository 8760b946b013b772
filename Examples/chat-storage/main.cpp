// The storage behind a chat window, worked from standard input: two streams, messages that come in and go
// out.

#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVStreamRepository.h>
#include <ZAVEventRepository/ZAVSyncedChangeRepository.h>
#include <ZAVEventRepository/ZAVTransaction.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

using namespace zav;

constexpr const char* usage =
    "send STREAM TEXT                 write a message; it waits in the outbox\n"
    "incoming STREAM SEQ AUTHOR TEXT  a message that the service sends\n"
    "sequenced ROW SEQ                the service has taken the waiting message in that row\n"
    "deleted STREAM SEQ               the service says that a message was deleted\n"
    "discard ROW                      give up a message that still waits\n"
    "list STREAM                      the timeline, then what waits\n"
    "outbox                           what can be sent, of all streams\n"
    "new                              what came in since this was last asked\n"
    "The streams are family and work.\n";

class Chat {
public:
    explicit Chat(const std::shared_ptr<FMDatabase>& database)
        : database_(*database), events_(database), changes_(database) {
        const ZAVStreamRepository streams(database);
        const std::map<std::string, const char*> known{{"family", "6f1d1f0e-5f0b-4c8e-9b53-3a1d0a6c7f10"},
                                                       {"work", "c2f0a6d4-0f7d-4a0e-8d0c-5b6e4f7a9b21"}};
        for (const auto& [name, uuid] : known) {
            ZAVError error;
            streams_[name] = streams.findOrCreateStreamWithUUID(*ZAVUUID::fromString(uuid), &error);
            require(streams_[name] != ZAVDatabaseIdentifierNotSet, error);
        }
    }

    /// Does what one line says.
    /// @throws std::runtime_error when the line cannot be understood or the database fails.
    void run(const std::string& line) {
        std::istringstream words(line);
        const auto command = read<std::string>(words);
        if (command == "send") {
            const auto stream = readStream(words);
            send(stream, readText(words));
        } else if (command == "incoming") {
            const auto stream = readStream(words);
            const auto seq = read<ZAVSequence>(words);
            const auto author = read<std::string>(words);
            receive(stream, seq, author, readText(words));
        } else if (command == "sequenced") {
            const auto row = read<ZAVDatabaseIdentifier>(words);
            recordSequence(row, read<ZAVSequence>(words));
        } else if (command == "deleted") {
            const auto stream = readStream(words);
            ZAVError error;
            require(events_.persistTombstoneEventWithTargetSeq(read<ZAVSequence>(words), stream, &error),
                    error);
        } else if (command == "discard") {
            ZAVError error;
            require(events_.deleteEvents({waiting(read<ZAVDatabaseIdentifier>(words))}, &error), error);
        } else if (command == "list") {
            list(readStream(words));
        } else if (command == "outbox") {
            printWaiting(ZAVDatabaseIdentifierNotSet);
        } else if (command == "new") {
            printNew();
        } else {
            throw std::runtime_error("no such command: " + command);
        }
    }

private:
    static void require(bool succeeded, const ZAVError& error) {
        if (!succeeded) {
            throw std::runtime_error(error.description());
        }
    }

    template <class Word>
    static Word read(std::istream& words) {
        Word word;
        if (!(words >> word)) {
            throw std::runtime_error("something is missing, or no number");
        }
        return word;
    }

    [[nodiscard]] ZAVDatabaseIdentifier readStream(std::istream& words) const {
        const auto name = read<std::string>(words);
        const auto stream = streams_.find(name);
        if (stream == streams_.end()) {
            throw std::runtime_error("no such stream: " + name);
        }
        return stream->second;
    }

    static std::string readText(std::istream& words) {
        std::string text;
        std::getline(words >> std::ws, text);
        return text;
    }

    static std::shared_ptr<ZAVEvent> makeMessage(ZAVDatabaseIdentifier stream, const std::string& author,
                                                 const std::string& text) {
        auto part = std::make_shared<ZAVEventContent>();
        part->set_media_type("text/plain");
        part->set_body(ZAVData::fromText(text));
        part->set_size(static_cast<std::int64_t>(text.size()));
        part->setTransferStatus(ZAVContentTransferComplete);
        auto message = std::make_shared<ZAVEvent>();
        message->set_type(EventType_MESSAGE);
        message->setStreamDatabaseIdentifier(stream);
        message->set_client_id(ZAVDataFromUUID(ZAVUUID::random()));
        message->set_creator_id(author);
        message->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});
        return message;
    }

    [[nodiscard]] ZAVSet<ZAVEvent> timeline(ZAVDatabaseIdentifier stream) const {
        ZAVError error;
        auto events = events_.eventsFromRevivedStreamWithStreamDatabaseIdentifier(stream, &error);
        require(events.has_value(), error);
        return std::move(*events);
    }

    [[nodiscard]] ZAVSet<ZAVEvent> outbox() const {
        ZAVError error;
        auto events = events_.publishableEvents(&error);
        require(events.has_value(), error);
        return std::move(*events);
    }

    /// The message that waits in a row.
    [[nodiscard]] std::shared_ptr<ZAVEvent> waiting(ZAVDatabaseIdentifier row) const {
        for (const auto& event : outbox()) {
            if (event->databaseIdentifier() == row) {
                return event;
            }
        }
        throw std::runtime_error("no message waits in row " + std::to_string(row));
    }

    void send(ZAVDatabaseIdentifier stream, const std::string& text) const {
        const auto message = makeMessage(stream, "me", text);
        ZAVSequence last = 0;
        for (const auto& event : timeline(stream)) {
            last = std::max(last, event->seq());
        }
        message->set_preceding_seq(last);
        message->set_client_seq(static_cast<std::int32_t>(outbox().size()) + 1);
        ZAVError error;
        require(events_.persistEvents({message}, &error), error);
        std::cout << "waits in row " << message->databaseIdentifier() << '\n';
    }

    /// The message and the note that it is new are stored together, or neither.
    void receive(ZAVDatabaseIdentifier stream, ZAVSequence seq, const std::string& author,
                 const std::string& text) const {
        const auto message = makeMessage(stream, author, text);
        message->set_seq(seq);
        message->set_preceding_seq(seq - 1);
        ZAVError error;
        auto transaction = ZAVTransaction::begin(database_, &error);
        require(transaction && events_.persistEvents({message}, &error) &&
                    changes_.recordChange(ZAVSyncedChangeTableNameEvents, message->databaseIdentifier(),
                                          ZAVSyncedChangeTypeInsert, &error) &&
                    transaction->commit(&error),
                error);
    }

    void recordSequence(ZAVDatabaseIdentifier row, ZAVSequence seq) const {
        const auto event = waiting(row);
        event->set_seq(seq);
        require(events_.updateObject(*event), database_.lastError());
    }

    void list(ZAVDatabaseIdentifier stream) const {
        for (const auto& event : timeline(stream)) {
            std::cout << event->seq() << ' ';
            print(*event);
        }
        printWaiting(stream);
    }

    void printWaiting(ZAVDatabaseIdentifier stream) const {
        for (const auto& event : outbox()) {
            if (stream == ZAVDatabaseIdentifierNotSet || event->streamDatabaseIdentifier() == stream) {
                std::cout << "waiting in row " << event->databaseIdentifier() << ' ';
                print(*event);
            }
        }
    }

    void printNew() const {
        ZAVError error;
        const auto events = events_.unprocessedEvents(&error);
        require(events.has_value(), error);
        for (const auto& event : *events) {
            print(*event);
        }
        if (!events->empty()) {
            require(events_.deleteUnprocessedEvents(*events, &error), error);
        }
    }

    static void print(const ZAVEvent& event) {
        std::cout << event.creator_id().value_or("somebody") << ':';
        if (event.type() == EventType_TOMBSTONE) {
            std::cout << " (deleted)";
        } else {
            for (const auto& part : event.contentParts()) {
                std::cout << ' ' << (part->body() ? part->body()->asText() : "(a file)");
            }
        }
        std::cout << '\n';
    }

    FMDatabase& database_;
    ZAVEventRepository events_;
    ZAVSyncedChangeRepository changes_;
    std::map<std::string, ZAVDatabaseIdentifier> streams_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "chat-storage DATABASE, with commands on standard input:\n" << usage;
        return 2;
    }
    ZAVError error;
    const auto database = ZAVDatabaseSchema::openDatabase(argv[1], {}, &error);
    if (!database) {
        std::cerr << argv[1] << ": " << error.description() << '\n';
        return 1;
    }
    int status = 0;
    try {
        Chat chat(database);
        for (std::string line; std::getline(std::cin, line);) {
            try {
                if (!line.empty()) {
                    chat.run(line);
                }
            } catch (const std::runtime_error& reason) {
                std::cerr << reason.what() << '\n';
                status = 1;
            }
        }
    } catch (const std::exception& reason) {
        std::cerr << reason.what() << '\n';
        status = 1;
    }
    return status;
}
