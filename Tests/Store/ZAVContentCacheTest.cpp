#include <ZAVEventRepository/ZAVContentPath.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "Store/ContentFixture.h"
#include "Support/TestEffort.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Rows = std::vector<std::string>;

class ContentCache : public ContentStore {
protected:
    /// What a part's file holds, read through the store; the error's code when it cannot be opened.
    std::string read(ZAVDatabaseIdentifier event, std::int64_t index = 0) {
        ZAVError error;
        const auto file = content().open(event, index, &error);
        if (!file) {
            return domainAndCode(error);
        }
        const auto bytes = file->readAll(&error);
        EXPECT_TRUE(bytes) << error.description();
        return bytes ? std::string(bytes->begin(), bytes->end()) : "";
    }
};

constexpr const char* noContentHere = "ZAVEventStore 12";
constexpr const char* unusableFile = "ZAVEventStore 11";

// Writing

TEST_F(ContentCache, APartIsCompleteWhenItsFileIsInItsPlace) {
    const auto row = receivePicture(7);
    EXPECT_EQ(rows("SELECT transfer_status FROM event_content_parts"), Rows{"2"}) << "it is ready";
    auto writer = content().beginDownload(row, 0);
    ASSERT_TRUE(writer);
    EXPECT_EQ(rows("SELECT transfer_status FROM event_content_parts"), Rows{"3"}) << "it is being fetched";
    EXPECT_TRUE(writer->append(bytesOf("pic")));
    EXPECT_TRUE(writer->append(bytesOf("ture!")));
    EXPECT_FALSE(fs::exists(fileOf(7))) << "a file that is being written is not the part's yet";
    ZAVError error;
    EXPECT_TRUE(writer->finish(&error)) << error.description();
    EXPECT_EQ(contentOf(fileOf(7)), "picture!");
    EXPECT_EQ(
        rows("SELECT transfer_status, size, purged, last_accessed IS NOT NULL FROM event_content_parts"),
        Rows{"4|8|0|1"});
    EXPECT_EQ(files(), Rows{fileOf(7)}) << "nothing else is left";
}

TEST_F(ContentCache, ADownloadThatIsGivenUpLeavesNothing) {
    const auto row = receivePicture(7);
    {
        auto writer = content().beginDownload(row, 0);
        ASSERT_TRUE(writer && writer->append(bytesOf("half a pic")));
        EXPECT_EQ(files().size(), 1U);
    }
    EXPECT_EQ(files(), Rows());
    EXPECT_EQ(rows("SELECT transfer_status FROM event_content_parts"), Rows{"3"}) << "it can be begun again";
    auto writer = content().beginDownload(row, 0);
    EXPECT_TRUE(writer && writer->finish());
}

TEST_F(ContentCache, WhatWasDeletedWhileItWasDownloadedStaysAway) {
    const auto row = receivePicture(7);
    auto writer = content().beginDownload(row, 0);
    ASSERT_TRUE(writer && writer->append(bytesOf("late")));
    EXPECT_EQ(ada().deleteEvents(std::vector{row}), 1U);
    ZAVError error;
    EXPECT_FALSE(writer->finish(&error));
    EXPECT_EQ(domainAndCode(error), noContentHere);
    EXPECT_EQ(files(), Rows());
    EXPECT_FALSE(writer->append(bytesOf("more"), &error)) << "it is over";
    EXPECT_EQ(domainAndCode(error), unusableFile);
}

TEST_F(ContentCache, OfTwoDownloadsOfOnePartTheFirstToEndCounts) {
    const auto row = receivePicture(7);
    auto first = content().beginDownload(row, 0);
    auto second = content().beginDownload(row, 0);
    ASSERT_TRUE(first && second && first->append(bytesOf("first")) && second->append(bytesOf("second")));
    EXPECT_TRUE(second->finish());
    ZAVError error;
    EXPECT_FALSE(first->finish(&error)) << "the part is complete";
    EXPECT_EQ(domainAndCode(error), noContentHere);
    EXPECT_EQ(read(row), "second");
    EXPECT_EQ(files(), Rows{fileOf(7)});
}

TEST_F(ContentCache, OnlyWhatIsToBeDownloadedIsDownloaded) {
    const auto complete = downloadPicture(7, "there");
    const auto outgoing = sendPicture(8, "mine");
    for (const auto row : {complete, outgoing, ZAVDatabaseIdentifier(1000)}) {
        ZAVError error;
        EXPECT_FALSE(content().beginDownload(row, 0, &error)) << "event " << row;
        EXPECT_EQ(domainAndCode(error), noContentHere);
    }
    EXPECT_EQ(read(complete), "there");
    EXPECT_EQ(contentOf(fileOf(8)), "mine");
}

TEST_F(ContentCache, WhatWasPurgedIsFetchedAgain) {
    const auto row = downloadPicture(7, "first");
    ASSERT_TRUE(content().purge({}));
    EXPECT_EQ(read(row), noContentHere) << "it is purged";
    auto writer = content().beginDownload(row, 0);
    ASSERT_TRUE(writer && writer->append(bytesOf("second")) && writer->finish());
    EXPECT_EQ(read(row), "second");
    EXPECT_EQ(rows("SELECT transfer_status, purged FROM event_content_parts"), Rows{"4|0"});
}

TEST_F(ContentCache, APartWithoutAPathGetsOne) {
    const auto row = receivePicture(7);
    execute("UPDATE event_content_parts SET file_path = NULL");
    auto writer = content().beginDownload(row, 0);
    ASSERT_TRUE(writer && writer->append(bytesOf("found")) && writer->finish());
    EXPECT_EQ(contentOf(fileOf(7)), "found");
}

TEST_F(ContentCache, ADirectoryThatCannotBeMadeIsAClearError) {
    const auto row = receivePicture(7);
    std::ofstream(root()) << "a file where the directory should be";
    ZAVError error;
    EXPECT_FALSE(content().beginDownload(row, 0, &error));
    EXPECT_EQ(domainAndCode(error), unusableFile);
    EXPECT_NE(error.message().find(root()), std::string::npos) << error.message();
    EXPECT_FALSE(content().put(uuidNumber(8), 0, bytesOf("x"), &error));
    EXPECT_EQ(domainAndCode(error), unusableFile);
}

// What is sent

TEST_F(ContentCache, WhatIsSentIsPutInItsPlaceFirst) {
    const auto row = sendPicture(8, "outgoing");
    EXPECT_EQ(contentOf(fileOf(8)), "outgoing");
    EXPECT_EQ(rows("SELECT transfer_status FROM event_content_parts"), Rows{"0"});
    EXPECT_EQ(read(row), "outgoing") << "the user sees what is being sent";
    EXPECT_EQ(files(), Rows{fileOf(8)});
}

TEST_F(ContentCache, AFileOfAnotherDirectoryCannotBeSent) {
    const std::string elsewhere = path() + "-elsewhere";
    place(elsewhere + "/picture", "secret");
    for (const std::string& reference :
         {std::string("picture"), std::string("../chat.db-elsewhere/picture")}) {
        auto event = makeEvent(EventType_MESSAGE, uuidNumber(1), 8);
        auto part = std::make_shared<ZAVEventContent>();
        part->setFileURL(ZAVURL::URLWithString(
            reference, ZAVURL::fileURLWithDirectoryPath(reference == "picture" ? elsewhere : root())));
        event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});
        ZAVError error;
        EXPECT_FALSE(ada().send(event, &error)) << reference;
        EXPECT_EQ(domainAndCode(error), "ZAVEventStore 9");
    }
}

TEST_F(ContentCache, APlaceNeedsTheUserAndTheApplication) {
    ZAVError error;
    EXPECT_FALSE(store().content().put(uuidNumber(8), 0, bytesOf("x"), &error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 4");
    EXPECT_FALSE(store().content().findOrphans(0s, &error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 4");
}

// Reading

TEST_F(ContentCache, AFileIsReadFromAnyPosition) {
    const auto row = downloadPicture(7, "0123456789");
    const auto file = content().open(row, 0);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->size(), 10U);
    std::array<std::uint8_t, 4> bytes{};
    EXPECT_EQ(file->read(3, bytes), 4U);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "3456");
    EXPECT_EQ(file->read(8, bytes), 2U) << "at the end there is less";
    EXPECT_EQ(file->read(10, bytes), 0U);
}

TEST_F(ContentCache, AnOpenFileIsReadToItsEndAlthoughItIsPurged) {
    const auto row = downloadPicture(7, "still there");
    const auto file = content().open(row, 0);
    ASSERT_TRUE(file && content().purge({}));
    closeAda();
    const auto bytes = file->readAll();
    ASSERT_TRUE(bytes);
    EXPECT_EQ(std::string(bytes->begin(), bytes->end()), "still there");
}

TEST_F(ContentCache, WhatIsNotHereIsSaidToBeSo) {
    const auto ready = receivePicture(7);
    const auto missing = downloadPicture(8, "gone");
    fs::remove(fileOf(8));
    EXPECT_EQ(read(ready), noContentHere) << "it was not fetched yet";
    EXPECT_EQ(read(missing), noContentHere) << "somebody has removed it";
    EXPECT_EQ(read(ready, 1), noContentHere) << "there is no such part";
}

TEST_F(ContentCache, AccessesAreRecordedTogether) {
    const auto first = downloadPicture(7, "one");
    const auto second = downloadPicture(8, "two");
    execute("UPDATE event_content_parts SET last_accessed = 1000");
    EXPECT_EQ(read(first), "one");
    EXPECT_EQ(rows("SELECT last_accessed FROM event_content_parts"), (Rows{"1000.0", "1000.0"}))
        << "reading is not a write each time";
    EXPECT_EQ(read(second), "two");
    EXPECT_TRUE(content().recordAccesses());
    EXPECT_EQ(rows("SELECT last_accessed > 1000000 FROM event_content_parts"), (Rows{"1", "1"}));
}

TEST_F(ContentCache, ClosingRecordsAccesses) {
    const auto row = downloadPicture(7, "one");
    execute("UPDATE event_content_parts SET last_accessed = 1000");
    EXPECT_EQ(read(row), "one");
    closeAda();
    EXPECT_EQ(rows("SELECT last_accessed > 1000000 FROM event_content_parts"), Rows{"1"});
}

TEST_F(ContentCache, WhatWasAccessedLastIsPurgedLast) {
    const auto oldest = downloadPicture(7, "12345");
    downloadPicture(8, "12345");
    execute("UPDATE event_content_parts SET last_accessed = 1000 + database_identifier");
    EXPECT_EQ(read(oldest), "12345");
    ZAVPurgePolicy policy;
    policy.bytesToFree = 5;
    ASSERT_TRUE(content().purge(policy));
    EXPECT_TRUE(fs::exists(fileOf(7))) << "it was looked at a moment ago";
    EXPECT_FALSE(fs::exists(fileOf(8)));
}

// No way out

TEST_F(ContentCache, NoPathLeadsOutOfTheDirectory) {
    const std::string secret = path() + "-secret";
    std::ofstream(secret) << "secret";
    const auto row = downloadPicture(7, "mine");
    EXPECT_EQ(read(row), "mine");  // a database that has two names would not be opened for it any more
    const std::string link = root() + "/link";
    fs::create_directory_symlink(fs::path(secret).parent_path(), link);
    fs::create_symlink(secret, root() + "/file-link");
    fs::create_hard_link(path(), root() + "/database");
    const std::string name = fs::path(secret).filename().string();
    for (const std::string& way :
         {"../" + name, "a/../../" + name, "%2e%2e/" + name, "link/" + name, std::string("file-link"), secret,
          "file://" + secret, std::string("database"), std::string("a/"), std::string("a%00b")}) {
        SCOPED_TRACE(way);
        execute("UPDATE event_content_parts SET transfer_status = 4, file_path = '" + way + "'");
        const std::string answer = read(row);
        EXPECT_TRUE(answer == noContentHere || answer == unusableFile) << answer;
        execute("UPDATE event_content_parts SET transfer_status = 3");
        auto writer = content().beginDownload(row, 0);
        if (writer && writer->append(bytesOf("overwritten"))) {
            writer->finish();
        }
        EXPECT_EQ(contentOf(secret), "secret") << "what is outside is not written over";
        EXPECT_EQ(contentOf(path()).substr(0, 6), "SQLite") << "the database is not written over";
    }
    EXPECT_EQ(rows("PRAGMA integrity_check"), Rows{"ok"});
}

TEST_F(ContentCache, OpeningTheDatabaseAsContentDropsNoLock) {
    const auto row = downloadPicture(7, "mine");
    EXPECT_EQ(read(row), "mine");  // a database that has two names would not be opened for it any more
    fs::create_hard_link(path(), root() + "/database");
    fs::create_symlink(path(), root() + "/symbolic");
    for (const char* const name : {"database", "symbolic"}) {
        execute(std::string("UPDATE event_content_parts SET file_path = '") + name + "'");
        EXPECT_EQ(read(row), noContentHere);
    }
    // A process that has lost its locks on the file would let another one take the log away.
    EXPECT_TRUE(ada().write([](const ZAVRepositories&) { return true; }));
    EXPECT_EQ(ada().close(ZAVEventStore::QueuedWorks::run), true);
}

// A directory for each store and thread

TEST_F(ContentCache, TheDirectoryOfAStoreHoldsDuringItsWorksOnTheirThreadAlone) {
    const std::string before = ZAVMessageRepositoryCacheBaseDirectoryURL().filePath();
    const auto directory = [] { return ZAVMessageRepositoryCacheBaseDirectoryURL().filePath(); };
    const std::string own = ZAVURL::fileURLWithDirectoryPath(root()).filePath();
    EXPECT_TRUE(ada().write([&](const ZAVRepositories&) {
        EXPECT_EQ(directory(), own);
        std::thread([&] { EXPECT_EQ(directory(), before) << "another thread has its own"; }).join();
        EXPECT_TRUE(store().read([&](const ZAVRepositories&) {
            EXPECT_EQ(directory(), own) << "a store without one of its own takes what there is";
        }));
        return true;
    }));
    EXPECT_EQ(directory(), before);
    std::string besides;
    bool isOver = false;
    ASSERT_TRUE(ada().readAsync([&](const ZAVRepositories&) { besides = directory(); },
                                [&](const ZAVWorkOutcome&) { isOver = true; }));
    loop().runUntil([&] { return isOver; });
    EXPECT_EQ(besides, own) << "a work beside has it as well";
}

TEST_F(ContentCache, RecordsOfAStoreHaveTheirFilesInItsDirectory) {
    const auto row = receivePicture(7);
    std::string file;
    EXPECT_TRUE(ada().read([&](const ZAVRepositories& repositories) {
        file = repositories.events.eventContentForEventDatabaseIdentifier(row, 0)->fileURL()->filePath();
    }));
    EXPECT_EQ(file, fileOf(7));
}

// Accounting

TEST_F(ContentCache, BytesAreToldByStatusAndByStream) {
    downloadPicture(7, "12345");
    downloadPicture(8, "123", uuidNumber(2));
    sendPicture(9, "1234567");
    receivePicture(10);
    downloadPicture(11, "123456789");
    execute("UPDATE event_content_parts SET purged = 1 WHERE size = 9");
    const auto usage = content().bytesOnDisk();
    ASSERT_TRUE(usage);
    EXPECT_EQ(usage->total, 15U);
    EXPECT_EQ(usage->byStatus, (std::map<ZAVContentTransferStatus, std::uint64_t>{
                                   {ZAVContentTransferAwaitingUpload, 7}, {ZAVContentTransferComplete, 8}}));
    EXPECT_EQ(usage->byStream, (std::map<ZAVDatabaseIdentifier, std::uint64_t>{{1, 12}, {2, 3}}));
}

TEST_F(ContentCache, BytesAreCountedBeyondThirtyTwoBits) {
    downloadPicture(7, "1");
    downloadPicture(8, "1");
    execute("UPDATE event_content_parts SET size = 5000000000");
    EXPECT_EQ(content().bytesOnDisk()->total, 10000000000U);
}

// Policies

TEST_F(ContentCache, APurgeKeepsWhatThePolicyKeeps) {
    downloadPicture(7, "old");
    downloadPicture(8, "recent");
    downloadPicture(9, "of a stream", uuidNumber(2));
    downloadPicture(10, "of a type");
    execute(
        "UPDATE event_content_parts SET last_accessed = 1000;"
        "UPDATE event_content_parts SET last_accessed = 3000 WHERE size = 6;"
        "UPDATE event_content_parts SET type = 'video/mp4' WHERE size = 9");
    ZAVPurgePolicy policy;
    policy.accessedBefore = ZAVDateFromSecondsSince1970(2000);
    policy.types = {"image/png"};
    policy.streamsToKeep = {2};
    const auto result = content().purge(policy);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->parts, 1U);
    EXPECT_EQ(result->bytes, 3U);
    EXPECT_FALSE(fs::exists(fileOf(7)));
    for (const int kept : {8, 9, 10}) {
        EXPECT_TRUE(fs::exists(fileOf(kept))) << kept;
    }
}

TEST_F(ContentCache, AFileThatAStreamToKeepSharesStays) {
    downloadPicture(7, "shared");
    downloadPicture(8, "x", uuidNumber(2));
    execute(
        "UPDATE event_content_parts SET file_path = (SELECT file_path FROM event_content_parts WHERE size = 6)"
        " WHERE size = 1");
    ZAVPurgePolicy policy;
    policy.streamsToKeep = {2};
    ASSERT_TRUE(content().purge(policy));
    EXPECT_TRUE(fs::exists(fileOf(7)));
    EXPECT_EQ(rows("SELECT DISTINCT purged FROM event_content_parts"), Rows{"0"});
}

TEST_F(ContentCache, APurgeEndsWhenTheRestIsSmallEnough) {
    for (int number = 7; number < 12; ++number) {
        downloadPicture(number, "12345");
    }
    execute("UPDATE event_content_parts SET last_accessed = 1000 + database_identifier");
    ZAVPurgePolicy policy;
    policy.bytesToKeep = 12;
    const auto result = content().purge(policy);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->bytes, 15U);
    EXPECT_EQ(content().bytesOnDisk()->total, 10U);
    EXPECT_TRUE(fs::exists(fileOf(10)) && fs::exists(fileOf(11))) << "the most recent stay";
}

TEST_F(ContentCache, ADirectoryThatIsNotThereYetIsNoFailureUntilAPartMissesIt) {
    ASSERT_FALSE(fs::exists(root()));
    EXPECT_TRUE(content().purge({}));
    EXPECT_TRUE(content().findOrphans());
    EXPECT_TRUE(content().repair());
    downloadPicture(7, "x");
    fs::rename(root(), root() + "-elsewhere");
    ZAVError error;
    EXPECT_FALSE(content().purge({}, {}, &error));
    EXPECT_EQ(domainAndCode(error), unusableFile);
    EXPECT_FALSE(content().repair(0s, &error));
    EXPECT_EQ(domainAndCode(error), unusableFile);
    EXPECT_EQ(rows("SELECT purged FROM event_content_parts"), Rows{"0"}) << "it may be the wrong directory";
}

TEST_F(ContentCache, FilesAreNotRemovedWithinAWork) {
    const auto row = downloadPicture(7, "x");
    ZAVError error;
    EXPECT_TRUE(ada().write([&](const ZAVRepositories&) {
        EXPECT_FALSE(content().purge({}, {}, &error));
        EXPECT_EQ(domainAndCode(error), "ZAVEventStore 13");
        EXPECT_FALSE(content().repair(0s, &error));
        EXPECT_EQ(domainAndCode(error), "ZAVEventStore 13");
        return true;
    }));
    EXPECT_EQ(read(row), "x");
}

// Orphans

class Orphans : public ContentStore {};

TEST_F(Orphans, AreFilesOfTheLibraryThatNoPartNames) {
    downloadPicture(7, "named");
    place(fileOf(20), "orphan");
    place(folderOfAda() + "/" + uuidNumber(20).UUIDString() + "/.zav-partial-0123456789abcdef-part-0",
          "partial");
    place(folderOfAda() + "/" + uuidNumber(20).UUIDString() + "/notes", "another's");
    place(folderOfAda() + "/notes/part-0", "another's");
    place(root() + "/" + uuidNumber(99).UUIDString() + "/bruno/" + uuidNumber(20).UUIDString() + "/part-0",
          "another account's");
    place(root() + "/" + uuidNumber(98).UUIDString() + "/ada/" + uuidNumber(20).UUIDString() + "/part-0",
          "another application's");
    auto found = content().findOrphans(0s);
    ASSERT_TRUE(found);
    std::sort(found->files.begin(), found->files.end());
    const std::string folder = uuidNumber(99).UUIDString() + "/ada/" + uuidNumber(20).UUIDString() + "/";
    EXPECT_EQ(found->files, (Rows{folder + ".zav-partial-0123456789abcdef-part-0", folder + "part-0"}));
    EXPECT_EQ(found->bytes, 13U);
    EXPECT_EQ(files().size(), 7U) << "looking removes nothing";

    const auto settled = content().repair(0s);
    ASSERT_TRUE(settled);
    EXPECT_EQ(settled->files.size(), 2U);
    EXPECT_EQ(settled->bytes, 13U);
    EXPECT_FALSE(fs::exists(fileOf(20)));
    EXPECT_EQ(files().size(), 5U) << "what is not the library's stays";
    EXPECT_TRUE(content().findOrphans(0s)->files.empty());
}

TEST_F(Orphans, ThatAreYoungStay) {
    ASSERT_TRUE(content().put(uuidNumber(20), 0, bytesOf("about to be sent")));
    EXPECT_TRUE(content().findOrphans()->files.empty()) << "it may be named in a moment";
    EXPECT_TRUE(content().repair()->files.empty());
    EXPECT_TRUE(fs::exists(fileOf(20)));
}

TEST_F(Orphans, ThatAPartNamesByAnotherWordingStay) {
    downloadPicture(7, "x");
    fs::create_directories(fs::path(fileOf(20)).parent_path());
    fs::rename(fileOf(7), fileOf(20));
    execute("UPDATE event_content_parts SET file_path = 'a/../" + uuidNumber(99).UUIDString() + "/ada/" +
            uuidNumber(20).UUIDString() + "/part%2D0'");
    EXPECT_TRUE(content().repair(0s)->files.empty());
    EXPECT_TRUE(fs::exists(fileOf(20)));
}

TEST_F(Orphans, TheDirectoryOfAnEventGoesWithItsLastFile) {
    place(fileOf(20, 0), "one");
    place(fileOf(20, 1), "two");
    ASSERT_TRUE(content().repair(0s));
    EXPECT_FALSE(fs::exists(fs::path(fileOf(20)).parent_path()));
    EXPECT_TRUE(fs::exists(folderOfAda()));
}

TEST_F(Orphans, ACompletePartWithoutItsFileIsMarkedAndCanBeFetchedAgain) {
    downloadPicture(7, "lost");
    const auto kept = downloadPicture(8, "kept");
    sendPicture(9, "mine");
    fs::remove(fileOf(7));
    fs::remove(fileOf(9));
    const auto found = content().findOrphans(0s);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->partsWithoutFile, std::vector<ZAVDatabaseIdentifier>{1});
    EXPECT_EQ(found->uploadsWithoutFile, std::vector<ZAVDatabaseIdentifier>{3});
    ASSERT_TRUE(content().repair(0s));
    EXPECT_EQ(rows("SELECT transfer_status, purged FROM event_content_parts ORDER BY 1 DESC, 2 DESC"),
              (Rows{"4|1", "4|0", "0|0"}))
        << "only the complete one is marked";
    EXPECT_TRUE(content().open(kept, 0));
    EXPECT_TRUE(content().beginDownload(1, 0));
}

TEST_F(Orphans, AHundredThousandFilesAreLookedThrough) {
    constexpr int parts = 50;
    const int events = effort() == "brief" ? 200 : 2000;
    const auto named = static_cast<std::size_t>(events / 2 * parts);
    execute(
        "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < " +
        std::to_string(named - 1) +
        ") INSERT INTO event_content_parts (event_database_identifier, event_content_part_id, transfer_status,"
        " size, file_path) SELECT 1000 + i / 50, i % 50, 4, 1, '" +
        uuidNumber(99).UUIDString() +
        "/ada/11111111-1111-1111-1111-' || printf('%012d', i / 50) ||"
        " '/part-' || (i % 50) FROM n");
    for (int event = 0; event < events; ++event) {
        std::string digits = std::to_string(event);
        digits.insert(0, 12 - digits.size(), '0');
        const std::string folder = folderOfAda() + "/11111111-1111-1111-1111-" + digits;
        fs::create_directories(folder);
        for (int part = 0; part < parts; ++part) {
            ::close(::open((folder + "/part-" + std::to_string(part)).c_str(), O_CREAT | O_WRONLY, 0600));
        }
    }
    const auto settled = content().repair(0s);
    ASSERT_TRUE(settled);
    EXPECT_EQ(settled->files.size(), named) << "those that no part names";
    EXPECT_TRUE(settled->partsWithoutFile.empty());
    EXPECT_EQ(files().size(), named) << "those that parts name";
}

// Deleting

class Deleting : public ContentStore {};

TEST_F(Deleting, EventsTakesAllThatBelongsToThemAndTheirFiles) {
    const auto gone = downloadPicture(7, "gone");
    downloadPicture(8, "kept");
    execute(
        "INSERT INTO messages (event_database_identifier, seq) VALUES (1, 7), (2, 8);"
        "INSERT INTO keyed_values_local (object_database_identifier, object_type, key_type, key) VALUES"
        " (1, 'event', 1, 'a'), (2, 'event', 1, 'a'), (1, 'stream', 1, 'a');"
        "INSERT INTO keyed_values_remote (object_database_identifier, object_type, key_type, key) VALUES"
        " (1, 'event', 1, 'a'), (2, 'event', 1, 'a');"
        "INSERT INTO synced_changes (table_name, row_identifier, change_type) VALUES"
        " ('events', 1, 0), ('events', 2, 0), ('messages', 1, 0)");
    EXPECT_EQ(ada().deleteEvents(std::vector<ZAVDatabaseIdentifier>{gone, 1000}), 1U);
    EXPECT_EQ(rows("SELECT COUNT(*) FROM events"), Rows{"1"});
    EXPECT_EQ(rows("SELECT COUNT(*) FROM event_content_parts"), Rows{"1"});
    EXPECT_EQ(rows("SELECT event_database_identifier FROM messages"), Rows{"2"});
    EXPECT_EQ(rows("SELECT object_type, object_database_identifier FROM keyed_values_local ORDER BY 1, 2"),
              (Rows{"event|2", "stream|1"}));
    EXPECT_EQ(rows("SELECT object_database_identifier FROM keyed_values_remote"), Rows{"2"});
    EXPECT_EQ(rows("SELECT table_name, row_identifier FROM synced_changes ORDER BY 1, 2"),
              (Rows{"events|2", "messages|1"}));
    EXPECT_EQ(files(), Rows{fileOf(8)}) << "the file of the other event stays";
    EXPECT_FALSE(fs::exists(fs::path(fileOf(7)).parent_path())) << "nor is its directory left";
}

TEST_F(Deleting, AFileThatAnotherPartNamesStaysUntilThatGoesToo) {
    const auto first = downloadPicture(7, "shared");
    const auto second = downloadPicture(8, "x");
    execute(
        "UPDATE event_content_parts SET file_path = './' || (SELECT file_path FROM event_content_parts"
        " WHERE size = 6) WHERE size = 1");
    EXPECT_EQ(ada().deleteEvents(std::vector{first}), 1U);
    EXPECT_TRUE(fs::exists(fileOf(7)));
    EXPECT_EQ(ada().deleteEvents(std::vector{second}), 1U);
    EXPECT_FALSE(fs::exists(fileOf(7)));
}

TEST_F(Deleting, BesideItFilesAreRemovedInTheirTurn) {
    std::vector<ZAVDatabaseIdentifier> events;
    for (int number = 7; number < 17; ++number) {
        events.push_back(downloadPicture(number, "x"));
    }
    std::size_t done = 0;
    for (const auto event : events) {
        ASSERT_TRUE(ada().writeAsync(
            [&, event](const ZAVRepositories&) { return ada().deleteEvents(std::vector{event}) == 1U; },
            [&](const ZAVWorkOutcome& outcome) {
                done += outcome.state == ZAVWorkOutcome::State::done ? 1 : 0;
            }));
    }
    EXPECT_TRUE(ada().write([](const ZAVRepositories&) { return true; }))
        << "one that waits for all of these";
    EXPECT_EQ(files(), Rows()) << "what was queued before is done, files included";
    loop().runUntil([&] { return done == 10; });
}

TEST_F(Deleting, WhatAnotherPartComesToNameMeanwhileStays) {
    const auto elsewhere = downloadPicture(40, "elsewhere");
    std::atomic<bool> isOver{false};
    std::thread forwarding([&] {
        while (!isOver) {
            // One part is given the file of the newest one, again and again.
            EXPECT_TRUE(ada().write([&](const ZAVRepositories& repositories) {
                return repositories.events.database().executeUpdate(
                    "UPDATE event_content_parts SET file_path = (SELECT file_path FROM event_content_parts"
                    " ORDER BY database_identifier DESC LIMIT 1) WHERE event_database_identifier = ?",
                    elsewhere);
            }));
        }
    });
    for (int number = 50; number < 100; ++number) {
        const auto row = downloadPicture(number, "x");
        EXPECT_EQ(ada().deleteEvents(std::vector{row}), 1U);
    }
    isOver = true;
    forwarding.join();
    const auto orphans = content().findOrphans(0s);
    ASSERT_TRUE(orphans);
    EXPECT_EQ(orphans->partsWithoutFile, std::vector<ZAVDatabaseIdentifier>());
}

TEST_F(Deleting, NothingGoesUntilTheTransactionIsCommitted) {
    const auto row = downloadPicture(7, "x");
    EXPECT_FALSE(ada().write([&](const ZAVRepositories&) {
        EXPECT_EQ(ada().deleteEvents(std::vector{row}), 1U);
        EXPECT_TRUE(fs::exists(fileOf(7)));
        return false;
    }));
    EXPECT_TRUE(fs::exists(fileOf(7))) << "it was taken back";
    EXPECT_TRUE(ada().write([&](const ZAVRepositories&) {
        EXPECT_FALSE(ada().write([&](const ZAVRepositories&) {
            EXPECT_EQ(ada().deleteEvents(std::vector{row}), 1U);
            return false;
        }));
        return true;
    }));
    EXPECT_TRUE(fs::exists(fileOf(7))) << "the inner work was taken back";
    EXPECT_TRUE(ada().write([&](const ZAVRepositories&) {
        EXPECT_EQ(ada().deleteEvents(std::vector{row}), 1U);
        EXPECT_TRUE(fs::exists(fileOf(7)));
        return true;
    }));
    EXPECT_FALSE(fs::exists(fileOf(7)));
}

TEST_F(Deleting, WhatIsOutsideAndTheDatabaseStayWhateverAPathSays) {
    const auto row = downloadPicture(7, "x");
    fs::create_hard_link(path(), root() + "/database");
    place(path() + "-secret", "secret");
    for (const std::string way : {"database", "../chat.db", "../chat.db-secret"}) {
        execute(
            "INSERT INTO event_content_parts (event_database_identifier, event_content_part_id, transfer_status,"
            " file_path) SELECT 1, COUNT(*), 4, '" +
            way + "' FROM event_content_parts");
    }
    EXPECT_EQ(ada().deleteEvents(std::vector{row}), 1U);
    EXPECT_TRUE(fs::exists(root() + "/database"));
    EXPECT_TRUE(fs::exists(path() + "-secret"));
    EXPECT_FALSE(fs::exists(fileOf(7)));
    EXPECT_EQ(rows("PRAGMA integrity_check"), Rows{"ok"});
}

TEST_F(Deleting, ATombstoneKeepsItsRowAndNothingElse) {
    const auto row = downloadPicture(7, "x");
    EXPECT_EQ(ada().makeTombstone(uuidNumber(1), 7), true);
    EXPECT_EQ(rows("SELECT database_identifier, type, seq FROM events"), Rows{std::to_string(row) + "|10|7"});
    EXPECT_EQ(rows("SELECT COUNT(*) FROM event_content_parts"), Rows{"0"});
    EXPECT_EQ(files(), Rows());
    EXPECT_EQ(ada().makeTombstone(uuidNumber(1), 8), false) << "there is no such event";
    EXPECT_EQ(ada().makeTombstone(uuidNumber(5), 7), false) << "there is no such stream";
    EXPECT_EQ(rows("SELECT COUNT(*) FROM streams"), Rows{"1"}) << "none is registered for it";
}

TEST_F(Deleting, ADeletionThatIsReceivedTakesTheFileToo) {
    downloadPicture(7, "x");
    auto deletion = makeEvent(EventType_EVENT_DELETED, uuidNumber(1), 50);
    deletion->set_seq(8);
    deletion->set_target_seq(7);
    const std::vector<std::shared_ptr<ZAVEvent>> events{deletion};
    ASSERT_TRUE(ada().receive(uuidNumber(1), events));
    EXPECT_EQ(files(), Rows());
}

TEST_F(Deleting, AStreamTakesItsEventsAndLeavesTheOthers) {
    downloadPicture(7, "x");
    downloadPicture(8, "y");
    downloadPicture(9, "z", uuidNumber(2));
    sendPicture(10, "mine");
    EXPECT_EQ(ada().deleteStream(1), true);
    EXPECT_EQ(rows("SELECT stream_database_identifier FROM events"), Rows{"2"});
    EXPECT_EQ(rows("SELECT database_identifier FROM streams"), Rows{"2"});
    EXPECT_EQ(rows("SELECT COUNT(*) FROM event_content_parts"), Rows{"1"});
    EXPECT_EQ(rows("SELECT COUNT(*) FROM keyed_values_local"), Rows{"0"});
    EXPECT_EQ(files(), Rows{fileOf(9)});
    EXPECT_TRUE(ada().outbox()->empty()) << "no queue finds what is gone";
    EXPECT_EQ(ada().deleteStream(1), false) << "it is gone";
}

// Sequences

class Progress : public ContentStore {};

TEST_F(Progress, OfAParticipantDoesNotGoBackUnlessAsked) {
    using Change = ZAVEventStore::SequenceChange;
    execute(
        "INSERT INTO conversations (stream_id) VALUES (X'" + std::string("11111111111111111111111111111101") +
        "'); INSERT INTO conversation_participants (conversation_database_identifier, member_id) VALUES (1, 'ada')");
    const auto recorded = [&] { return rows("SELECT seq FROM conversation_participants"); };
    EXPECT_EQ(ada().recordParticipantSeq(uuidNumber(1), "ada", 5), true);
    EXPECT_EQ(recorded(), Rows{"5"});
    EXPECT_EQ(ada().recordParticipantSeq(uuidNumber(1), "ada", 3), false) << "it came late";
    EXPECT_EQ(ada().recordParticipantSeq(uuidNumber(1), "ada", 5), false);
    EXPECT_EQ(recorded(), Rows{"5"});
    EXPECT_EQ(ada().recordParticipantSeq(uuidNumber(1), "ada", 3, Change::any), true);
    EXPECT_EQ(recorded(), Rows{"3"});
    EXPECT_EQ(ada().recordParticipantSeq(uuidNumber(1), "nobody", 9), false);
    EXPECT_EQ(ada().recordParticipantSeq(uuidNumber(2), "ada", 9), false);
}

TEST_F(Progress, OfAMessageDoesNotGoBackUnlessAsked) {
    using Change = ZAVEventStore::SequenceChange;
    execute("INSERT INTO messages (event_database_identifier) VALUES (1)");
    const auto recorded = [&] { return rows("SELECT seq FROM messages"); };
    EXPECT_EQ(ada().recordMessageSeq(1, 5), true);
    EXPECT_EQ(ada().recordMessageSeq(1, 4), false);
    EXPECT_EQ(recorded(), Rows{"5"});
    EXPECT_EQ(ada().recordMessageSeq(1, 4, Change::any), true);
    EXPECT_EQ(recorded(), Rows{"4"});
    EXPECT_EQ(ada().recordMessageSeq(2, 5), false) << "it carries no message";
}

}  // namespace
}  // namespace zav::test
