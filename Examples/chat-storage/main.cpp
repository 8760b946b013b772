// The storage behind a chat window, worked from standard input: two streams, messages that come in and go
// out.

#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVTimeline.h>

#include <cstdint>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

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

constexpr const char* user = "me";

void require(bool succeeded, const ZAVError& error) {
    if (!succeeded) {
        throw std::runtime_error(error.description());
    }
}

/// What an operation answers, if it did not fail.
template <class Answer>
Answer required(std::optional<Answer> answer, const ZAVError& error) {
    require(answer.has_value(), error);
    return *std::move(answer);
}

class Chat {
public:
    explicit Chat(ZAVEventStore& store) : store_(store) {}

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
            required(store_.makeTombstone(stream, read<ZAVSequence>(words), &error), error);
        } else if (command == "discard") {
            discard(read<ZAVDatabaseIdentifier>(words));
        } else if (command == "list") {
            list(readStream(words));
        } else if (command == "outbox") {
            for (const auto& event : outbox()) {
                printWaiting(*event);
            }
        } else if (command == "new") {
            printNew();
        } else {
            throw std::runtime_error("no such command: " + command);
        }
    }

private:
    template <class Word>
    static Word read(std::istream& words) {
        Word word;
        if (!(words >> word)) {
            throw std::runtime_error("something is missing, or no number");
        }
        return word;
    }

    static ZAVUUID readStream(std::istream& words) {
        static const std::map<std::string, const char*> known{
            {"family", "6f1d1f0e-5f0b-4c8e-9b53-3a1d0a6c7f10"},
            {"work", "c2f0a6d4-0f7d-4a0e-8d0c-5b6e4f7a9b21"}};
        const auto name = read<std::string>(words);
        const auto stream = known.find(name);
        if (stream == known.end()) {
            throw std::runtime_error("no such stream: " + name);
        }
        return *ZAVUUID::fromString(stream->second);
    }

    static std::string readText(std::istream& words) {
        std::string text;
        std::getline(words >> std::ws, text);
        return text;
    }

    static std::shared_ptr<ZAVEvent> makeMessage(const ZAVUUID& stream, const ZAVUUID& clientID,
                                                 const std::string& text) {
        auto part = std::make_shared<ZAVEventContent>();
        part->set_media_type("text/plain");
        part->set_body(ZAVData::fromText(text));
        part->set_size(static_cast<std::int64_t>(text.size()));
        auto message = std::make_shared<ZAVEvent>();
        message->set_type(EventType_MESSAGE);
        message->set_stream_id(ZAVDataFromUUID(stream));
        message->set_client_id(ZAVDataFromUUID(clientID));
        message->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});
        return message;
    }

    /// The identifier that the author's client gave to a message; here it is made of the sequence.
    static ZAVUUID clientIDOf(ZAVSequence seq) {
        std::string digits = std::to_string(static_cast<std::uint32_t>(seq));
        digits.insert(0, 12 - digits.size(), '0');
        return *ZAVUUID::fromString("00000000-0000-4000-8000-" + digits);
    }

    [[nodiscard]] std::vector<std::shared_ptr<ZAVEvent>> outbox() const {
        ZAVError error;
        return required(store_.outbox({}, &error), error);
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

    void send(const ZAVUUID& stream, const std::string& text) const {
        ZAVError error;
        const auto sent = store_.send(makeMessage(stream, ZAVUUID::random(), text), &error);
        std::cout << "waits in row " << required(sent, error).row << '\n';
    }

    /// The message and the note that it is new are stored together, or neither.
    void receive(const ZAVUUID& stream, ZAVSequence seq, const std::string& author,
                 const std::string& text) const {
        const auto message = makeMessage(stream, clientIDOf(seq), text);
        message->set_creator_id(author);
        message->set_seq(seq);
        message->set_preceding_seq(seq - 1);
        ZAVReceiveOptions options;
        options.recordsChanges = true;
        options.refusesAllForOne = true;
        ZAVError error;
        required(store_.receive(stream, std::vector{message}, options, &error), error);
    }

    void recordSequence(ZAVDatabaseIdentifier row, ZAVSequence seq) const {
        const auto event = waiting(row);
        ZAVError error;
        const auto answer =
            required(store_.recordPosted(*event->streamUUID(), *ZAVUUIDFromData(event->client_id()), seq,
                                         user, 0, &error),
                     error);
        require(answer.outcome == ZAVReceivedEvent::Outcome::own, answer.reason);
    }

    /// Looked at and deleted in one transaction: the service may be taking the message meanwhile.
    void discard(ZAVDatabaseIdentifier row) const {
        ZAVError error;
        require(store_.write(
                    [&](const ZAVRepositories&) {
                        static_cast<void>(waiting(row));
                        return store_.deleteEvents(std::vector{row}, &error).has_value();
                    },
                    &error),
                error);
    }

    void list(const ZAVUUID& stream) const {
        ZAVError error;
        const auto timeline = required(ZAVTimeline(store_, stream).between({}, {}, &error), error);
        for (std::size_t index = 0; index < timeline.events.size(); ++index) {
            const ZAVEvent& event = *timeline.events[index];
            if (const auto seq = timeline.cursors[index].seq()) {
                std::cout << *seq << ' ';
                print(event);
            } else {
                printWaiting(event);
            }
        }
    }

    static void printWaiting(const ZAVEvent& event) {
        std::cout << "waiting in row " << event.databaseIdentifier() << ' ';
        print(event);
    }

    void printNew() const {
        ZAVError error;
        std::optional<ZAVSet<ZAVEvent>> news;
        const auto take = [&](const ZAVEventRepository& events) {
            news = events.unprocessedEvents(&error);
            return news && (news->empty() || events.deleteUnprocessedEvents(*news, &error));
        };
        require(store_.write(take, &error), error);
        for (const auto& event : *news) {
            print(*event);
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

    ZAVEventStore& store_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "chat-storage DATABASE, with commands on standard input:\n" << usage;
        return 2;
    }
    ZAVEventStoreOptions options;
    options.userID = user;
    options.appID = ZAVUUID::fromString("9f4a5f2e-0c65-4a35-9c0e-6d0f6a3b1c55");
    ZAVError error;
    const auto store = ZAVEventStore::open(argv[1], options, &error);
    if (!store) {
        std::cerr << argv[1] << ": " << error.description() << '\n';
        return 1;
    }
    Chat chat(*store);
    int status = 0;
    for (std::string line; std::getline(std::cin, line);) {
        try {
            if (!line.empty()) {
                chat.run(line);
            }
        } catch (const std::exception& reason) {
            std::cerr << reason.what() << '\n';
            status = 1;
        }
    }
    return status;
}
