#include "Store.h"

#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVMessagePartObjectIdentifier.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "Binding.h"
#include "Connection.h"
#include "StatementBinder.h"

namespace zav::bench {
namespace {

constexpr std::size_t eventsOfAStream = 200;
const ZAVDate expired = ZAVDateFromSecondsSince1970(1'000'000'000);
const ZAVDate valid = ZAVDateFromSecondsSince1970(4'000'000'000);

std::uint64_t scatter(std::uint64_t number) noexcept {
    number += 0x9E3779B97F4A7C15U;
    number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9U;
    number = (number ^ (number >> 27)) * 0x94D049BB133111EBU;
    return number ^ (number >> 31);
}

ZAVUUID uuidOf(std::uint64_t kind, std::uint64_t number) {
    ZAVUUID::Bytes bytes;
    const std::uint64_t halves[] = {scatter(number * 4 + kind), scatter(~(number * 4 + kind))};
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        bytes[index] = static_cast<std::uint8_t>(halves[index / 8] >> (index % 8 * 8));
    }
    return ZAVUUID(bytes);
}

ZAVUUID streamUUID(std::size_t stream) {
    return uuidOf(1, stream);
}

std::string userID(std::size_t number) {
    return "user-" + std::to_string(1000 + scatter(number) % 50);
}

std::string messageText(std::size_t number) {
    static constexpr std::string_view words[] = {"see",  "you",   "at",     "the",     "station", "around",
                                                 "noon", "bring", "coffee", "tickets", "and",     "cake"};
    std::string text;
    for (std::size_t index = 0; index < 4 + number % 9; ++index) {
        text.append(text.empty() ? "" : " ").append(words[scatter(number + index) % std::size(words)]);
    }
    return text;
}

/// A connection that writes as fast as it can: a file that is lost is made again.
class Writer {
public:
    explicit Writer(const std::string& path) {
        if (sqlite3_open(path.c_str(), &connection_) != SQLITE_OK) {
            throw std::runtime_error(sqlite3_errmsg(connection_));
        }
        run("PRAGMA journal_mode=DELETE; PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; "
            "PRAGMA cache_size=-262144; PRAGMA temp_store=MEMORY; BEGIN");
        indexes_ = dropIndexes(connection_);
    }
    ~Writer() {
        for (sqlite3_stmt* const statement : statements_) {
            sqlite3_finalize(statement);
        }
        sqlite3_close(connection_);
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    void finish() { run(indexes_ + "COMMIT; ANALYZE; DROP TABLE sqlite_stat1"); }

    sqlite3_stmt* prepare(const char* text) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(connection_, text, -1, &statement, nullptr) != SQLITE_OK) {
            throw std::runtime_error(sqlite3_errmsg(connection_));
        }
        return statements_.emplace_back(statement);
    }

    template <class... Values>
    void insert(sqlite3_stmt* statement, const Values&... values) {
        const StatementBinder binder{statement};
        bindValues(binder, values...);
        const int status = sqlite3_step(statement);
        sqlite3_reset(statement);
        if (status != SQLITE_DONE) {
            throw std::runtime_error(sqlite3_errmsg(connection_));
        }
    }

private:
    void run(const std::string& script) { execute(connection_, script); }

    sqlite3* connection_ = nullptr;
    std::vector<sqlite3_stmt*> statements_;
    std::string indexes_;
};

struct PartRow {
    std::optional<std::string> type = "text/plain";
    std::optional<ZAVData> body;
    std::optional<ZAVDate> expiration;
    std::optional<std::string> url;
    std::int64_t size = 0;
    ZAVContentTransferStatus status = ZAVContentTransferComplete;
    std::optional<std::string> path;
    std::optional<ZAVDate> lastAccessed;
};

PartRow textPart(std::size_t number) {
    const std::string text = messageText(number);
    PartRow part;
    part.body = ZAVData::fromText(text);
    part.size = static_cast<std::int64_t>(text.size());
    return part;
}

/// The part number `number` of the store, kept in a file.
PartRow filePart(std::size_t number) {
    PartRow part;
    part.type = number % 3 == 0 ? "image/png" : "image/jpeg";
    part.size = static_cast<std::int64_t>(1000 + scatter(number) % 200'000);
    part.path =
        "8f6c3a52-64e0-4f0e-9a86-2f4d6f1f0b11/" + userID(number) + "/" + std::to_string(number) + "/part-1";
    part.url = "https://content.example.com/" + uuidOf(3, number).UUIDString() + "?size=full";
    part.expiration = valid;
    part.lastAccessed =
        ZAVDateFromSecondsSince1970(1'600'000'000 + static_cast<double>(scatter(number) % 90'000'000));
    return part;
}

/// A part on its way, at one of the stages there are.
PartRow incompletePart(std::size_t number) {
    PartRow part = filePart(number);
    part.lastAccessed.reset();
    switch (number % 6) {
        case 0:
            part.status = ZAVContentTransferAwaitingUpload;
            part.url.reset();
            break;
        case 1:
            part.status = ZAVContentTransferUploading;
            part.url.reset();
            break;
        case 2:
            part.status = ZAVContentTransferUploading;
            break;
        case 3:
            part.status = ZAVContentTransferReadyForDownload;
            part.expiration = expired;
            break;
        case 4:
            part.status = ZAVContentTransferDownloading;
            part.expiration = expired;
            break;
        default:
            part.status = ZAVContentTransferDownloading;
            break;
    }
    return part;
}

void fill(Writer& writer, const StoreShape& shape) {
    auto* const stream = writer.prepare("INSERT INTO streams VALUES (?, ?, ?)");
    auto* const event = writer.prepare("INSERT INTO events VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    auto* const part = writer.prepare(
        "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, type, value, "
        "access_expiration, url, size, transfer_status, file_path, last_accessed, purged) "
        "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, 0)");
    auto* const message =
        writer.prepare("INSERT INTO messages (event_database_identifier, seq) VALUES (?, ?)");
    auto* const change = writer.prepare(
        "INSERT INTO synced_changes (table_name, row_identifier, change_type) VALUES ('events', ?, 0)");
    auto* const value = writer.prepare("INSERT INTO keyed_values_remote VALUES (?, 'event', 0, ?, ?, NULL)");

    const std::size_t streams = streamsOf(shape);
    for (std::size_t number = 0; number < streams; ++number) {
        writer.insert(stream, number + 1, streamUUID(number), eventsOfAStream);
    }
    const std::size_t unsequencedEvery = std::max<std::size_t>(1, shape.events / shape.unsequenced);
    std::size_t parts = 0;
    for (std::size_t number = 0; number < shape.events; ++number) {
        const std::size_t row = number + 1;
        const auto seq = static_cast<ZAVSequence>(number / streams + 1);
        const bool sequenced = number % unsequencedEvery != 0;
        const bool isMessage = number % 10 < 8 || !sequenced;
        const std::optional<ZAVSequence> target = isMessage ? std::nullopt : std::optional(seq - 1);
        writer.insert(event, row, isMessage ? EventType_MESSAGE : EventType_MESSAGE_READ, userID(number),
                      sequenced ? std::optional(seq) : std::nullopt, 1'600'000'000'000 + number, seq - 1, seq,
                      1, std::optional<std::string>(), target, number % streams + 1, uuidOf(2, number),
                      "Name of " + userID(number));
        if (number < shape.unprocessed) {
            writer.insert(change, row);
        }
        if (number % 10 == 1) {
            writer.insert(value, row, std::string("origin"), std::string("telephone"));
            writer.insert(value, row, std::string("priority"), std::string("high"));
        }
        if (!isMessage) {
            continue;
        }
        writer.insert(message, row, seq);
        const std::size_t partsOfEvent = number % 10 == 3 ? 3 : 1;
        for (std::size_t index = 0; index < partsOfEvent; ++index) {
            const std::size_t partNumber = parts++;
            const PartRow held = partNumber % shape.incompleteEvery == 7 % shape.incompleteEvery
                                     ? incompletePart(partNumber / shape.incompleteEvery)
                                 : index != 0 || number % 10 == 5 ? filePart(partNumber)
                                                                  : textPart(partNumber);
            writer.insert(part, index, row, held.type, held.body, held.expiration, held.url, held.size,
                          held.status, held.path, held.lastAccessed);
        }
    }
}

}  // namespace

std::size_t streamsOf(const StoreShape& shape) {
    return std::max<std::size_t>(1, shape.events / eventsOfAStream);
}

void makeStore(const std::string& path, const StoreShape& shape) {
    std::filesystem::remove(path);
    ZAVError error;
    if (!ZAVDatabaseSchema::openDatabase(path, {}, &error)) {
        throw std::runtime_error(error.description());
    }
    Writer writer(path);
    fill(writer, shape);
    writer.finish();
}

ZAVSet<ZAVTEvent> makeEvents(const EventShape& shape, std::size_t count, std::size_t generation) {
    ZAVSet<ZAVTEvent> events;
    for (std::size_t index = 0; index < count; ++index) {
        const std::size_t number = generation * count + index;
        auto event = std::make_shared<ZAVEvent>();
        event->set_type(EventType_MESSAGE);
        event->set_stream_id(ZAVDataFromUUID(streamUUID(scatter(number) % shape.streams)));
        event->set_client_id(ZAVDataFromUUID(uuidOf(0, number)));
        event->set_seq(static_cast<ZAVSequence>(1'000'000 + number));
        event->set_preceding_seq(static_cast<ZAVSequence>(number));
        event->set_client_seq(static_cast<ZAVSequence>(number));
        event->set_creator_id(userID(number));
        event->set_creator_name("Name of " + userID(number));
        event->set_server_timestamp(static_cast<std::int64_t>(1'700'000'000'000 + number));
        std::vector<std::shared_ptr<ZAVTContent>> content;
        for (std::size_t part = 0; part < shape.parts; ++part) {
            const PartRow held = part == 0 ? textPart(number) : filePart(number * 4 + part);
            auto record = std::make_shared<ZAVEventContent>();
            record->set_media_type(held.type);
            record->set_body(held.body);
            record->set_external_url(held.url);
            record->set_size(held.size);
            record->setTransferStatus(held.status);
            record->setExternalContentURLExpiration(held.expiration);
            record->setLastAccessed(held.lastAccessed);
            if (held.path) {
                record->setFileURL(ZAVURL::URLWithString(*held.path));
            }
            content.push_back(std::move(record));
        }
        if (!content.empty()) {
            event->set_content(std::move(content));
        }
        if (shape.metadata) {
            event->set_transient_metadata(
                ZAVDictionary{{"origin", std::string("telephone")}, {"priority", ZAVData::fromText("high")}});
        }
        events.append(std::move(event));
    }
    return events;
}

Samples takeSamples(const std::string& path, std::size_t count, std::uint64_t draw) {
    FMDatabaseOptions options;
    options.access = FMDatabaseOptions::Access::readOnly;
    const auto database = FMDatabase::databaseWithPath(path, options);
    const auto highest = [&](const std::string& table) {
        auto rows = database->executeQuery("SELECT MAX(database_identifier) FROM " + table);
        return rows && rows->next() ? rows->unsignedLongLongIntForColumnIndex(0) : 0;
    };
    const std::uint64_t events = highest("events");
    const std::uint64_t parts = highest("event_content_parts");
    const std::uint64_t messages = highest("messages");
    // Far enough apart for the numbers that find nothing.
    const std::uint64_t first = draw * 100 * count;
    const auto collect = [&]<class T>(std::vector<T>& items, const auto& make) {
        for (std::uint64_t number = first; items.size() < count; ++number) {
            if (std::optional<T> item = make(scatter(number))) {
                items.push_back(std::move(*item));
            }
        }
    };
    const auto upTo = [](std::uint64_t last) {
        return [last](std::uint64_t random) {
            return std::optional(static_cast<ZAVDatabaseIdentifier>(random % last + 1));
        };
    };

    Samples samples;
    collect(samples.eventRows, upTo(events));
    collect(samples.partRows, upTo(parts));
    collect(samples.messageParts, [&](std::uint64_t random) {
        return std::optional(std::make_shared<ZAVMessagePart>(
            std::make_shared<ZAVMessage>(*upTo(messages)(random)), std::uint64_t{0}));
    });
    collect(samples.positions, [&](std::uint64_t random) {
        auto rows = database->executeQuery(
            "SELECT events.seq, streams.stream_id FROM events JOIN streams ON streams.database_identifier = "
            "events.stream_database_identifier WHERE events.database_identifier = ? AND events.seq IS NOT NULL",
            *upTo(events)(random));
        return rows->next() ? std::optional(Samples::Position{rows->intForColumnIndex(0),
                                                              *ZAVUUIDFromData(rows->dataForColumnIndex(1))})
                            : std::nullopt;
    });
    const auto part = [&](const char* condition, std::uint64_t random) {
        return database->executeQuery(
            std::string(
                "SELECT url, event_database_identifier, client_id FROM event_content_parts JOIN events ON "
                "events.database_identifier = event_database_identifier "
                "WHERE event_content_parts.database_identifier = ? AND ") +
                condition,
            *upTo(parts)(random));
    };
    collect(samples.eventsOfParts, [&](std::uint64_t random) {
        auto rows = part("event_content_part_id = 0", random);
        return rows->next() ? std::optional(rows->longLongIntForColumnIndex(1)) : std::nullopt;
    });
    collect(samples.objectIdentifiers, [&](std::uint64_t random) {
        auto rows = part("event_content_part_id = 0", random);
        return rows->next() ? std::optional(ZAVMakeMessagePartObjectIdentifier(
                                  *ZAVUUIDFromData(rows->dataForColumnIndex(2)), 0))
                            : std::nullopt;
    });
    collect(samples.externalURLs, [&](std::uint64_t random) {
        auto rows = part("url IS NOT NULL", random);
        return rows->next() ? ZAVURL::URLWithString(*rows->stringForColumnIndex(0)) : std::nullopt;
    });
    return samples;
}

}  // namespace zav::bench
