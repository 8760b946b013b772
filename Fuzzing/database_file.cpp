// Damaged database files, put through every operation: each works or fails with an error.
//
// An input is a byte of options, then changes to a sound event store, or with bit 0 the bytes of a whole
// file. Bit 1 puts a write-ahead log beside the store, bit 2 corrects the log's checksums after the changes,
// so that its frames are believed. A change is a page and an offset in it (two bytes each; the highest bit of
// the page chooses the log) and a byte that says how many bytes follow to be put there; none cuts the file
// off there.

#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "Expect.h"
#include "InputReader.h"
#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Support/TemporaryDirectory.h"

namespace {

using namespace zav;
using fuzzing::expect;
using fuzzing::InputReader;

constexpr std::size_t pageSize = 512;
constexpr std::size_t logHeaderSize = 32;
constexpr std::size_t frameHeaderSize = 24;
constexpr std::size_t frameSize = frameHeaderSize + pageSize;

/// How much an operation may make the engine do: damaged tables can hold many more rows than there were.
constexpr int instructionsPerCall = 1000;
constexpr int callsPerOperation = 300;

std::string bytesOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

struct Files {
    std::string store;
    std::string log;
};

/// The place where one damaged store after the other is kept.
class Place {
public:
    [[nodiscard]] std::string path() const { return directory_.file("chat.db"); }
    [[nodiscard]] std::string logPath() const { return path() + "-wal"; }

    void put(const Files& files) const {
        for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
            std::filesystem::remove(entry.path());
        }
        std::ofstream(path(), std::ios::binary) << files.store;
        if (!files.log.empty()) {
            std::ofstream(logPath(), std::ios::binary) << files.log;
        }
    }

private:
    test::TemporaryDirectory directory_;
};

/// Makes a file of small pages, so that there are many of them, with nothing in it.
void makeEmptyFile(const std::string& path) {
    sqlite3* connection = nullptr;
    const bool made = sqlite3_open(path.c_str(), &connection) == SQLITE_OK &&
                      sqlite3_exec(connection,
                                   ("PRAGMA page_size=" + std::to_string(pageSize) +
                                    "; CREATE TABLE passing (a); DROP TABLE passing; VACUUM")
                                       .c_str(),
                                   nullptr, nullptr, nullptr) == SQLITE_OK;
    sqlite3_close(connection);
    expect(made, "an empty database to be made");
}

Files makeSoundFiles(const Place& place) {
    makeEmptyFile(place.path());
    auto database = ZAVDatabaseSchema::openDatabase(place.path());
    expect(database != nullptr, "a sound store to open");
    test::fillStore(database);
    database.reset();
    Files files;
    files.store = bytesOf(place.path());
    FMDatabaseOptions options;
    options.writeAheadLogPages = 0;
    database = ZAVDatabaseSchema::openDatabase(place.path(), options);
    expect(
        database && database->executeStatements(
                        "UPDATE events SET creator_name = creator_name || '!';"
                        "INSERT INTO keyed_values_remote VALUES (1, 'event', 1, 'more', zeroblob(700), NULL);"
                        "DELETE FROM event_content_parts WHERE event_database_identifier IN (1, 2)"),
        "a sound store to be changed");
    files.log = bytesOf(place.logPath());
    expect(files.store.size() % pageSize == 0 && files.log.size() > frameSize,
           "a sound store to be in both files");
    return files;
}

std::uint32_t wordAt(const std::string& bytes, std::size_t at, bool bigEndian) {
    std::uint32_t word = 0;
    for (std::size_t index = 0; index < 4; ++index) {
        word = word << 8 | static_cast<unsigned char>(bytes[at + (bigEndian ? index : 3 - index)]);
    }
    return word;
}

void putWord(std::string& bytes, std::size_t at, std::uint32_t word) {
    for (std::size_t index = 0; index < 4; ++index) {
        bytes[at + index] = static_cast<char>(word >> (24 - 8 * index) & 0xFF);
    }
}

/// The running checksum of a write-ahead log.
class Checksum {
public:
    explicit Checksum(bool bigEndian) : bigEndian_(bigEndian) {}

    void add(const std::string& bytes, std::size_t from, std::size_t count) {
        for (std::size_t at = from; at < from + count; at += 8) {
            first_ += wordAt(bytes, at, bigEndian_) + second_;
            second_ += wordAt(bytes, at + 4, bigEndian_) + first_;
        }
    }

    void putAt(std::string& bytes, std::size_t at) const {
        putWord(bytes, at, first_);
        putWord(bytes, at + 4, second_);
    }

private:
    bool bigEndian_;
    std::uint32_t first_ = 0;
    std::uint32_t second_ = 0;
};

void correctChecksums(std::string& log) {
    if (log.size() < logHeaderSize) {
        return;
    }
    Checksum checksum((log[3] & 1) != 0);
    checksum.add(log, 0, 24);
    checksum.putAt(log, 24);
    for (std::size_t frame = logHeaderSize; frame + frameSize <= log.size(); frame += frameSize) {
        log.replace(frame + 8, 8, log, 16, 8);  // the salt, which all of them share
        checksum.add(log, frame, 8);
        checksum.add(log, frame + frameHeaderSize, pageSize);
        checksum.putAt(log, frame + 16);
    }
}

void change(InputReader& input, Files& files) {
    const auto page = input.number<std::uint16_t>();
    const auto offset = input.number<std::uint16_t>();
    const std::string_view bytes = input.text(input.byte() % 64);
    const bool inLog = (page & 0x8000U) != 0;
    std::string& file = inLog ? files.log : files.store;
    if (file.empty()) {
        return;
    }
    const std::size_t at =
        ((page & 0x7FFFU) * (inLog ? frameSize : pageSize) + offset % frameSize) % file.size();
    if (bytes.empty()) {
        file.resize(at);
    } else {
        file.replace(at, std::min(bytes.size(), file.size() - at), bytes.substr(0, file.size() - at));
    }
}

Files damagedFiles(InputReader& input, const Files& sound) {
    const std::uint8_t options = input.byte();
    if ((options & 1) != 0) {
        return {std::string(input.rest()), {}};
    }
    Files files{sound.store, (options & 2) != 0 ? sound.log : std::string()};
    while (!input.atEnd()) {
        change(input, files);
    }
    if ((options & 4) != 0) {
        correctChecksums(files.log);
    }
    return files;
}

int countDown(void* calls) {
    return --*static_cast<int*>(calls) < 0 ? 1 : 0;
}

void checkAnswer(const test::Operation& operation, const test::Answer& answer, const ZAVError& error) {
    const bool failed = answer.value == operation.answers.failing;
    if (error && !failed && answer.value != "set" && answer.value != "event") {
        std::cerr << nameOf(operation) << " answered " << answer.value << " and " << error.description()
                  << '\n';
        expect(false, "an error to come with the answer of a failure");
    }
    if (answer.value == "none" && failed && !error) {
        std::cerr << nameOf(operation) << '\n';
        expect(false, "an operation that answers nothing to say why");
    }
    expect(!answer.text().empty(), "every record to have a text");
}

void runEveryOperation(const std::shared_ptr<FMDatabase>& database) {
    int calls = 0;
    sqlite3_progress_handler(database->sqliteHandle(), instructionsPerCall, countDown, &calls);
    const ZAVEventRepository repository(database);
    for (const test::Operation& operation : test::everyOperation()) {
        calls = callsPerOperation;
        ZAVError error;
        try {
            const test::Answer answer = operation.call(repository, &error);
            checkAnswer(operation, answer, error);
        } catch (const NSInternalInconsistencyException& refusal) {
            expect(!refusal.reason().empty(), "a refusal to come with a reason");
        }
        if (database->openResultSets() != 0 || database->inTransaction()) {
            std::cerr << nameOf(operation) << '\n';
            expect(false, "an operation to leave neither a cursor nor a transaction open");
        }
    }
    sqlite3_progress_handler(database->sqliteHandle(), 0, nullptr, nullptr);
}

bool isRefusedUntouched(const ZAVError& error) {
    return error.domain() == ZAVErrorDomainDatabase &&
           (error.code() == ZAVDatabaseErrorNewerSchema || error.code() == ZAVDatabaseErrorForeignSchema);
}

void check(const Place& place, const Files& files) {
    place.put(files);
    ZAVError error;
    FMDatabaseOptions options;
    options.busyTimeout = std::chrono::milliseconds(0);
    auto database = ZAVDatabaseSchema::openDatabase(place.path(), options, &error);
    if (!database) {
        expect(static_cast<bool>(error), "a store that does not open to say why");
        expect(!isRefusedUntouched(error) || bytesOf(place.path()) == files.store,
               "a store of somebody else to be left as it was");
        return;
    }
    expect(!error, "a store that opens to be no error");
    runEveryOperation(database);
    expect(database.use_count() == 1, "nobody to keep the handle");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    gZAVLogPreferences[ZAVLogComponentModel] = 0;
    // Some engines do not count their memory unless they are asked to before they are used.
    static const bool isCounting = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 1) == SQLITE_OK;
    expect(isCounting, "the engine to count its memory");
    static const Place place;
    static const Files sound = makeSoundFiles(place);
    static const sqlite3_int64 memory = (check(place, sound), sqlite3_memory_used());
    InputReader input(data, size);
    check(place, damagedFiles(input, sound));
    expect(sqlite3_memory_used() == memory, "a handle that was closed to hold no memory");
    return 0;
}
