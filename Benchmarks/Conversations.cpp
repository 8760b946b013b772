#include "Conversations.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <ZAVEventRepository/ZAVContentTransferStatus.h>
#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVTEventType.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "Connection.h"
#include "Require.h"

namespace zav::bench {
namespace {

/// What an event takes of the file at most, with its part, its metadata and all entries of indexes.
constexpr std::size_t bytesOfAnEvent = 250;

using Connection = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;

/// A connection that writes as fast as it can: a file that is lost is made again.
Connection openToFill(const std::string& path, const std::optional<std::string>& key) {
    sqlite3* opened = nullptr;
    const int status = sqlite3_open(path.c_str(), &opened);
    Connection connection(opened, sqlite3_close);
    if (status != SQLITE_OK) {
        throw std::runtime_error(sqlite3_errmsg(opened));
    }
    if (key) {
        execute(opened, "PRAGMA key='" + *key + "'");
    }
    execute(opened,
            "PRAGMA journal_mode=DELETE; PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;"
            "PRAGMA cache_size=-262144; PRAGMA temp_store=MEMORY");
    return connection;
}

/// A text with numbers in the places of names.
std::string withNumbers(std::string text, const ConversationsShape& shape) {
    const std::pair<std::string, std::size_t> numbers[] = {
        {"$events", shape.events},
        {"$streams", shape.streams()},
        {"$middleStreams", shape.middleStreams()},
        {"$shortStreams", shape.shortStreams()},
        {"$tinyStreams", shape.tinyStreams()},
        {"$firstMiddle", shape.firstMiddle()},
        {"$firstShort", shape.firstShort()},
        {"$firstTiny", shape.firstTiny()},
        {"$message", EventType_MESSAGE},
        {"$complete", ZAVContentTransferComplete},
    };
    for (const auto& [name, number] : numbers) {
        for (std::size_t at = text.find(name); at != std::string::npos; at = text.find(name, at)) {
            text.replace(at, name.size(), std::to_string(number));
        }
    }
    return text;
}

// Of ten events one after the other the first nine are of a stream of middle length, of seven short ones and
// of a tiny one, and the tenth is of the long stream.
constexpr const char* filling = R"(
    BEGIN;
    WITH RECURSIVE numbers(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM numbers WHERE n < $streams)
    INSERT INTO streams SELECT n, CAST(printf('stream-%09d', n) AS BLOB), NULL FROM numbers;

    WITH RECURSIVE numbers(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM numbers WHERE n < $events),
        placed(n, stream, seq) AS (SELECT n,
            CASE n % 10 WHEN 0 THEN 1
                WHEN 1 THEN $firstMiddle + n / 10 % $middleStreams
                WHEN 9 THEN $firstTiny + n / 10 % $tinyStreams
                ELSE $firstShort + (n / 10 * 7 + n % 10 - 2) % $shortStreams END,
            CASE n % 10 WHEN 0 THEN n / 10
                WHEN 1 THEN n / 10 / $middleStreams + 1
                WHEN 9 THEN n / 10 / $tinyStreams + 1
                ELSE (n / 10 * 7 + n % 10 - 2) / $shortStreams + 1 END FROM numbers)
    INSERT INTO events SELECT n, $message, 'user-' || n % 50, seq, 1600000000000 + n, seq - 1, seq, 1, NULL,
        NULL, stream, CAST(printf('event-%010d', n) AS BLOB), 'Name of user-' || n % 50 FROM placed;

    INSERT INTO event_content_parts (database_identifier, event_content_part_id, event_database_identifier,
        type, value, size, transfer_status, purged)
        SELECT database_identifier, 0, database_identifier, 'text/plain',
            CAST(printf('see you at the station at %08d', database_identifier) AS BLOB), 34, $complete, 0 FROM events;

    INSERT INTO keyed_values_remote SELECT database_identifier, 'event', 0, 'origin', 'telephone', NULL
        FROM events WHERE database_identifier % 7 = 0;
)";

constexpr const char* completing = R"(
    UPDATE streams SET seq = (SELECT MAX(seq) FROM events
        WHERE stream_database_identifier = streams.database_identifier);
    INSERT INTO conversations SELECT database_identifier, stream_id FROM streams;
    INSERT INTO conversation_participants (conversation_database_identifier, member_id, seq)
        SELECT database_identifier, 'attentive', seq - 5 FROM streams;
    INSERT INTO conversation_participants (conversation_database_identifier, member_id, seq)
        SELECT database_identifier, 'absent', NULL FROM streams;
    COMMIT;
)";

/// Makes and fills the file.
void makeConversations(const std::string& path, const ConversationsShape& shape,
                       const std::optional<std::string>& key) {
    if (shape.events == 0 || shape.events % 1'000 != 0) {
        throw std::invalid_argument("the number of events is a multiple of 1000");
    }
    const std::size_t needed = shape.events * bytesOfAnEvent;
    const std::size_t room = std::filesystem::space(std::filesystem::path(path).parent_path()).available;
    if (room < needed) {
        throw std::runtime_error(path + " may take " + std::to_string(needed) + " bytes, and there are " +
                                 std::to_string(room));
    }
    FMDatabaseOptions options;
    options.key = key;
    ZAVError error;
    require(ZAVDatabaseSchema::openDatabase(path, options, &error) != nullptr, error);
    const Connection connection = openToFill(path, key);
    const std::string indexes = dropIndexes(connection.get());
    execute(connection.get(), withNumbers(filling, shape));
    execute(connection.get(), indexes);
    execute(connection.get(), withNumbers(completing, shape));
}

}  // namespace

std::vector<Stream> ConversationsShape::examples() const {
    return {{static_cast<ZAVDatabaseIdentifier>(firstShort() + shortStreams() / 2), 100},
            {static_cast<ZAVDatabaseIdentifier>(firstMiddle()), events / 10 / middleStreams()},
            longStream()};
}

MadeConversations::MadeConversations(std::size_t events, std::optional<std::string> key)
    : shape_{events}, key_(std::move(key)) {
    const auto begin = std::chrono::steady_clock::now();
    makeConversations(path_, shape_, key_);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    std::printf("%zu events in %zu streams: %.1f MB, made in %.1f s\n", events, shape_.streams(),
                static_cast<double>(std::filesystem::file_size(path_)) / 1e6, took.count());
    std::fflush(stdout);
}

std::unique_ptr<ZAVEventStore> MadeConversations::open() const {
    ZAVEventStoreOptions options;
    if (key_) {
        options.database.keyProvider = [this] { return key_; };
    }
    ZAVError error;
    auto store = ZAVEventStore::open(path_, options, &error);
    require(store != nullptr, error);
    return store;
}

void MadeConversations::cool() const {
    const int file = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0 || ::fsync(file) != 0 || ::posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED) != 0) {
        throw std::runtime_error("cannot have " + path_ + " forgotten");
    }
    ::close(file);
}

}  // namespace zav::bench
