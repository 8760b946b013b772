#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>
#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVKeyedValueRepository.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <ostream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Support/DatabaseHandles.h"
#include "Support/LogCapture.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestEffort.h"
#include "Support/TestStore.h"
#include "Support/Tool.h"

namespace zav::test {
namespace {

constexpr std::string_view beyondBounds =
    "database disk image is malformed: a statement met more than a file of this size can hold";

// Files whose pages lead to one another

constexpr std::size_t pageSize = 512;

class Pages {
public:
    explicit Pages(std::string bytes) : bytes_(std::move(bytes)) {}

    [[nodiscard]] const std::string& bytes() const { return bytes_; }

    enum class Leaf { first, last };

    /// Puts pages between a tree's root and a leaf, so many that every way through them has the greatest
    /// length that the engine follows, and so entangled that there are more than 10^11 ways.
    void entangle(std::uint32_t root, Leaf end = Leaf::first) {
        constexpr int depth = 17;
        constexpr std::size_t pointersOfAPage = 4;
        const std::uint32_t leaf = leafBelow(root, end);
        const std::string cell = firstCell(root);
        for (int level = 1; level <= depth; ++level) {
            const std::uint32_t next = level == depth ? leaf : pageCount() + 2;
            bytes_ += interiorPage(bytes_[header(root)], cell, pointersOfAPage, next);
        }
        leadAllPointers(root, pageCount() - depth + 1);
        put(28, pageCount());
    }

    /// Has each pointer of a tree's root lead to the root.
    void bite(std::uint32_t root) { leadAllPointers(root, root); }

    /// Has the chain of pages that begins at `page` lead from its first page to that page again.
    void closeChain(std::uint32_t page) { put((page - 1) * pageSize, page); }

    [[nodiscard]] std::uint32_t firstFreePage() const { return word(32); }

    /// The first page whose beginning is that of an overflow page full of `letter`, which leads to another.
    [[nodiscard]] std::uint32_t overflowPageOf(char letter) const {
        for (std::uint32_t page = 1; page <= pageCount(); ++page) {
            const std::size_t at = (page - 1) * pageSize;
            if (word(at) != 0 && word(at) <= pageCount() &&
                bytes_.compare(at + 4, pageSize - 4, std::string(pageSize - 4, letter)) == 0) {
                return page;
            }
        }
        throw std::runtime_error("there is no such overflow page");
    }

private:
    static constexpr char tableInterior = 5;
    static constexpr char indexInterior = 2;

    [[nodiscard]] std::uint32_t pageCount() const {
        return static_cast<std::uint32_t>(bytes_.size() / pageSize);
    }
    [[nodiscard]] static std::size_t header(std::uint32_t page) {
        return (page - 1) * pageSize + (page == 1 ? 100 : 0);
    }
    [[nodiscard]] std::uint32_t number(std::size_t at, int size) const {
        std::uint32_t value = 0;
        for (int index = 0; index < size; ++index) {
            value = value << 8 | static_cast<unsigned char>(bytes_[at + static_cast<std::size_t>(index)]);
        }
        return value;
    }
    [[nodiscard]] std::uint32_t word(std::size_t at) const { return number(at, 4); }

    void put(std::size_t at, std::uint32_t value) { bytes_.replace(at, 4, wordOf(value)); }

    [[nodiscard]] static std::string wordOf(std::uint32_t value) {
        std::string bytes;
        for (const int shift : {24, 16, 8, 0}) {
            bytes += static_cast<char>((value >> shift) & 0xFF);
        }
        return bytes;
    }

    [[nodiscard]] bool isInterior(std::uint32_t page) const {
        const char kind = bytes_[header(page)];
        return kind == tableInterior || kind == indexInterior;
    }

    /// Where the cells of an interior page begin.
    [[nodiscard]] std::vector<std::size_t> cells(std::uint32_t page) const {
        std::vector<std::size_t> positions;
        const std::size_t at = header(page);
        for (std::uint32_t index = 0; index < number(at + 3, 2); ++index) {
            positions.push_back((page - 1) * pageSize + number(at + 12 + 2 * std::size_t{index}, 2));
        }
        return positions;
    }

    [[nodiscard]] std::uint32_t leafBelow(std::uint32_t page, Leaf end) const {
        if (!isInterior(page)) {
            throw std::runtime_error("the tree is one page");
        }
        while (isInterior(page)) {
            page = word(end == Leaf::first ? cells(page).front() : header(page) + 8);
        }
        return page;
    }

    /// The bytes of a page's first cell: of a table the pointer and a key, of an index the pointer and an
    /// entry that is short enough to be all here.
    [[nodiscard]] std::string firstCell(std::uint32_t page) const {
        const std::size_t at = cells(page).front();
        std::size_t size = 5;
        for (; (bytes_[at + size - 1] & 0x80) != 0; ++size) {
        }
        if (bytes_[header(page)] == indexInterior) {
            if (size != 5) {
                throw std::runtime_error("the entry is too long");
            }
            size += static_cast<unsigned char>(bytes_[at + 4]);
        }
        return bytes_.substr(at, size);
    }

    [[nodiscard]] static std::string interiorPage(char kind, const std::string& cell, std::size_t count,
                                                  std::uint32_t child) {
        std::string page(pageSize, '\0');
        std::size_t at = pageSize;
        const auto putHalf = [&](std::size_t position, std::size_t value) {
            page[position] = static_cast<char>(value >> 8);
            page[position + 1] = static_cast<char>(value & 0xFF);
        };
        for (std::size_t index = 0; index < count; ++index) {
            at -= cell.size();
            page.replace(at, cell.size(), wordOf(child) + cell.substr(4));
            putHalf(12 + 2 * index, at);
        }
        page[0] = kind;
        putHalf(3, count);
        putHalf(5, at);
        page.replace(8, 4, wordOf(child));
        return page;
    }

    void leadAllPointers(std::uint32_t page, std::uint32_t child) {
        for (const std::size_t cell : cells(page)) {
            put(cell, child);
        }
        put(header(page) + 8, child);
    }

    std::string bytes_;
};

/// A closed store of small pages in which each table and index has several, with a free list and with
/// contents that go beyond their pages.
class SoundStore {
public:
    /// It has no parts: a tree of changes without end leads to it again and again.
    static constexpr ZAVDatabaseIdentifier eventOfAllChanges = 5000;

    SoundStore() {
        const std::string path = directory_.file("sound.db");
        run(*openHandle(path, withoutWriteAheadLog()),
            "PRAGMA page_size=512; CREATE TABLE passing (a); DROP TABLE passing; VACUUM");
        auto database = ZAVDatabaseSchema::openDatabase(path);
        fillStore(database);
        run(*database, rows);
        auto trees = database->executeQuery("SELECT name, rootpage FROM sqlite_master WHERE rootpage > 0");
        while (trees && trees->next()) {
            roots_.emplace_back(trees->stringForColumnIndex(0).value_or(""),
                                trees->longLongIntForColumnIndex(1));
        }
        database.reset();
        bytes_ = bytesOfFile(path);
    }

    [[nodiscard]] Pages pages() const { return Pages(bytes_); }

    /// With a tree of this name that has no end. One of events or changes leads to the last of them, which
    /// have no parts: it would take minutes to read all parts of the first again and again.
    [[nodiscard]] Pages entangled(std::string_view tree) const {
        const bool isOfEvents = tree.starts_with("events") || tree.starts_with("synced_changes");
        Pages pages(bytes_);
        pages.entangle(rootOf(tree), isOfEvents ? Pages::Leaf::last : Pages::Leaf::first);
        return pages;
    }

    [[nodiscard]] std::uint32_t rootOf(std::string_view tree) const {
        for (const auto& [name, root] : roots_) {
            if (name == tree) {
                return static_cast<std::uint32_t>(root);
            }
        }
        throw std::runtime_error("there is no tree " + std::string(tree));
    }

private:
    static constexpr const char* rows = R"(
        CREATE TEMP TABLE n AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 200)
            SELECT i FROM n;
        INSERT INTO streams (stream_id) SELECT CAST('another-' || i AS BLOB) FROM n;
        INSERT INTO events (type, seq, stream_database_identifier, client_id)
            SELECT 2, 1000 + i, 1, CAST('sequenced-' || i AS BLOB) FROM n;
        INSERT INTO events (type, stream_database_identifier, client_id) SELECT 3, 1, CAST('waiting' AS BLOB) FROM n;
        INSERT INTO events (type, target_seq, stream_database_identifier, client_id)
            SELECT 9, 1000000 + i, 1, CAST('deleting' AS BLOB) FROM n;
        INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, type, value, url, size,
                                         transfer_status, file_path, last_accessed)
            SELECT 100 + i, 1, 'text/plain', x'00', 'u', 1, i % 5, 'f', 5 FROM n;
        INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, value)
            VALUES (999, 1, replace(hex(zeroblob(20000)), '0', 'Q'));
        INSERT INTO events (database_identifier, type, client_id) VALUES (5000, 1, CAST('changed' AS BLOB));
        INSERT INTO synced_changes (table_name, row_identifier, change_type) SELECT 'events', 5000, 0 FROM n;
        INSERT INTO synced_changes (table_name, row_identifier, change_type) SELECT 'events', 5000, 1 FROM n;
        INSERT INTO conversations (stream_id) SELECT x'11111111111111111111111111111101' FROM n;
        INSERT INTO conversation_participants (conversation_database_identifier, member_id) SELECT 1, i FROM n;
        INSERT INTO messages (event_database_identifier) SELECT 1 FROM n;
        INSERT INTO keyed_values_local SELECT 1, 'event', 0, 'key-' || i, 'v', NULL FROM n;
        INSERT INTO keyed_values_remote SELECT 1, 'event', 0, 'key-' || i, 'v', NULL FROM n;
        CREATE TABLE notes (a); INSERT INTO notes SELECT zeroblob(400) FROM n; DROP TABLE notes;
    )";

    TemporaryDirectory directory_;
    std::vector<std::pair<std::string, std::int64_t>> roots_;
    std::string bytes_;
};

const SoundStore& soundStore() {
    static const SoundStore store;
    return store;
}

void writeFile(const std::string& path, const std::string& bytes) {
    for (const char* const companion : {"-wal", "-shm", "-journal"}) {
        ::unlink((path + companion).c_str());
    }
    if (!(std::ofstream(path, std::ios::binary) << bytes).flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

// Work that must end

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool memoryCanBeLimited = false;
#elif defined(__has_feature)
constexpr bool memoryCanBeLimited = !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer);
#else
constexpr bool memoryCanBeLimited = true;
#endif

constexpr rlim_t mostMemory = rlim_t{1} << 30;

/// Generous: what ends at all takes half of it. Tools that watch over memory take many times as long.
unsigned mostSeconds() {
    return memoryCanBeLimited && effort() != "brief" ? 60 : 1200;
}

/// What became of some work in a process of its own, whose time and memory are limited.
struct LimitedWork {
    int status = 0;
    std::set<std::string> said;
};

LimitedWork runLimited(const std::function<std::set<std::string>()>& work) {
    int ends[2];
    if (::pipe(ends) != 0) {
        throw std::runtime_error("pipe");
    }
    const pid_t child = ::fork();
    if (child == 0) {
        const rlimit limit{mostMemory, mostMemory};
        if (!limitTime(mostSeconds()) || (memoryCanBeLimited && ::setrlimit(RLIMIT_DATA, &limit) != 0)) {
            ::_exit(2);
        }
        int status = 0;
        try {
            std::string text;
            for (const std::string& line : work()) {
                text += line + "\n";
            }
            status = ::write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 2;
        } catch (const std::exception& failure) {
            static_cast<void>(::write(ends[1], failure.what(), std::strlen(failure.what())));
            status = 1;
        }
        ::_exit(status);
    }
    ::close(ends[1]);
    LimitedWork result;
    std::string text;
    char block[4096];
    for (ssize_t count = 0; (count = ::read(ends[0], block, sizeof block)) > 0;) {
        text.append(block, static_cast<std::size_t>(count));
    }
    ::close(ends[0]);
    while (::waitpid(child, &result.status, 0) < 0 && errno == EINTR) {
    }
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        result.said.insert(line);
    }
    return result;
}

std::string joined(const std::set<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

void expectEnd(const LimitedWork& work) {
    EXPECT_FALSE(WIFSIGNALED(work.status))
        << "ended by signal " << WTERMSIG(work.status) << " instead of by itself\n"
        << joined(work.said);
    EXPECT_EQ(work.status, 0) << joined(work.said);
}

/// Runs every operation, each on a copy of its own; "failed: NAME" for those that failed with the error of
/// damage, "wrong: ..." for those that failed in another way.
std::set<std::string> outcomesOfEveryOperation(const std::string& bytes) {
    std::set<std::string> outcomes;
    const TemporaryDirectory directory;
    const std::string path = directory.file("damaged.db");
    const LogCapture log;
    FMDatabaseOptions options;
    options.synchronous = FMDatabaseOptions::Synchronous::normal;
    for (const Operation& operation : everyOperation()) {
        writeFile(path, bytes);
        ZAVError error;
        const auto database = ZAVDatabaseSchema::openDatabase(path, options, &error);
        if (!database) {
            return {"refused: " + std::to_string(error.code() & 0xFF)};
        }
        try {
            static_cast<void>(operation.call(ZAVEventRepository(database), &error));
        } catch (const NSInternalInconsistencyException&) {
            // What a lookup does not find any more, an operation may miss.
        }
        if ((error.code() & 0xFF) == SQLITE_CORRUPT) {
            outcomes.insert("failed: " + nameOf(operation));
        } else if (error && (error.code() & 0xFF) != SQLITE_CONSTRAINT) {
            outcomes.insert("wrong: " + nameOf(operation) + ": " + error.description());
        }
        if (database->openResultSets() != 0) {
            outcomes.insert("wrong: " + nameOf(operation) + " left a cursor open");
        }
    }
    return outcomes;
}

/// The engine that cannot be interrupted while it counts.
bool countsWithoutEnd() {
    return sqlite3_libversion_number() < 3040000;
}

struct Tree {
    const char* name;
    const char* victim;  ///< an operation that meets the damage; none when it is met by lookups alone
    friend std::ostream& operator<<(std::ostream& stream, const Tree& tree) { return stream << tree.name; }
};

class EndlessTree : public testing::TestWithParam<Tree> {
protected:
    void SetUp() override {
        if (countsWithoutEnd() && std::string_view(GetParam().victim).starts_with("countOf")) {
            GTEST_SKIP() << "this engine cannot be interrupted while it counts";
        }
        if (effort() == "brief" && *GetParam().victim == '\0') {
            GTEST_SKIP() << "a brief run takes the trees that an operation is known to meet";
        }
    }
};

TEST_P(EndlessTree, EndsEveryOperationWithTheErrorOfDamageOrAnAnswer) {
    const Pages pages = soundStore().entangled(GetParam().name);
    const LimitedWork work = runLimited([&] { return outcomesOfEveryOperation(pages.bytes()); });
    expectEnd(work);
    for (const std::string& line : work.said) {
        EXPECT_FALSE(line.starts_with("wrong")) << line;
    }
    if (*GetParam().victim != '\0') {
        EXPECT_TRUE(work.said.contains(std::string("failed: ") + GetParam().victim))
            << "nothing was proved: " << GetParam().victim << " did not meet the damage\n"
            << joined(work.said);
    }
}

TEST_P(EndlessTree, WhoseRootBitesItselfEndsEveryOperationToo) {
    Pages pages = soundStore().pages();
    pages.bite(soundStore().rootOf(GetParam().name));
    const LimitedWork work = runLimited([&] { return outcomesOfEveryOperation(pages.bytes()); });
    expectEnd(work);
    for (const std::string& line : work.said) {
        EXPECT_FALSE(line.starts_with("wrong")) << line;
    }
}

TEST_P(EndlessTree, EndsEveryCommandOfTheToolThatReads) {
    const Pages pages = soundStore().entangled(GetParam().name);
    const ToolStore store;
    for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
             {"stats"},
             {"stats", "--json"},
             {"check"},
             {"events", "--all"},
             {"events", "--publishable"},
             {"events", "--unprocessed"},
             {"parts", "--unassigned-urls"},
             {"parts", "--expired-downloads"},
             {"reclaim", "--bytes", "100000", "--cache", store.file(""), "--dry-run"}}) {
        writeFile(store.path(), pages.bytes());
        ToolCircumstances limits;
        if (memoryCanBeLimited) {
            limits.memoryLimit = mostMemory;
        }
        limits.secondsToLive = mostSeconds();
        std::vector<std::string> options(command.begin() + 1, command.end());
        const ToolRun run = store.run(command.front(), options, limits);
        EXPECT_LT(run.status, 128) << command.front() << " was ended by a signal\n" << run.err;
        if (command.front() == "check") {
            EXPECT_NE(run.status, 0) << "check finds nothing wrong";
            EXPECT_NE((run.out + run.err).find("2nd reference to page"), std::string::npos)
                << "check does not say what is wrong:\n"
                << run.out << run.err;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Of, EndlessTree,
    testing::Values(
        Tree{"events", "allEvents"}, Tree{"events_by_stream_and_seq", "countOfEvents"},
        Tree{"events_without_seq", "publishableEvents"}, Tree{"events_by_client_id", ""},  //
        Tree{"events_by_deleted_seq", ""}, Tree{"streams", ""},
        Tree{"streams_by_stream_id", "countOfStreams"}, Tree{"event_content_parts", ""},
        Tree{"event_content_parts_by_event_and_index", "allEvents"}, Tree{"event_content_parts_by_url", ""},
        Tree{"event_content_parts_by_transfer_status", "eventContentsHavingUnassignedURLsWithError"},
        Tree{"event_content_parts_by_last_accessed", ""},
        Tree{"event_content_parts_by_disk_use", "diskUtilization"}, Tree{"synced_changes", ""},
        Tree{"synced_changes_by_row", "unprocessedEvents"}, Tree{"conversations", ""},
        Tree{"conversations_by_stream_id", ""}, Tree{"conversation_participants", ""},
        Tree{"conversation_participants_by_member", ""}, Tree{"messages", ""}, Tree{"messages_by_event", ""},
        Tree{"keyed_values_local", ""}, Tree{"keyed_values_remote", "allEvents"}),
    [](const testing::TestParamInfo<Tree>& tree) { return std::string(tree.param.name); });

// What an operation tells of it

/// A damaged store that is open.
class EntangledStore {
public:
    explicit EntangledStore(std::string_view tree) {
        writeFile(path(), soundStore().entangled(tree).bytes());
        database = ZAVDatabaseSchema::openDatabase(path());
        if (!database) {
            throw std::runtime_error("the damage was met while the store was opened");
        }
    }

    [[nodiscard]] std::string path() const { return directory.file("damaged.db"); }

    TemporaryDirectory directory;
    std::shared_ptr<FMDatabase> database;
};

TEST(AnEndlessStatement, FailsItsOperationWithTheEnginesErrorOfDamage) {
    const EntangledStore store("events");
    const LogCapture log;
    ZAVError error;
    EXPECT_EQ(ZAVEventRepository(store.database).allEvents(&error), std::nullopt);
    EXPECT_EQ(error.domain(), "SQLite");
    EXPECT_EQ(error.code(), SQLITE_CORRUPT);
    EXPECT_EQ(error.message(), beyondBounds);
    EXPECT_EQ(store.database->lastError(), error);
    EXPECT_EQ(store.database->openResultSets(), 0U);
}

TEST(AnEndlessStatement, ThatReadsThePartsOfEachEventEndsTheOperationAtTheFirst) {
    const EntangledStore store("event_content_parts_by_event_and_index");
    const LogCapture log;
    std::size_t runsOfParts = 0;
    store.database->setStatementObserver([&](const FMStatementRun& run) {
        runsOfParts += run.sql.find("FROM event_content_parts") != std::string_view::npos ? 1 : 0;
    });
    ZAVError error;
    EXPECT_EQ(ZAVEventRepository(store.database).allEvents(&error), std::nullopt)
        << "an event was handed out with parts that are not its own";
    EXPECT_EQ(error.code(), SQLITE_CORRUPT);
    EXPECT_EQ(error.message(), beyondBounds);
    EXPECT_EQ(runsOfParts, 1U) << "the endless statement was run again for further events";
    EXPECT_EQ(ZAVEventRepository(store.database).eventForDatabaseIdentifier(1, &error), nullptr);
    EXPECT_EQ(error.message(), beyondBounds);
}

TEST(AnEndlessStatement, ThatWritesTakesItsTransactionBackAndNoOther) {
    const EntangledStore store("synced_changes_by_row");
    const LogCapture log;
    const ZAVEventRepository repository(store.database);
    auto transaction = ZAVTransaction::begin(*store.database);
    ASSERT_TRUE(transaction);
    ASSERT_TRUE(store.database->executeUpdate("UPDATE events SET creator_name = 'changed'"));
    const auto event = std::make_shared<ZAVEvent>(SoundStore::eventOfAllChanges, 1);
    ZAVError error;
    EXPECT_FALSE(repository.deleteUnprocessedEvents({event}, &error));
    EXPECT_EQ(error.code() & 0xFF, SQLITE_CORRUPT) << error.description();
    EXPECT_FALSE(error.message() == beyondBounds && store.database->inTransaction())
        << "a write that was interrupted left its transaction open";
    if (!store.database->inTransaction()) {
        EXPECT_FALSE(transaction->commit(&error)) << "a transaction that was taken back can be committed";
        EXPECT_EQ(scalar(*store.database, "SELECT COUNT(*) FROM events WHERE creator_name = 'changed'"), "0");
    }
    transaction.reset();
    auto next = ZAVTransaction::begin(*store.database, &error);
    ASSERT_TRUE(next) << error.description();
    EXPECT_TRUE(store.database->executeUpdate("UPDATE events SET creator_name = 'later'"));
    EXPECT_TRUE(next->commit(&error)) << error.description();
    EXPECT_NE(scalar(*store.database, "SELECT COUNT(*) FROM events WHERE creator_name = 'later'"), "0");
}

TEST(AnEndlessStatement, InTheSchemaIsRefusedOnOpening) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("schema.db");
    {
        const auto database = openHandle(path, withoutWriteAheadLog());
        run(*database, "PRAGMA page_size=512; CREATE TABLE passing (a); DROP TABLE passing; VACUUM");
        for (int index = 0; index < 60; ++index) {
            run(*database, "CREATE TABLE t" + std::to_string(index) + " (a, b, c, d, e, f, g, h)");
        }
    }
    Pages pages(bytesOfFile(path));
    pages.entangle(1);
    const LimitedWork work = runLimited([&] {
        writeFile(path, pages.bytes());
        ZAVError error;
        return std::set<std::string>{FMDatabase::databaseWithPath(path, {}, &error)
                                         ? std::string("opened")
                                         : "refused: " + std::to_string(error.code() & 0xFF)};
    });
    expectEnd(work);
    EXPECT_EQ(work.said, std::set<std::string>{"refused: 11"});
}

TEST(AChainOfPages, ThatLeadsBackIsNotFollowedWithoutEnd) {
    Pages contents = soundStore().pages();
    contents.closeChain(contents.overflowPageOf('Q'));
    Pages freeList = soundStore().pages();
    ASSERT_NE(freeList.firstFreePage(), 0U);
    freeList.closeChain(freeList.firstFreePage());
    for (const Pages* const pages : {&contents, &freeList}) {
        const LimitedWork work = runLimited([&] { return outcomesOfEveryOperation(pages->bytes()); });
        expectEnd(work);
        for (const std::string& line : work.said) {
            EXPECT_FALSE(line.starts_with("wrong")) << line;
        }
    }
}

// What is not limited

constexpr const char* endlessNumbers = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) ";

/// Compacts a copy: "failed: CODE" or "done", and "wrong: ..." for what it left behind.
std::set<std::string> outcomesOfCompacting(const std::string& bytes) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("damaged.db");
    writeFile(path, bytes);
    ZAVError error;
    const auto database = ZAVDatabaseSchema::openDatabase(path, {}, &error);
    if (!database) {
        return {"refused: " + std::to_string(error.code() & 0xFF)};
    }
    const bool isDone = ZAVDatabaseMaintenance(database).compact({}, {}, &error).has_value();
    std::set<std::string> outcomes{isDone ? "done" : "failed: " + std::to_string(error.code() & 0xFF)};
    if (!isDone && bytesOfFile(path) != bytes) {
        outcomes.insert("wrong: the file is another one");
    }
    if (bytesOfFile(path + "-wal").size() > bytes.size()) {
        outcomes.insert("wrong: the log has " + std::to_string(bytesOfFile(path + "-wal").size()) + " bytes");
    }
    return outcomes;
}

TEST(ACompaction, OfAFileWhosePagesLeadToOneAnotherEndsAndLeavesTheFileAsItWas) {
    for (const char* const tree : {"event_content_parts", "keyed_values_remote"}) {
        for (const bool isEntangled : {true, false}) {
            Pages pages = soundStore().pages();
            const std::uint32_t root = soundStore().rootOf(tree);
            isEntangled ? pages.entangle(root) : pages.bite(root);
            const LimitedWork work = runLimited([&] { return outcomesOfCompacting(pages.bytes()); });
            expectEnd(work);
            // An older engine meets a row twice before it has come far, and says so.
            EXPECT_TRUE(work.said == std::set<std::string>{"failed: 11"} ||
                        work.said == std::set<std::string>{"failed: 19"})
                << tree << (isEntangled ? ", entangled: " : ", biting itself: ") << joined(work.said);
        }
    }
}

TEST(AnApplicationsOwnStatement, TakesAsManyStepsAsItNeedsOnASmallFile) {
    const TestStore store;
    EXPECT_EQ(store.rows("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000000) "
                         "SELECT COUNT(*) FROM n"),
              std::vector<std::string>{"5000000"})
        << "fifty million steps were too many";
}

TEST(AnApplicationsOwnStatement, YieldsAsManyRowsAsItLikesAlsoWhileABoundedCursorIsOpen) {
    const StreamStore store;
    auto bounded = store.database().executeBoundedQuery("SELECT * FROM streams");
    ASSERT_TRUE(bounded && bounded->next());
    auto rows = store.database().executeQuery(std::string(endlessNumbers) + "SELECT i FROM n LIMIT 300000");
    std::size_t count = 0;
    ZAVError error;
    while (rows && rows->nextWithError(&error)) {
        ++count;
    }
    EXPECT_EQ(count, 300000U) << error.description();
    EXPECT_FALSE(bounded->nextWithError(&error));
    EXPECT_FALSE(error) << "the bounded cursor was charged with what another did: " << error.description();
}

TEST(ABoundedStatement, EndsWhateverMakesItEndless) {
    const TestStore store;
    const auto expectDamage = [](const ZAVError& error) {
        EXPECT_EQ(error.domain(), "SQLite");
        EXPECT_EQ(error.code(), SQLITE_CORRUPT);
        EXPECT_EQ(error.message(), beyondBounds);
    };
    ZAVError error;
    auto rows = store.database().executeBoundedQuery(std::string(endlessNumbers) + "SELECT i FROM n");
    std::size_t count = 0;
    while (rows && rows->nextWithError(&error)) {
        ++count;
    }
    expectDamage(error);
    EXPECT_LT(count, 200000U) << "rows";

    error = {};
    auto sum = store.database().executeBoundedQuery(std::string(endlessNumbers) + "SELECT SUM(i) FROM n");
    ASSERT_TRUE(sum);
    EXPECT_FALSE(sum->nextWithError(&error));
    expectDamage(error);

    EXPECT_FALSE(store.database().executeBoundedUpdate("INSERT INTO conversations (stream_id) " +
                                                       std::string(endlessNumbers) + "SELECT i FROM n"));
    expectDamage(store.database().lastError());
    EXPECT_EQ(store.rows("SELECT COUNT(*) FROM conversations"), std::vector<std::string>{"0"})
        << "half of an endless statement was stored";
    EXPECT_TRUE(store.database().executeBoundedUpdate("INSERT INTO conversations (stream_id) VALUES (1)"))
        << "the next statement pays for the last one";
}

TEST(ABoundedStatement, ThatSomebodyElseInterruptsFailsAsInterrupted) {
    const StreamStore store;
    store.addStream(uuidNumber(2));
    auto rows = store.database().executeBoundedQuery("SELECT * FROM streams");
    ASSERT_TRUE(rows && rows->next());
    sqlite3_interrupt(store.database().sqliteHandle());
    ZAVError error;
    EXPECT_FALSE(rows->nextWithError(&error));
    EXPECT_EQ(error.code(), SQLITE_INTERRUPT) << error.description();
}

/// Fills a sound store as densely as its tables allow.
const std::string densestRows = R"(
    CREATE TEMP TABLE n AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 40000)
        SELECT i FROM n;
    INSERT INTO streams (stream_id) VALUES (NULL);
    INSERT INTO events (type, client_id) SELECT 0, x'' FROM n;
    INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, transfer_status, file_path,
                                     last_accessed)
        SELECT i, 0, 2, '', 0 FROM n;
    INSERT INTO synced_changes (table_name, row_identifier, change_type) SELECT 'events', 1, 0 FROM n;
    INSERT INTO keyed_values_remote SELECT 0, '', 0, i, NULL, NULL FROM n;
)";

void expectNothingIsCutOff(const std::shared_ptr<FMDatabase>& database) {
    const LogCapture log;
    const ZAVEventRepository repository(database);
    ZAVError error;
    const auto sizeOf = [](const auto& set) { return set ? set->size() : 0; };
    EXPECT_EQ(sizeOf(repository.allEvents(&error)), 40000U) << error.description();
    EXPECT_EQ(sizeOf(repository.unpublishableEvents(&error)), 40000U) << error.description();
    EXPECT_EQ(sizeOf(repository.unprocessedEvents(&error)), 1U) << error.description();
    EXPECT_EQ(sizeOf(repository.leastRecentlyAccessedEventContentPartsForSize(1, &error)), 40000U)
        << error.description();
    EXPECT_EQ(sizeOf(repository.eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
                  std::nullopt, 0, 100000, &error)),
              40000U)
        << error.description();
    const auto values = ZAVKeyedValueRepository::repositoryWithDatabase(database).keyedValuesInContext(
        ZAVKeyedValuesContext::contextWithTable(ZAVKeyedValuesTableRemote, "", 0,
                                                static_cast<ZAVKeyedValuesKeyType>(0)),
        &error);
    EXPECT_EQ(values ? values->keyedValues().size() : 0, 40000U) << error.description();
    EXPECT_EQ(repository.countOfEvents(&error), 40000U);
    EXPECT_TRUE(repository.deleteUnprocessedEvents({std::make_shared<ZAVEvent>(1, 1)}, &error));
    EXPECT_EQ(database->changes(), 40000);
    EXPECT_FALSE(error) << error.description();
}

TEST(TheDensestStore, IsNeverCutOffWhereverItsPagesAre) {
    const TemporaryDirectory directory;
    FMDatabaseOptions options;
    options.synchronous = FMDatabaseOptions::Synchronous::normal;
    for (const char* const pageSizeOfFile : {"512", "65536"}) {
        SCOPED_TRACE(pageSizeOfFile);
        const std::string path = directory.file(std::string("file-") + pageSizeOfFile);
        options.writeAheadLog = false;
        run(*openHandle(path, options), std::string("PRAGMA page_size=") + pageSizeOfFile +
                                            "; CREATE TABLE passing (a); DROP TABLE passing; VACUUM");
        const auto database = ZAVDatabaseSchema::openDatabase(path, options);
        ASSERT_NE(database, nullptr);
        run(*database, densestRows);
        expectNothingIsCutOff(database);
    }
}

TEST(TheDensestStore, IsNeverCutOffWhileAllOfItIsInTheLog) {
    const TemporaryDirectory directory;
    FMDatabaseOptions options;
    options.synchronous = FMDatabaseOptions::Synchronous::normal;
    options.writeAheadLogPages = 0;
    const auto database = ZAVDatabaseSchema::openDatabase(directory.file("log.db"), options);
    ASSERT_NE(database, nullptr);
    run(*database, densestRows);
    expectNothingIsCutOff(database);
}

TEST(TheDensestStore, IsNeverCutOffBeforeItIsCommittedNorInMemory) {
    const TemporaryDirectory directory;
    for (const std::string& path : {directory.file("transaction.db"), std::string(":memory:")}) {
        SCOPED_TRACE(path);
        const auto database = ZAVDatabaseSchema::openDatabase(path);
        ASSERT_NE(database, nullptr);
        run(*database, "BEGIN;" + densestRows);
        expectNothingIsCutOff(database);
        run(*database, "COMMIT");
    }
}

}  // namespace
}  // namespace zav::test
