#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>
#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Support/DatabaseHandles.h"
#include "Support/LogCapture.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestStore.h"
#include "Support/Tool.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;
using Access = FMDatabaseOptions::Access;

const std::string rightKey = "correct horse";
const std::string wrongKey = "correct house";
const std::string marker = "a text that nobody else may read";
const std::string plainHeader = "SQLite format 3";

/// Asks the engine, and not the library.
bool engineEncrypts() {
    return sqlite3_compileoption_used("HAS_CODEC") != 0;
}

FMDatabaseOptions optionsWithKey(const std::optional<std::string>& key) {
    FMDatabaseOptions options;
    options.key = key;
    return options;
}

/// A store, encrypted when there is a key; fails the test when it cannot be had.
std::shared_ptr<FMDatabase> openStoreWithKey(const std::string& path, const std::optional<std::string>& key,
                                             FMDatabaseOptions options = {}) {
    options.key = key;
    ZAVError error;
    auto database = ZAVDatabaseSchema::openDatabase(path, options, &error);
    EXPECT_NE(database, nullptr) << "the store opens with its own key: " << error.description();
    return database;
}

/// Stores an event whose part and creator say `text`.
void storeEvent(const std::shared_ptr<FMDatabase>& database, int number, const std::string& text = marker) {
    const ZAVUUID stream = uuidNumber(200);
    ZAVStreamRepository(database).findOrCreateStreamWithUUID(stream);
    const auto event = makeEvent(EventType_MESSAGE, stream, number);
    event->set_creator_id(text);
    event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{makeTextPart(text)});
    ZAVError error;
    EXPECT_TRUE(ZAVEventRepository(database).persistEvents({event}, &error)) << error.description();
}

/// Makes a store with one event, and closes it.
void makeStore(const std::string& path, const std::optional<std::string>& key) {
    storeEvent(openStoreWithKey(path, key), 1);
}

/// The texts of the parts of all events in a store.
std::vector<std::string> storedTexts(const std::shared_ptr<FMDatabase>& database) {
    std::vector<std::string> texts;
    if (!database) {
        return texts;
    }
    const auto events = ZAVEventRepository(database).allEvents();
    EXPECT_TRUE(events.has_value()) << "the events can be read: " << database->lastError().description();
    for (const auto& event : *events) {
        for (const auto& part : event->contentParts()) {
            texts.emplace_back(part->body()->asText());
        }
    }
    return texts;
}

const std::vector<std::string> onlyMarker = {marker};

bool holds(const std::string& file, const std::string& text) {
    return bytesOfFile(file).find(text) != std::string::npos;
}

/// Expects that a file has bytes, and none of what must not be read there.
void expectNothingReadable(const std::string& file) {
    ASSERT_GT(fs::file_size(file), 0U) << file << " was written at all";
    for (const std::string& text : {marker, plainHeader, rightKey, std::string("event_content_parts")}) {
        EXPECT_FALSE(holds(file, text)) << "an encrypted store keeps '" << text << "' out of " << file;
    }
}

/// Expects that a file is refused with `code`, that the error names the file and no key, and that nothing is
/// written or logged, however it is opened.
void expectRefusal(const std::string& path, const std::optional<std::string>& key, int code,
                   const std::string& said) {
    const bool exists = fs::exists(path);
    const std::string before = exists ? bytesOfFile(path) : "";
    const LogCapture log;
    for (const Access access : {Access::readOnly, Access::readWrite, Access::readWriteCreate}) {
        FMDatabaseOptions options = optionsWithKey(key);
        options.access = access;
        for (const bool bySchema : {false, true}) {
            ZAVError error;
            const auto database = bySchema ? ZAVDatabaseSchema::openDatabase(path, options, &error)
                                           : FMDatabase::databaseWithPath(path, options, &error);
            EXPECT_EQ(database, nullptr) << "the file is refused";
            EXPECT_EQ(error.domain(), ZAVErrorDomainDatabase) << error.description();
            EXPECT_EQ(error.code(), code) << error.description();
            EXPECT_EQ(error.message(), said);
        }
    }
    EXPECT_EQ(fs::exists(path), exists) << "what is refused makes no file";
    if (exists) {
        EXPECT_TRUE(bytesOfFile(path) == before) << "a file that is refused stays as it is";
    }
    EXPECT_EQ(log.records(), std::vector<LogRecord>()) << "opening logs nothing, and no key";
}

TEST(EngineWithoutEncryption, RefusesAnyKeyInsteadOfLeavingTheFilePlain) {
    if (engineEncrypts()) {
        GTEST_SKIP() << "this engine can encrypt";
    }
    const TemporaryDirectory directory;
    makeStore(directory.file("plain.db"), std::nullopt);
    const std::string said = "a key was given, but this build's database engine cannot encrypt";
    for (const char* const name : {"plain.db", "new.db"}) {
        for (const std::string& key : {rightKey, std::string()}) {
            expectRefusal(directory.file(name), key, ZAVDatabaseErrorNoEncryption, said);
        }
    }
    EXPECT_EQ(storedTexts(openStoreWithKey(directory.file("plain.db"), std::nullopt)), onlyMarker);
}

FMDatabaseOptions optionsWithProvider(std::function<std::optional<std::string>()> provider) {
    FMDatabaseOptions options;
    options.keyProvider = std::move(provider);
    return options;
}

TEST(AKeyProvider, ThatHasNoKeyHasOpeningFailBeforeAnythingIsMade) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("store.db");
    ZAVError error;
    EXPECT_EQ(FMDatabase::databaseWithPath(path, optionsWithProvider([] { return std::nullopt; }), &error),
              nullptr);
    EXPECT_EQ(error.domain(), "ZAVDatabase");
    EXPECT_EQ(error.code(), 21) << error.description();
    EXPECT_FALSE(fs::exists(path));
}

TEST(AKeyProvider, MayThrow) {
    const TemporaryDirectory directory;
    const auto options =
        optionsWithProvider([]() -> std::optional<std::string> { throw std::runtime_error("mine"); });
    EXPECT_THROW(static_cast<void>(FMDatabase::databaseWithPath(directory.file("store.db"), options)),
                 std::runtime_error);
}

class Encryption : public testing::Test {
protected:
    void SetUp() override {
        if (!engineEncrypts()) {
            GTEST_SKIP() << "this engine cannot encrypt";
        }
    }

    [[nodiscard]] std::string path() const { return directory_.file("store.db"); }
    [[nodiscard]] std::string file(const std::string& name) const { return directory_.file(name); }

    /// Copies a store as a crash would leave it, with what lies beside it; returns the copy's path.
    [[nodiscard]] std::string crash(const std::string& companion) const {
        const std::string copy = file("crashed.db");
        fs::copy_file(path(), copy);
        fs::copy_file(path() + companion, copy + companion);
        return copy;
    }

private:
    TemporaryDirectory directory_;
};

TEST_F(Encryption, AStoreIsReadAgainWithTheKeyThatItWasMadeWith) {
    makeStore(path(), rightKey);
    storeEvent(openStoreWithKey(path(), rightKey), 2);
    EXPECT_EQ(storedTexts(openStoreWithKey(path(), rightKey)), std::vector<std::string>({marker, marker}));
}

TEST_F(Encryption, AProviderIsAskedOnceForEachOpening) {
    int asked = 0;
    const auto options = optionsWithProvider([&asked] {
        ++asked;
        return std::optional(rightKey);
    });
    storeEvent(ZAVDatabaseSchema::openDatabase(path(), options), 1);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(storedTexts(openStoreWithKey(path(), rightKey)), onlyMarker) << "the key is the provider's";
}

TEST_F(Encryption, AProviderIsAskedAgainWhenTheFileIsCompacted) {
    int asked = 0;
    const auto database = ZAVDatabaseSchema::openDatabase(path(), optionsWithProvider([&asked] {
                                                              ++asked;
                                                              return std::optional(rightKey);
                                                          }));
    storeEvent(database, 1);
    ZAVError error;
    EXPECT_TRUE(ZAVDatabaseMaintenance(database).compact({}, {}, &error).has_value()) << error.description();
    EXPECT_GE(asked, 2);
    EXPECT_EQ(storedTexts(database), onlyMarker);
}

TEST_F(Encryption, AStoreAsksForItsKeyAtEachOpeningAndAgainAfterThereWasNone) {
    bool isLocked = false;
    int asked = 0;
    ZAVEventStoreOptions options;
    options.database.keyProvider = [&]() -> std::optional<std::string> {
        ++asked;
        return isLocked ? std::nullopt : std::optional(rightKey);
    };
    ZAVError error;
    const auto store = ZAVEventStore::open(path(), options, &error);
    ASSERT_NE(store, nullptr) << error.description();
    const int askedByOpening = asked;
    isLocked = true;
    EXPECT_FALSE(store->read([](const ZAVRepositories&) {}, &error));
    EXPECT_EQ(error.code(), 21) << error.description();
    isLocked = false;
    EXPECT_TRUE(store->read([](const ZAVRepositories&) {}, &error)) << error.description();
    EXPECT_EQ(asked, askedByOpening + 2);
    isLocked = true;
    EXPECT_TRUE(store->read([](const ZAVRepositories&) {})) << "the handle is open already";
}

TEST_F(Encryption, AStoreWakesUpWhenThereIsItsKeyAgain) {
    bool isLocked = false;
    ZAVEventStoreOptions options;
    options.database.keyProvider = [&]() -> std::optional<std::string> {
        return isLocked ? std::nullopt : std::optional(rightKey);
    };
    ZAVError error;
    const auto store = ZAVEventStore::open(path(), options, &error);
    ASSERT_NE(store, nullptr) << error.description();
    const auto soon = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    EXPECT_TRUE(store->suspend(soon, ZAVEventStore::SuspendedWorks::wait, &error)) << error.description();
    isLocked = true;
    EXPECT_FALSE(store->resume(&error));
    EXPECT_EQ(error.code(), 21) << error.description();
    EXPECT_FALSE(store->read([](const ZAVRepositories&) {}, &error));
    EXPECT_EQ(error.code(), 16) << "it sleeps on; " << error.description();
    isLocked = false;
    EXPECT_TRUE(store->resume(&error)) << error.description();
    EXPECT_TRUE(store->read([](const ZAVRepositories&) {}, &error)) << error.description();
}

TEST(AStoreWithAKey, IsToBeGivenItByAFunction) {
    const TemporaryDirectory directory;
    ZAVEventStoreOptions options;
    options.database.key = rightKey;
    ZAVError error;
    EXPECT_EQ(ZAVEventStore::open(directory.file("store.db"), options, &error), nullptr);
    EXPECT_EQ(error.domain(), "ZAVEventStore");
    EXPECT_EQ(error.code(), 4) << error.description();
}

TEST_F(Encryption, AWrongKeyIsRefused) {
    makeStore(path(), rightKey);
    expectRefusal(path(), wrongKey, ZAVDatabaseErrorWrongKey,
                  path() + " is not encrypted with the key that was given, or is no database");
    EXPECT_EQ(storedTexts(openStoreWithKey(path(), rightKey)), onlyMarker) << "its own key still opens it";
}

TEST_F(Encryption, AMissingKeyIsRefused) {
    makeStore(path(), rightKey);
    expectRefusal(path(), std::nullopt, ZAVDatabaseErrorWrongKey,
                  path() + " is encrypted and no key was given, or it is no database");
    EXPECT_EQ(storedTexts(openStoreWithKey(path(), rightKey)), onlyMarker) << "its own key still opens it";
}

TEST_F(Encryption, AKeyForAPlainFileIsRefused) {
    makeStore(path(), std::nullopt);
    expectRefusal(path(), rightKey, ZAVDatabaseErrorWrongKey,
                  path() + " is not encrypted, but a key was given");
    EXPECT_EQ(storedTexts(openStoreWithKey(path(), std::nullopt)), onlyMarker) << "without a key it opens";
}

TEST_F(Encryption, AFileThatHoldsTextIsNotTakenForAnEncryptedOne) {
    std::string text;
    while (text.size() < 4096) {
        text +=
            "This is no database, whatever key it is opened with; line " + std::to_string(text.size()) + "\n";
    }
    text.resize(4096);
    std::ofstream(path(), std::ios::binary) << text;
    ZAVError error;
    EXPECT_EQ(ZAVDatabaseSchema::openDatabase(path(), {}, &error), nullptr);
    EXPECT_EQ(error, ZAVError(ZAVErrorDomainSQLite, SQLITE_NOTADB, sqlite3_errstr(SQLITE_NOTADB)))
        << "nobody is asked for the key of a file that is not encrypted";
}

TEST_F(Encryption, AnEmptyKeyIsRefusedInsteadOfLeavingTheFilePlain) {
    expectRefusal(path(), "", ZAVDatabaseErrorWrongKey, "the key is empty");
}

TEST_F(Encryption, EachByteOfAKeyCounts) {
    using namespace std::string_literals;
    const std::string key = "one\0two'\"\xFF\n"s;
    makeStore(path(), key);
    for (const std::string& other : {"one"s, "one\0twx'\"\xFF\n"s, "one\0two'\"\xFF"s}) {
        ZAVError error;
        EXPECT_EQ(FMDatabase::databaseWithPath(path(), optionsWithKey(other), &error), nullptr)
            << "a key of " << other.size() << " bytes is not that of " << key.size();
        EXPECT_EQ(error.code(), ZAVDatabaseErrorWrongKey) << error.description();
    }
    EXPECT_EQ(storedTexts(openStoreWithKey(path(), key)), onlyMarker);
}

TEST_F(Encryption, APlainFileShowsWhatAnEncryptedOneHides) {
    const auto plain = openStoreWithKey(path(), std::nullopt);
    storeEvent(plain, 1);
    EXPECT_TRUE(holds(path() + "-wal", marker)) << "the search finds what is there to be found";
    EXPECT_TRUE(holds(path(), plainHeader)) << "the search finds what is there to be found";
}

TEST_F(Encryption, TheFileAndItsWriteAheadLogHoldNoText) {
    {
        const auto database = openStoreWithKey(path(), rightKey);
        storeEvent(database, 1);
        ASSERT_EQ(scalar(*database, "PRAGMA journal_mode"), "wal");
        expectNothingReadable(path() + "-wal");
        EXPECT_FALSE(holds(path() + "-shm", marker));
        EXPECT_FALSE(isHeldUpInTruncating(database));
        storeEvent(database, 2);
    }
    EXPECT_FALSE(fs::exists(path() + "-wal")) << "closing folds the log into the file";
    expectNothingReadable(path());
}

TEST_F(Encryption, TheRollbackJournalHoldsNoText) {
    const auto database = openStoreWithKey(path(), rightKey, withoutWriteAheadLog());
    storeEvent(database, 1);
    ASSERT_EQ(scalar(*database, "PRAGMA journal_mode"), "delete");
    const auto transaction = ZAVTransaction::begin(*database);
    run(*database, "UPDATE events SET creator_id = 'x'; UPDATE event_content_parts SET value = 'x'");
    expectNothingReadable(path() + "-journal");
    expectNothingReadable(path());
}

TEST_F(Encryption, WhatIsSortedStaysInMemory) {
    const auto database = openStoreWithKey(path(), rightKey);
    EXPECT_EQ(scalar(*database, "PRAGMA temp_store"), "2") << "what is sorted stays in memory";
}

TEST_F(Encryption, AWrongKeyLosesNothingOfALogThatACrashLeft) {
    const auto database = openStoreWithKey(path(), rightKey);
    storeEvent(database, 1);
    const std::string copy = crash("-wal");
    const std::string before = bytesOfFile(copy);
    const std::string logBefore = bytesOfFile(copy + "-wal");
    for (const std::optional<std::string>& key : {std::optional(wrongKey), std::optional<std::string>()}) {
        ZAVError error;
        EXPECT_EQ(ZAVDatabaseSchema::openDatabase(copy, optionsWithKey(key), &error), nullptr);
        EXPECT_EQ(error.code(), ZAVDatabaseErrorWrongKey) << error.description();
        EXPECT_TRUE(bytesOfFile(copy) == before) << "a file that is refused stays as it is";
        EXPECT_TRUE(bytesOfFile(copy + "-wal") == logBefore) << "and so does its log";
    }
    EXPECT_EQ(storedTexts(openStoreWithKey(copy, rightKey)), onlyMarker) << "what was acknowledged is there";
}

TEST_F(Encryption, AWrongKeyLosesNothingOfWhatAJournalKeeps) {
    const auto database = openStoreWithKey(path(), rightKey, withoutWriteAheadLog());
    for (int number = 1; number <= 100; ++number) {
        storeEvent(database, number);
    }
    const auto transaction = ZAVTransaction::begin(*database);
    // Pages leave for the file in the midst of the transaction.
    run(*database, "PRAGMA cache_size=2");
    run(*database, "UPDATE event_content_parts SET value = zeroblob(3000)");
    const std::string copy = crash("-journal");
    ZAVError error;
    EXPECT_EQ(ZAVDatabaseSchema::openDatabase(copy, optionsWithKey(wrongKey), &error), nullptr);
    EXPECT_EQ(error.code(), ZAVDatabaseErrorWrongKey) << error.description();
    const auto opened = openStoreWithKey(copy, rightKey);
    EXPECT_EQ(storedTexts(opened), std::vector<std::string>(100, marker))
        << "what was acknowledged is there, and nothing of the transaction that was cut off";
    EXPECT_EQ(scalar(*opened, "PRAGMA integrity_check"), "ok");
}

TEST_F(Encryption, AWrongKeyDoesNotDisturbAHandleWithTheRightOne) {
    const auto first = openStoreWithKey(path(), rightKey);
    auto transaction = ZAVTransaction::begin(*first);
    storeEvent(first, 1);
    EXPECT_EQ(FMDatabase::databaseWithPath(path(), optionsWithKey(wrongKey)), nullptr);
    EXPECT_EQ(FMDatabase::databaseWithPath(path(), {}), nullptr);
    ZAVError error;
    ASSERT_TRUE(transaction && transaction->commit(&error)) << error.description();
    EXPECT_EQ(storedTexts(openStoreWithKey(path(), rightKey)), onlyMarker);
}

TEST_F(Encryption, TheToolTakesTheKeyFromAFile) {
    const ToolStore store;
    for (const std::string end : {"", "\n", "\r\n"}) {
        SCOPED_TRACE("a key file that ends with " + std::to_string(end.size()) + " bytes of a line break");
        const std::string keyFile = store.write("key", rightKey + end);
        const ToolRun imported = store.import(lines({eventJSON(1)}), {"--key-file", keyFile});
        EXPECT_EQ(imported.status, 0) << imported.err;
        const ToolRun counted = store.run("stats", {"--json", "--key-file", keyFile});
        EXPECT_EQ(counted.status, 0) << counted.err;
        EXPECT_NE(counted.out.find("\"events\":1,"), std::string::npos) << counted.out;
    }
    EXPECT_FALSE(holds(store.path(), plainHeader)) << "what the tool makes with a key is encrypted";
    const ToolRun without = store.run("stats");
    EXPECT_EQ(without.status, 1) << "without its key a store cannot be read";
    EXPECT_NE(without.err.find("is encrypted and no key was given"), std::string::npos) << without.err;
    const ToolRun mistaken = store.run("stats", {"--key-file", store.write("other", wrongKey)});
    EXPECT_EQ(mistaken.status, 1) << "another key does not open a store";
    EXPECT_NE(mistaken.err.find("is not encrypted with the key that was given"), std::string::npos);
    EXPECT_EQ(mistaken.err.find(wrongKey), std::string::npos) << "no error tells a key: " << mistaken.err;
}

TEST_F(Encryption, EveryCommandOfTheToolTakesTheKey) {
    const ToolStore store;
    const std::string keyFile = store.write("key", rightKey);
    const std::vector<std::vector<std::string>> commands = {
        {"init"},
        {"import", store.write("events.jsonl", lines({eventJSON(1, {{"content", {{{"text", "Hi"}}}}})}))},
        {"events"},
        {"parts", "--incomplete-downloads"},
        {"stats"},
        {"sequence", "--id", "1", "--seq", "1", "--creator", "ada", "--timestamp", "1"},
        {"transfer", "--event", "1", "--index", "0", "--status", "4"},
        {"receive", "/dev/null", "--stream", uuidText(0xAA), "--user", "ada", "--cache", store.file("")},
        {"send", "--text", "hi", "--stream", uuidText(0xAA), "--user", "ada"},
        {"outbox"},
        {"stream-posted", "--stream-row", "1", "--stream", uuidText(0xAA)},
        {"missing", "--stream", uuidText(0xAA)},
        {"delete-stream", "--stream-row", "1000", "--cache", store.file("")},
        {"reclaim", "--bytes", "1", "--cache", store.file("")},
        {"repair", "--cache", store.file(""), "--app-id", uuidText(0xAA), "--user", "ada"},
        {"delete", "--id", "1000", "--whole", "--cache", store.file("")},
        {"checkpoint", "--truncate"},
        {"compact"},
        {"disk-usage", "--tables"},
        {"check"},
    };
    for (const std::vector<std::string>& command : commands) {
        std::vector<std::string> options(command.begin() + 1, command.end());
        options.insert(options.end(), {"--key-file", keyFile});
        const ToolRun run = store.run(command.front(), options);
        EXPECT_EQ(run.status, 0) << command.front() << " works on an encrypted store: " << run.err;
    }
    EXPECT_FALSE(holds(store.path(), plainHeader)) << "no command makes the store plain";
}

TEST(KeyFile, ThatCannotBeUsedStopsTheToolBeforeItOpensTheStore) {
    const ToolStore store;
    const std::string absent = store.file("absent");
    const std::string longFile = store.write("long", std::string(4097, 'k'));
    const std::vector<std::pair<std::string, std::string>> expected = {
        {absent, absent + ": No such file or directory"},
        {longFile, longFile + ": a key has at most 4096 bytes"},
    };
    for (const auto& [keyFile, said] : expected) {
        const ToolRun run = store.run("init", {"--key-file", keyFile});
        EXPECT_EQ(run.status, 1) << keyFile;
        EXPECT_EQ(run.err, "zavevents: " + said + "\n");
    }
    const ToolRun empty = store.run("init", {"--key-file", store.write("empty", "\n")});
    EXPECT_EQ(empty.status, 1) << "an empty key is none, and no reason to leave the store plain";
    EXPECT_NE(empty.err.find(engineEncrypts() ? "the key is empty" : "cannot encrypt"), std::string::npos)
        << empty.err;
    EXPECT_FALSE(fs::exists(store.path())) << "no store is made without the key that was asked for";
}

}  // namespace
}  // namespace zav::test
