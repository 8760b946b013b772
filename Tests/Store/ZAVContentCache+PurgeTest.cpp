#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventStore.h>

#include "Support/TemporaryDirectory.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;

constexpr auto trashOfOne = ".zav-trash-0123456789abcdef-one";

/// Has a store know the trash of the mark 01234567 for its own.
constexpr auto markTrash =
    "INSERT INTO keyed_values_local (object_database_identifier, object_type, key_type, key, value)"
    " VALUES (0, 'content', 2, 'trash', '01234567')";

/// A store with the parts `one` and `two`, the part `shared` that two rows name, each in its own way, and a
/// message that is still to be uploaded. The files hold their names.
class Cache {
public:
    Cache() {
        const auto database = ZAVDatabaseSchema::openDatabase(path());
        EXPECT_TRUE(database &&
                    database->executeStatements(
                        "INSERT INTO event_content_parts (database_identifier, event_content_part_id,"
                        " event_database_identifier, transfer_status, file_path, last_accessed, purged)"
                        " VALUES (1, 0, 1, 4, 'one', 1000, 0), (2, 0, 2, 4, 'folder/shared', 2000, NULL),"
                        " (3, 0, 3, 4, 'folder/./sh%61red', 2500, 0), (4, 0, 4, 4, 'two', 3000, 0),"
                        " (5, 0, 5, 0, 'outgoing', 500, 0)"));
        fs::create_directories(fs::path(file("folder/shared")).parent_path());
        for (const std::string name : {"one", "folder/shared", "two", "outgoing"}) {
            write(name, name);
        }
    }

    [[nodiscard]] std::string path() const { return directory_.file("chat.db"); }
    [[nodiscard]] std::string root() const { return directory_.file("cache"); }
    [[nodiscard]] std::string file(const std::string& name) const { return root() + "/" + name; }
    [[nodiscard]] bool has(const std::string& name) const { return fs::exists(file(name)); }
    void write(const std::string& name, const std::string& bytes) const {
        std::ofstream(file(name)) << bytes;
    }
    [[nodiscard]] std::string read(const std::string& name) const { return bytesOfFile(file(name)); }

    [[nodiscard]] std::shared_ptr<FMDatabase> open() const {
        FMDatabaseOptions options;
        options.busyTimeout = std::chrono::milliseconds(0);
        return FMDatabase::databaseWithPath(path(), options);
    }
    [[nodiscard]] std::unique_ptr<ZAVEventStore> openStore() const {
        ZAVEventStoreOptions options;
        options.contentDirectory = ZAVURL::fileURLWithDirectoryPath(root());
        options.database.busyTimeout = std::chrono::milliseconds(0);
        return ZAVEventStore::open(path(), options);
    }
    void execute(const std::string& script) const {
        const auto database = open();
        EXPECT_TRUE(database->executeStatements(script)) << database->lastError().description();
    }

    /// The purge mark of each row.
    [[nodiscard]] std::map<std::int64_t, bool> marks() const {
        std::map<std::int64_t, bool> result;
        const auto database = open();
        auto rows = database->executeQuery("SELECT database_identifier, purged FROM event_content_parts");
        while (rows && rows->next()) {
            result[rows->longLongIntForColumnIndex(0)] = rows->boolForColumnIndex(1);
        }
        return result;
    }

    /// The files that have a name for being removed.
    [[nodiscard]] std::vector<std::string> trash() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::recursive_directory_iterator(root())) {
            if (entry.path().filename().string().starts_with(".zav-trash-")) {
                names.push_back(entry.path().filename().string());
            }
        }
        return names;
    }

    /// Frees so many bytes; 0 only ends what another purge began.
    void purge(std::uint64_t bytes) const {
        ZAVPurgePolicy policy;
        policy.bytesToFree = bytes;
        ZAVError error;
        EXPECT_TRUE(openStore()->content().purge(
            policy, [](const ZAVPurgedContent& content) { EXPECT_EQ(content.reason, ""); }, &error))
            << error.description();
    }

    /// Purges all in a process of its own, which gets a signal when so many statements have run; returns
    /// the process.
    [[nodiscard]] pid_t purgeInAProcess(std::size_t statements, int signal) const {
        const pid_t child = ::fork();
        if (child == 0) {
            const auto store = openStore();
            std::size_t count = 0;
            store->write([&](const ZAVRepositories& repositories) {
                repositories.events.database().setStatementObserver([&](const FMStatementRun&) {
                    if (++count == statements) {
                        ::raise(signal);
                    }
                });
                return true;
            });
            ::_exit(store->content().purge({}) ? 0 : 1);
        }
        return child;
    }

    /// Expects that each row says of its file what is so, and that nothing waits to be removed.
    void expectAgreement() const {
        static const std::map<std::int64_t, std::string> files = {
            {1, "one"}, {2, "folder/shared"}, {3, "folder/shared"}, {4, "two"}, {5, "outgoing"}};
        for (const auto& [row, isPurged] : marks()) {
            const std::string& name = files.at(row);
            EXPECT_EQ(has(name), !isPurged)
                << "the row " << row << " says whether its file " << name << " is there";
            if (has(name)) {
                EXPECT_EQ(read(name), name) << "a file keeps its content";
            }
        }
        EXPECT_EQ(trash(), std::vector<std::string>()) << "nothing is left half removed";
        EXPECT_TRUE(has("outgoing")) << "what is to be uploaded stays";
    }

private:
    TemporaryDirectory directory_;
};

int waitFor(pid_t process) {
    int status = 0;
    EXPECT_EQ(::waitpid(process, &status, WUNTRACED), process);
    return status;
}

TEST(PurgingInterrupted, ByAKillAfterAnyStatementIsMadeGoodByTheNextRun) {
    std::size_t unmarked = 0;
    std::size_t marked = 0;
    bool ended = false;
    for (std::size_t statement = 1; !ended; ++statement) {
        ASSERT_LT(statement, 200U) << "purging three files comes to an end";
        SCOPED_TRACE("killed after statement " + std::to_string(statement));
        const Cache cache;
        const int status = waitFor(cache.purgeInAProcess(statement, SIGKILL));
        ended = WIFEXITED(status);
        if (!cache.trash().empty()) {
            (cache.marks().at(1) ? marked : unmarked) += 1;
        }
        cache.purge(0);
        cache.expectAgreement();
        cache.purge(1'000'000);
        cache.expectAgreement();
        EXPECT_EQ(cache.marks(),
                  (std::map<std::int64_t, bool>{{1, true}, {2, true}, {3, true}, {4, true}, {5, false}}))
            << "in the end all has gone that may go";
    }
    EXPECT_GT(unmarked, 0U) << "some kills hit between the first name and the commit";
    EXPECT_GT(marked, 0U) << "some kills hit between the commit and the last removal";
}

TEST(PurgingInterrupted, ByAStopAfterAnyStatementKeepsWhatAnotherClientHasStoredMeanwhile) {
    std::size_t stored = 0;
    std::size_t locked = 0;
    bool ended = false;
    for (std::size_t statement = 1; !ended; ++statement) {
        ASSERT_LT(statement, 200U) << "purging three files comes to an end";
        SCOPED_TRACE("stopped after statement " + std::to_string(statement));
        const Cache cache;
        const pid_t process = cache.purgeInAProcess(statement, SIGSTOP);
        int status = waitFor(process);
        ended = WIFEXITED(status);
        bool isStored = false;
        if (!ended) {
            {
                const auto client = cache.open();
                const bool succeeded =
                    client &&
                    client->executeUpdate(
                        "UPDATE event_content_parts SET transfer_status = 0, size = 7, last_accessed = 9000"
                        " WHERE database_identifier = 4 AND purged = 0");
                isStored = succeeded && client->changes() == 1;
                stored += isStored ? 1 : 0;
                locked += succeeded ? 0 : 1;
            }
            ::kill(process, SIGCONT);
            status = waitFor(process);
        }
        EXPECT_TRUE(WIFEXITED(status)) << "the stopped process goes on and ends";
        cache.purge(0);
        cache.expectAgreement();
        if (isStored) {
            const auto database = cache.open();
            auto rows = database->executeQuery(
                "SELECT transfer_status || ' ' || size || ' ' || last_accessed || ' ' || purged"
                " FROM event_content_parts WHERE database_identifier = 4");
            ASSERT_TRUE(rows && rows->next());
            EXPECT_EQ(rows->stringForColumnIndex(0), "0 7 9000.0 0") << "the row is as its client wrote it";
            EXPECT_TRUE(cache.has("two")) << "what is to be uploaded by now stays";
        }
    }
    EXPECT_GT(stored, 0U) << "some stops left the database to others";
    EXPECT_GT(locked, 0U) << "what is decided is done before others can store";
}

// What a killed run has left, in each state that rows and files can have got into since

/// A store in which the file `one` has its trash name.
class CacheWithTrash : public Cache {
public:
    CacheWithTrash() {
        execute(markTrash);
        fs::rename(file("one"), file(trashOfOne));
    }

    void expectOne(const std::string& bytes, const std::string& why) const {
        purge(0);
        EXPECT_EQ(trash(), std::vector<std::string>()) << why;
        ASSERT_TRUE(has("one")) << why;
        EXPECT_EQ(read("one"), bytes) << why;
    }
    void expectNone(const std::string& why) const {
        purge(0);
        EXPECT_EQ(trash(), std::vector<std::string>()) << why;
        EXPECT_FALSE(has("one")) << why;
    }
};

TEST(TrashOfAKilledRun, GetsItsNameBackWhenTheMarkWasNotCommitted) {
    CacheWithTrash().expectOne("one", "the part counts on its file");
}

TEST(TrashOfAKilledRun, IsRemovedWhenTheMarkWasCommitted) {
    const CacheWithTrash cache;
    cache.execute("UPDATE event_content_parts SET purged = 1 WHERE database_identifier = 1");
    cache.expectNone("a purged part has no file");
}

TEST(TrashOfAKilledRun, GetsItsNameBackWhenOneOfTwoPartsCountsOnIt) {
    const CacheWithTrash cache;
    cache.execute(
        "UPDATE event_content_parts SET purged = 1 WHERE database_identifier = 1;"
        "UPDATE event_content_parts SET file_path = './one', transfer_status = 0 WHERE database_identifier = 2");
    cache.expectOne("one", "the file was forwarded since");
}

TEST(TrashOfAKilledRun, IsRemovedWhenTheContentIsToBeDownloadedAgain) {
    const CacheWithTrash cache;
    cache.execute("UPDATE event_content_parts SET transfer_status = 3 WHERE database_identifier = 1");
    cache.expectNone("an old file must not be taken for the begun download");
}

TEST(TrashOfAKilledRun, GetsItsNameBackWhenNoPartNamesIt) {
    const CacheWithTrash cache;
    cache.execute("DELETE FROM event_content_parts WHERE database_identifier = 1");
    cache.expectOne("one", "it may belong to another store");
}

TEST(TrashOfAKilledRun, GivesWayToTheFileThatHasItsNameByNow) {
    const CacheWithTrash cache;
    cache.write("one", "downloaded again");
    cache.expectOne("downloaded again", "what has the name is the part's file");
}

TEST(TrashOfAKilledRun, ThatHasBothNamesLosesTheOneOfTheTrash) {
    const CacheWithTrash cache;
    fs::create_hard_link(cache.file(trashOfOne), cache.file("one"));
    cache.expectOne("one", "a repair was killed as well");
}

TEST(TrashOfAKilledRun, WhoseNameANamelessPartHasTakenStaysBesideIt) {
    const CacheWithTrash cache;
    cache.execute("DELETE FROM event_content_parts WHERE database_identifier = 1");
    cache.write("one", "another's");
    cache.purge(0);
    EXPECT_EQ(cache.trash(), std::vector<std::string>{trashOfOne})
        << "no part of this store says which one to keep";
    EXPECT_EQ(cache.read("one"), "another's");
}

TEST(TrashOfAKilledRun, IsLeftToTheRunThatHoldsTheLock) {
    const CacheWithTrash cache;
    const auto other = cache.open();
    ASSERT_TRUE(other->executeStatements("BEGIN IMMEDIATE"));
    ZAVError error;
    EXPECT_FALSE(cache.openStore()->content().purge({}, {}, &error)) << "nothing is decided without the lock";
    EXPECT_TRUE(error) << "the reason is told";
    EXPECT_EQ(cache.trash(), std::vector<std::string>{trashOfOne}) << "the other run may be about to commit";
}

TEST(TrashOfAKilledRun, IsLeftAloneByADryRun) {
    const CacheWithTrash cache;
    ZAVPurgePolicy policy;
    policy.changesNothing = true;
    EXPECT_TRUE(cache.openStore()->content().purge(policy));
    EXPECT_EQ(cache.trash(), std::vector<std::string>{trashOfOne}) << "a dry run changes nothing";
}

TEST(TrashOfAKilledRun, IsToldByItsWholeName) {
    const Cache cache;
    cache.execute(markTrash);
    const std::vector<std::string> names = {".zav-trash-0123456789abcdef-", ".zav-trash-0123456789abcdef-..",
                                            ".zav-trash-0123456789ABCDEF-one", ".zav-trash-0123-one"};
    for (const std::string& name : names) {
        cache.write(name, "somebody's");
    }
    cache.purge(0);
    for (const std::string& name : names) {
        EXPECT_TRUE(cache.has(name)) << "a file of another name is none of ours: " << name;
    }
}

// Two stores in one directory

/// Another store in the directory of a cache, which has purged a part of its own.
class Neighbour {
public:
    explicit Neighbour(const Cache& cache) : path_(cache.path() + "-of-another") {
        ZAVEventStoreOptions options;
        options.contentDirectory = ZAVURL::fileURLWithDirectoryPath(cache.root());
        options.userID = "bruno";
        options.appID = ZAVUUID::random();
        store_ = ZAVEventStore::open(path_, options);
        cache.write("another's", "x");
        EXPECT_TRUE(store_ && store_->write([](const ZAVRepositories& repositories) {
            return repositories.events.database().executeUpdate(
                "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier,"
                " transfer_status, file_path, last_accessed) VALUES (0, 1, 4, 'another''s', 1000)");
        }));
        purge(1);
        EXPECT_FALSE(cache.has("another's"));
    }

    void purge(std::size_t parts) const {
        const auto result = store_->content().purge({});
        ASSERT_TRUE(result);
        EXPECT_EQ(result->parts, parts);
    }
    void repair() const { EXPECT_TRUE(store_->content().repair(std::chrono::seconds(0))); }

private:
    std::string path_;
    std::unique_ptr<ZAVEventStore> store_;
};

TEST(TrashOfAnotherStore, IsLeftToThatStoreWhereverItsPurgeWasKilled) {
    std::size_t unmarked = 0;
    std::size_t marked = 0;
    bool ended = false;
    for (std::size_t statement = 1; !ended; ++statement) {
        ASSERT_LT(statement, 200U) << "purging three files comes to an end";
        SCOPED_TRACE("killed after statement " + std::to_string(statement));
        const Cache cache;
        const Neighbour neighbour(cache);
        ended = WIFEXITED(waitFor(cache.purgeInAProcess(statement, SIGKILL)));
        const auto left = cache.trash();
        if (!left.empty()) {
            (cache.marks().at(1) ? marked : unmarked) += 1;
        }
        neighbour.purge(0);
        neighbour.repair();
        EXPECT_EQ(cache.trash(), left) << "a neighbour can know nothing of it";
        cache.purge(0);
        cache.expectAgreement();
    }
    EXPECT_GT(unmarked, 0U) << "some kills hit between the first name and the commit";
    EXPECT_GT(marked, 0U) << "some kills hit between the commit and the last removal";
}

TEST(TrashOfAnotherStore, StaysWhenThatStoreIsNoMore) {
    const Cache cache;
    fs::rename(cache.file("one"), cache.file(trashOfOne));
    const Neighbour neighbour(cache);
    neighbour.purge(0);
    neighbour.repair();
    EXPECT_EQ(cache.trash(), std::vector<std::string>{trashOfOne}) << "nobody says whether it may go";
}

TEST(TrashOfAStore, HasTheSameMarkAsLongAsTheStoreIsThere) {
    const Cache cache;
    const auto mark = [&] {
        const auto database = cache.open();
        auto rows = database->executeQuery(
            "SELECT value FROM keyed_values_local WHERE object_type = 'content' AND key = 'trash'");
        return rows && rows->next() ? rows->stringForColumnIndex(0).value_or("") : "";
    };
    EXPECT_EQ(mark(), "") << "a store that has removed nothing needs none";
    cache.purge(1);
    const std::string first = mark();
    EXPECT_EQ(first.size(), 8U);
    cache.purge(1);
    EXPECT_EQ(mark(), first);
    cache.execute("UPDATE keyed_values_local SET value = '../x'");
    cache.purge(1);
    EXPECT_EQ(mark().size(), 8U) << "what is no mark is replaced";
    EXPECT_EQ(mark().find_first_not_of("0123456789abcdef"), std::string::npos);
}

TEST(Purging, AFailureOfTheDatabaseLeavesEveryFileInItsPlace) {
    const Cache cache;
    const auto store = cache.openStore();  // one that has the trigger would be refused
    cache.execute(
        "CREATE TRIGGER refuse BEFORE UPDATE ON event_content_parts WHEN OLD.database_identifier = 4"
        " BEGIN SELECT RAISE(ABORT, 'the disk is gone'); END");
    ZAVError error;
    EXPECT_FALSE(store->content().purge(
        {}, [](const ZAVPurgedContent&) { ADD_FAILURE() << "nothing was done to be told of"; }, &error));
    EXPECT_EQ(error.message(), "the disk is gone");
    cache.expectAgreement();
    EXPECT_FALSE(cache.marks().at(1)) << "what was decided together is undone together";
}

TEST(Purging, GoesOnBesideAnotherClientThatKeepsWriting) {
    const Cache cache;
    cache.execute(
        "WITH RECURSIVE numbers(n) AS (SELECT 10 UNION ALL SELECT n + 1 FROM numbers WHERE n < 59)"
        " INSERT INTO event_content_parts (database_identifier, event_content_part_id, event_database_identifier,"
        " transfer_status, file_path, last_accessed) SELECT n, 0, n, 4, 'many-' || n, 4000 + n FROM numbers");
    for (int number = 10; number < 60; ++number) {
        cache.write("many-" + std::to_string(number), "x");
    }
    const auto client = cache.open();
    std::size_t parts = 0;
    bool forwarded = false;
    EXPECT_TRUE(cache.openStore()->content().purge({}, [&](const ZAVPurgedContent& content) {
        parts += content.parts;
        EXPECT_EQ(content.reason, "");
        EXPECT_TRUE(client->executeUpdate("UPDATE streams SET seq = 1"));
        if (!forwarded) {
            forwarded = client->executeUpdate(
                "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, transfer_status,"
                " file_path) VALUES (0, 1000, 0, 'folder/../many-59')");
        }
    }));
    EXPECT_TRUE(forwarded) << "another client can store between two locks";
    EXPECT_TRUE(cache.has("many-59")) << "a part that came meanwhile needs the file";
    EXPECT_FALSE(cache.marks().at(59)) << "a kept file's part is not marked";
    EXPECT_EQ(parts, 4U + 49U) << "all others go, each once";
}

}  // namespace
}  // namespace zav::test
