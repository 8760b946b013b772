#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "Binding.h"
#include "Connection.h"
#include "PlainFloor.h"
#include "Replay.h"
#include "RunMain.h"
#include "StatementBinder.h"
#include "Support/TemporaryDirectory.h"
#include "Timer.h"

namespace zav::bench {
namespace {

constexpr std::size_t turns = 5;

/// Hands all values of each event to a binder, once for each of its parts, or once if it has none; `finish`
/// is called after each time.
template <class Binder, class Finish>
void bindEach(const PlainEvent& event, Binder& binder, const Finish& finish) {
    const auto bind = [&](const PlainPart& part) {
        bindValues(binder, event.stream, event.type, event.creator, event.seq, event.timestamp,
                   event.precedingSeq, event.clientSeq, event.subtype, event.member, event.targetSeq,
                   event.client, event.creatorName, part.index, part.type, part.body, part.expiration,
                   part.url, part.size, part.status, part.path, part.lastAccessed, part.isPurged);
        finish();
    };
    if (event.parts.empty()) {
        bind({});
    }
    for (const PlainPart& part : event.parts) {
        bind(part);
    }
}

/// Calls `store` with each event, and `commit` after each batch.
template <class Store, class Commit>
void inBatches(const std::vector<PlainEvent>& events, const Store& store, const Commit& commit) {
    std::size_t stored = 0;
    for (const PlainEvent& event : events) {
        store(event);
        if (++stored % replayBatch == 0 || stored == events.size()) {
            commit();
        }
    }
}

/// One table, without an index and without a condition on any column.
void insertInOneTable(const std::vector<PlainEvent>& events, const std::string& path) {
    sqlite3* connection = nullptr;
    if (sqlite3_open(path.c_str(), &connection) != SQLITE_OK) {
        throw std::runtime_error("cannot make " + path);
    }
    configure(connection);
    execute(
        connection,
        "CREATE TABLE flat (stream_id, type, creator_id, seq, timestamp, preceding_seq, client_seq, subtype, "
        "member_id, target_seq, client_id, creator_name, part, part_type, value, access_expiration, url, size, "
        "transfer_status, file_path, last_accessed, purged)");
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(
        connection,
        "INSERT INTO flat VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)", -1,
        &statement, nullptr);
    const StatementBinder binder{statement};
    execute(connection, "BEGIN IMMEDIATE");
    inBatches(
        events,
        [&](const PlainEvent& event) {
            bindEach(event, binder, [&] {
                if (sqlite3_step(statement) != SQLITE_DONE) {
                    throw std::runtime_error(sqlite3_errmsg(connection));
                }
                sqlite3_reset(statement);
            });
        },
        [&] { execute(connection, "COMMIT; BEGIN IMMEDIATE"); });
    execute(connection, "COMMIT");
    sqlite3_finalize(statement);
    sqlite3_close(connection);
}

/// Puts values one behind the other.
struct Appender {
    std::string& bytes;

    void null(int, Kind) const { bytes += '\0'; }
    void integer(int, std::int64_t value) const { add(&value, sizeof value); }
    void real(int, double value) const { add(&value, sizeof value); }
    void text(int, const std::string& value) const { bytes += value; }
    void blob(int, const void* data, std::size_t size) const { add(data, size); }

private:
    void add(const void* data, std::size_t size) const { bytes.append(static_cast<const char*>(data), size); }
};

void check(bool succeeded) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), "the bare file");
    }
}

/// A file that grows, synced after each batch.
void appendToFile(const std::vector<PlainEvent>& events, const std::string& path) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    check(file >= 0);
    std::string bytes;
    const Appender appender{bytes};
    inBatches(
        events, [&](const PlainEvent& event) { bindEach(event, appender, [] {}); },
        [&] {
            check(::write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
            check(::fdatasync(file) == 0);
            bytes.clear();
        });
    ::close(file);
}

int run(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: zav_rates STORE\n");
        return 2;
    }
    const ZAVSet<ZAVEvent> events = readAll(arguments[1]);
    std::vector<PlainEvent> plain;
    for (const auto& event : events) {
        plain.push_back(plainEventOf(*event));
    }
    struct Way {
        const char* name;
        std::function<void(const std::string& path)> store;
        std::vector<double> seconds{};
    };
    std::array ways{
        Way{"the library", [&](const std::string& path) { persist(events, path); }},
        Way{"one table", [&](const std::string& path) { insertInOneTable(plain, path); }},
        Way{"bare append", [&](const std::string& path) { appendToFile(plain, path); }},
    };
    for (std::size_t turn = 0; turn < turns; ++turn) {
        for (std::size_t index = 0; index < ways.size(); ++index) {
            Way& way = ways[(turn + index) % ways.size()];
            makeNew(events);
            const test::TemporaryDirectory directory;
            const auto begin = std::chrono::steady_clock::now();
            way.store(directory.file("store.db"));
            way.seconds.push_back(
                std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
        }
    }
    std::printf(
        "%zu events on %s, in transactions of %zu\n\n| | seconds | events a second |\n|---|---:|---:|\n",
        events.size(), std::string(ZAVDatabaseEngine::version()).c_str(), replayBatch);
    for (const Way& way : ways) {
        const double seconds = median(way.seconds);
        std::printf("| %s | %.2f | %.0f |\n", way.name, seconds,
                    static_cast<double>(events.size()) / seconds);
    }
    return 0;
}

}  // namespace
}  // namespace zav::bench

int main(int count, char** arguments) {
    return zav::bench::runMain(zav::bench::run, count, arguments);
}
