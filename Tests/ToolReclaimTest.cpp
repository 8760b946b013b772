#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Support/Tool.h"
#include "Support/TracedTool.h"

namespace zav::test {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

/// A part as it is stored: where its file is, its size in the database and its last access.
struct StoredPart {
    std::string filePath;
    int size = 10;
    int lastAccessed = 1000;
    int transferStatus = 4;
};

using Rows = std::vector<std::string>;

/// A store with one message that has the given parts, and a cache directory beside it.
class CacheStore {
public:
    explicit CacheStore(const std::vector<StoredPart>& parts) {
        fs::create_directory(cache());
        json content = json::array();
        for (const StoredPart& part : parts) {
            content.push_back({{"media_type", "image/png"}, {"last_accessed", part.lastAccessed}});
        }
        store_.importWell(lines({eventJSON(1, {{"type", 4}, {"content", content}})}));
        std::string script = "BEGIN;";
        for (std::size_t index = 0; index < parts.size(); ++index) {
            // Past the tool, which refuses paths, sizes and statuses that make no sense.
            const StoredPart& part = parts[index];
            script += "UPDATE event_content_parts SET file_path = '" + part.filePath +
                      "', size = " + std::to_string(part.size) +
                      ", transfer_status = " + std::to_string(part.transferStatus) +
                      " WHERE event_content_part_id = " + std::to_string(index) + ";";
        }
        store_.execute(script + "COMMIT");
    }

    [[nodiscard]] const ToolStore& store() const { return store_; }
    [[nodiscard]] std::string cache() const { return beside("cache"); }
    [[nodiscard]] std::string cached(const std::string& name) const { return cache() + "/" + name; }
    [[nodiscard]] std::string beside(const std::string& name) const {
        return fs::canonical(fs::path(store_.path()).parent_path()).string() + "/" + name;
    }

    /// Writes a file of so many bytes below the store's directory.
    [[nodiscard]] std::string addFile(const std::string& name, std::size_t size = 10) const {
        fs::create_directories(fs::path(beside(name)).parent_path());
        return store_.write(name, std::string(size, 'x'));
    }

    [[nodiscard]] ToolRun reclaim(const std::string& bytes, const std::vector<std::string>& more = {}) const {
        std::vector<std::string> options{"--bytes", bytes, "--cache", cache()};
        options.insert(options.end(), more.begin(), more.end());
        return store_.run("reclaim", options);
    }

    /// The purge marks of the parts, in the order of their indexes.
    [[nodiscard]] Rows marks() const {
        return store_.execute("SELECT purged FROM event_content_parts ORDER BY event_content_part_id");
    }

private:
    ToolStore store_;
};

/// Expects that what was asked for was reclaimed, and nothing to complain about.
void expectReclaimed(const ToolRun& run, const std::string& out) {
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, out);
}

/// Reclaims a part whose path is `filePath` before another that is well, and expects the refusal of the one
/// and the reclaiming of the other.
void expectRefusal(const CacheStore& cache, const std::string& reason) {
    const std::string good = cache.addFile("cache/good");
    const ToolRun run = cache.reclaim("1000");
    EXPECT_EQ(run.status, 1) << "less was freed than was asked for, and a part could not be reclaimed";
    EXPECT_EQ(run.err, reason + "\nzavevents: 1 parts could not be reclaimed\n");
    EXPECT_EQ(run.out, "good: 10 bytes\n1 parts, 10 bytes freed\n") << "the other part is reclaimed";
    EXPECT_FALSE(fs::exists(good)) << "the other part's file goes";
    EXPECT_EQ(cache.marks(), (Rows{"0", "1"})) << "only what was reclaimed is marked";
}

std::vector<StoredPart> beforeAGoodOne(const std::string& filePath) {
    return {{filePath, 10, 1000}, {"good", 10, 2000}};
}

/// Expects that a part is refused whose path names the file `secret` beside the cache directory.
void expectThatTheFileBesideTheCacheStays(const CacheStore& cache, const std::string& reason) {
    const std::string secret = cache.addFile("secret");
    expectRefusal(cache, reason);
    EXPECT_TRUE(fs::exists(secret)) << "what is outside the cache directory is never removed";
}

// What is chosen, removed, marked and said

TEST(Reclaim, TheOldestPartsAreRemovedUntilTheRequestIsExceeded) {
    const CacheStore cache({{"new", 30, 3000}, {"oldest", 10, 1000}, {"older", 20, 2000}});
    const std::string newest = cache.addFile("cache/new", 30);
    const std::string oldest = cache.addFile("cache/oldest", 10);
    const std::string older = cache.addFile("cache/older", 20);
    expectReclaimed(cache.reclaim("25"), "oldest: 10 bytes\nolder: 20 bytes\n2 parts, 30 bytes freed\n");
    EXPECT_FALSE(fs::exists(oldest)) << "the least recently used file goes first";
    EXPECT_FALSE(fs::exists(older)) << "the part that exceeds the request goes too";
    EXPECT_TRUE(fs::exists(newest)) << "nothing goes beyond the request";
    EXPECT_EQ(cache.marks(), (Rows{"0", "1", "1"})) << "the parts without their files are marked";
}

TEST(Reclaim, APartThatIsMarkedIsNotChosenAgain) {
    const CacheStore cache({{"only"}});
    const std::string only = cache.addFile("cache/only");
    EXPECT_EQ(cache.reclaim("100").out, "only: 10 bytes\n1 parts, 10 bytes freed\n");
    const std::string downloadedAgain = cache.addFile("cache/only");
    const ToolRun again = cache.reclaim("100");
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(again.out, "0 parts, 0 bytes freed\n") << "a purged part has no file to the store";
    EXPECT_TRUE(fs::exists(downloadedAgain)) << "what was not chosen stays";
    EXPECT_EQ(only, downloadedAgain);
}

TEST(Reclaim, WhatIsStillToBeUploadedStays) {
    const CacheStore cache({{"awaiting", 10, 1000, 0}, {"uploading", 10, 1000, 1}, {"done", 10, 2000, 4}});
    const std::string awaiting = cache.addFile("cache/awaiting");
    const std::string uploading = cache.addFile("cache/uploading");
    const std::string done = cache.addFile("cache/done");
    EXPECT_EQ(cache.reclaim("1000").out, "done: 10 bytes\n1 parts, 10 bytes freed\n");
    EXPECT_TRUE(fs::exists(awaiting)) << "the only copy of a part that awaits its upload stays";
    EXPECT_TRUE(fs::exists(uploading)) << "the only copy of a part that is being uploaded stays";
    EXPECT_FALSE(fs::exists(done)) << "what the service keeps can go";
    EXPECT_EQ(cache.marks(), (Rows{"0", "0", "1"}));
}

TEST(Reclaim, TheFreedBytesAreThoseOfTheFilesAndNotThoseOfTheDatabase) {
    const CacheStore cache({{"short", 4000}});
    const std::string file = cache.addFile("cache/short", 3);
    EXPECT_EQ(cache.reclaim("1").out, "short: 3 bytes\n1 parts, 3 bytes freed\n");
    EXPECT_FALSE(fs::exists(file));
}

TEST(Reclaim, AFileInADirectoryOfTheCacheIsRemovedAndItsDirectoryStays) {
    const CacheStore cache({{"app/user/part-0"}, {"app/./a%20b/%2541"}});
    const std::string plain = cache.addFile("cache/app/user/part-0");
    const std::string escaped = cache.addFile("cache/app/a b/%41");
    const ToolRun run = cache.reclaim("1000");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_FALSE(fs::exists(plain)) << "a path leads through directories";
    EXPECT_FALSE(fs::exists(escaped)) << "a path is decoded once";
    EXPECT_TRUE(fs::is_directory(cache.cached("app/user"))) << "directories stay for the next download";
    EXPECT_EQ(cache.marks(), (Rows{"1", "1"}));
}

TEST(Reclaim, ADryRunSaysWhatWouldGoAndRemovesAndMarksNothing) {
    const CacheStore cache({{"old", 10, 1000}, {"gone", 10, 2000}});
    const std::string old = cache.addFile("cache/old");
    expectReclaimed(cache.reclaim("100", {"--dry-run"}),
                    "old: 10 bytes\ngone: was gone already\n2 parts, 10 bytes to free\n");
    EXPECT_TRUE(fs::exists(old)) << "a dry run removes nothing";
    EXPECT_EQ(cache.marks(), (Rows{"0", "0"})) << "a dry run marks nothing";
}

TEST(Reclaim, ADryRunRefusesWhatTheRealRunRefuses) {
    const CacheStore cache({{"../secret", 10, 1000}, {"folder", 10, 2000}});
    const std::string secret = cache.addFile("secret");
    const std::string inFolder = cache.addFile("cache/folder/file");
    const ToolRun dry = cache.reclaim("100", {"--dry-run"});
    EXPECT_EQ(dry.status, 1) << "neither part can be reclaimed";
    EXPECT_EQ(dry.out, "0 parts, 0 bytes to free\n") << "no file would go";
    EXPECT_EQ(dry.err, cache.reclaim("100").err) << "a dry run foretells what the real run complains about";
    EXPECT_TRUE(fs::exists(secret));
    EXPECT_TRUE(fs::exists(inFolder));
}

TEST(Reclaim, AFileThatIsGoneAlreadyIsNoFailureAndItsPartIsMarked) {
    const CacheStore cache({{"gone", 10, 1000}, {"no/such/directory/gone", 10, 2000}});
    expectReclaimed(
        cache.reclaim("1000"),
        "gone: was gone already\nno/such/directory/gone: was gone already\n2 parts, 0 bytes freed\n");
    EXPECT_EQ(cache.marks(), (Rows{"1", "1"})) << "a part without its file is purged";
}

TEST(Reclaim, NothingToReclaimIsNoFailure) {
    expectReclaimed(CacheStore({}).reclaim("1000"), "0 parts, 0 bytes freed\n");
}

TEST(Reclaim, TheMarkIsAllThatChangesInAPart) {
    const CacheStore cache({{"only"}});
    const std::string file = cache.addFile("cache/only");
    const std::string others =
        "SELECT type, access_expiration, url, size, transfer_status, file_path, last_accessed"
        " FROM event_content_parts";
    cache.store().execute(
        "UPDATE event_content_parts SET url = 'https://content.test/1', access_expiration = 4000000000.75,"
        " last_accessed = 1700000000.25");
    const Rows before = cache.store().execute(others);
    EXPECT_EQ(cache.reclaim("1").status, 0);
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(cache.marks(), (Rows{"1"}));
    EXPECT_EQ(cache.store().execute(others), before) << "purging a file leaves the rest of its part alone";
}

TEST(Reclaim, WhatARecordCannotSayIsKeptInItsRow) {
    const CacheStore cache({{"only"}});
    const std::string file = cache.addFile("cache/only");
    cache.store().execute("UPDATE event_content_parts SET url = 'no url', size = NULL, purged = NULL");
    const ToolRun run = cache.reclaim("1");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_FALSE(fs::exists(file)) << "a part that nobody marked yet can be reclaimed";
    EXPECT_EQ(cache.store().execute("SELECT url, size, purged FROM event_content_parts"),
              (Rows{"no url|NULL|1"}))
        << "without its url the content could not be downloaded again; no size is not 0 bytes";
}

// Nothing outside the cache directory is removed

TEST(Reclaim, APathThatClimbsOutOfTheCacheIsRefusedHoweverItIsWritten) {
    const std::pair<std::string, std::string> pathsAndFiles[] = {
        {"../secret", "secret"},
        {"folder/../../secret", "secret"},
        {"%2E%2E/secret", "cache/../secret"},
        {"x%2F..%2F..%2Fsecret", "cache/x/../../secret"},
    };
    for (const auto& [path, file] : pathsAndFiles) {
        SCOPED_TRACE("file_path '" + path + "'");
        const CacheStore cache(beforeAGoodOne(path));
        expectThatTheFileBesideTheCacheStays(cache,
                                             cache.beside(file) + ": leads out of the cache directory");
    }
}

TEST(Reclaim, AnAbsolutePathIsRefused) {
    const CacheStore cache(beforeAGoodOne("placeholder"));
    cache.store().execute("UPDATE event_content_parts SET file_path = '" + cache.beside("secret") +
                          "' WHERE event_content_part_id = 0");
    expectThatTheFileBesideTheCacheStays(cache,
                                         cache.beside("secret") + ": leads out of the cache directory");
}

TEST(Reclaim, AFileUrlIsRefused) {
    const CacheStore cache(beforeAGoodOne("placeholder"));
    cache.store().execute("UPDATE event_content_parts SET file_path = 'file://" + cache.beside("secret") +
                          "' WHERE event_content_part_id = 0");
    expectThatTheFileBesideTheCacheStays(cache,
                                         "event 1 part 0: the stored file_path is not a relative path");
}

TEST(Reclaim, ADirectoryWhoseNameBeginsLikeTheCachesIsOutsideIt) {
    const CacheStore cache(beforeAGoodOne("../cache2/file"));
    const std::string neighbour = cache.addFile("cache2/file");
    expectRefusal(cache, neighbour + ": leads out of the cache directory");
    EXPECT_TRUE(fs::exists(neighbour)) << "the neighbour of the cache directory stays as it is";
}

TEST(Reclaim, ADirectoryThatIsALinkOutOfTheCacheIsNotFollowed) {
    const CacheStore cache(beforeAGoodOne("out/file"));
    const std::string outside = cache.addFile("outside/file");
    fs::create_directory_symlink(cache.beside("outside"), cache.cached("out"));
    expectRefusal(cache, cache.cached("out/file") + ": leads through what is no directory of the cache");
    EXPECT_TRUE(fs::exists(outside)) << "a link must not lead the removal out of the cache";
    EXPECT_TRUE(fs::is_symlink(cache.cached("out"))) << "the link itself stays";
}

TEST(Reclaim, ALinkInPlaceOfAFileIsRemovedAndItsTargetStays) {
    const CacheStore cache({{"link"}});
    const std::string secret = cache.addFile("secret", 500);
    fs::create_symlink(secret, cache.cached("link"));
    const ToolRun run = cache.reclaim("1");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_FALSE(fs::is_symlink(cache.cached("link"))) << "the link is what the cache holds";
    EXPECT_TRUE(fs::exists(secret)) << "what the link points to is outside the cache";
    EXPECT_EQ(cache.marks(), (Rows{"1"}));
}

TEST(Reclaim, APathWithAZeroByteIsRefused) {
    const CacheStore cache(beforeAGoodOne("kept%00.png"));
    const std::string kept = cache.addFile("cache/kept");
    expectRefusal(cache, cache.cached("kept\\x00.png") + ": names no file");
    EXPECT_TRUE(fs::exists(kept)) << "a zero byte must not cut the path to another file's";
}

TEST(Reclaim, TheCacheDirectoryItselfIsRefused) {
    for (const std::string path : {"", ".", "./", "folder/..", "%2E"}) {
        SCOPED_TRACE("file_path '" + path + "'");
        const CacheStore cache(beforeAGoodOne(path));
        const std::string good = cache.addFile("cache/good");
        const ToolRun run = cache.reclaim("1000");
        EXPECT_EQ(run.status, 1) << "a directory is no file of a part";
        EXPECT_NE(run.err.find("\nzavevents: 1 parts could not be reclaimed\n"), std::string::npos)
            << run.err;
        EXPECT_EQ(run.out, "good: 10 bytes\n1 parts, 10 bytes freed\n") << "the other part is reclaimed";
        EXPECT_EQ(cache.marks(), (Rows{"0", "1"}));
        EXPECT_TRUE(fs::is_directory(cache.cache())) << "the cache directory stays";
        EXPECT_FALSE(fs::exists(good));
    }
}

TEST(Reclaim, ADirectoryOfTheCacheIsRefused) {
    const CacheStore cache(beforeAGoodOne("folder"));
    const std::string file = cache.addFile("cache/folder/file");
    expectRefusal(cache, cache.cached("folder") + ": Is a directory");
    EXPECT_TRUE(fs::exists(file)) << "the files of other parts stay";
}

TEST(Reclaim, APathThatLeadsThroughAFileIsRefused) {
    const CacheStore cache(beforeAGoodOne("file/part-0"));
    const std::string file = cache.addFile("cache/file");
    expectRefusal(cache, cache.cached("file/part-0") + ": leads through what is no directory of the cache");
    EXPECT_TRUE(fs::exists(file)) << "another part's file stays";
}

TEST(Reclaim, AStoredTextThatIsNoPathIsRefused) {
    const CacheStore cache(beforeAGoodOne("no path"));
    const std::string file = cache.addFile("cache/no path");
    expectRefusal(cache, "event 1 part 0: the stored file_path is not a relative path");
    EXPECT_TRUE(fs::exists(file)) << "a file that the path does not name stays";
}

TEST(Reclaim, ACacheDirectoryThatIsReachedThroughALinkIsTheDirectoryItself) {
    const CacheStore cache({{"only"}});
    const std::string file = cache.addFile("cache/only");
    fs::create_directory_symlink(cache.cache(), cache.beside("link"));
    const ToolRun run = cache.store().run("reclaim", {"--bytes", "1", "--cache", cache.beside("link")});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_FALSE(fs::exists(file)) << "the user may name the cache directory by a link";
}

// Parts that name the same file

/// Expects that the file of a complete part stays because of another part of the given status and path.
void expectThatASharedFileStays(int status, const std::string& otherPath) {
    SCOPED_TRACE("the other part has the status " + std::to_string(status) + " and the path " + otherPath);
    const CacheStore cache({{"folder/picture", 10, 1000, 4}, {otherPath, 10, 900, status}});
    const std::string picture = cache.addFile("cache/folder/picture");
    expectReclaimed(
        cache.reclaim("1000"),
        "folder/picture: kept, since a part that is not complete needs it\n0 parts, 0 bytes freed\n");
    EXPECT_TRUE(fs::exists(picture)) << "a forwarded picture is the only copy of what is to be uploaded";
    EXPECT_EQ(cache.marks(), (Rows{"0", "0"})) << "a part that has its file is not purged";
}

TEST(Reclaim, AFileThatAPartOfAnotherStatusNeedsStays) {
    for (const int status : {0, 1, 2, 3, 7}) {
        expectThatASharedFileStays(status, "folder/picture");
    }
}

TEST(Reclaim, AFileThatIsNeededUnderAnotherSpellingStays) {
    for (const std::string path : {"folder/./picture", "./folder//picture", "folder/other/../picture",
                                   "folder/p%69cture", "folder%2Fpicture", "../cache/folder/picture"}) {
        expectThatASharedFileStays(0, path);
    }
}

TEST(Reclaim, AFileThatIsNeededThroughALinkStays) {
    const CacheStore cache({{"picture", 10, 1000, 4}, {"link", 10, 900, 0}, {"through/picture", 10, 900, 1}});
    const std::string picture = cache.addFile("cache/picture");
    fs::create_symlink(picture, cache.cached("link"));
    fs::create_directory_symlink(cache.cache(), cache.cached("through"));
    EXPECT_EQ(cache.reclaim("1000").status, 0);
    EXPECT_TRUE(fs::exists(picture)) << "what is uploaded through a link is the same file";
    EXPECT_EQ(cache.marks(), (Rows{"0", "0", "0"}));
}

TEST(Reclaim, AllPartsThatNameAFileAreMarkedWithItAndItsBytesCountOnce) {
    const CacheStore cache(
        {{"a/b", 10, 1000}, {"a/./b", 10, 2000}, {"a/%62", 10, 3000}, {"other", 10, 4000}});
    cache.store().execute(
        "UPDATE event_content_parts SET last_accessed = NULL WHERE event_content_part_id = 2");
    const std::string shared = cache.addFile("cache/a/b");
    const std::string other = cache.addFile("cache/other");
    expectReclaimed(cache.reclaim("11"), "a/b: 10 bytes\nother: 10 bytes\n4 parts, 20 bytes freed\n");
    EXPECT_FALSE(fs::exists(shared));
    EXPECT_FALSE(fs::exists(other)) << "the second name of the first file has freed nothing";
    EXPECT_EQ(cache.marks(), (Rows{"1", "1", "1", "1"}))
        << "no part says that its file is there when it is not";
}

TEST(Reclaim, TheBytesOfALinkedFileAreFreedWithItsLastName) {
    const CacheStore cache({{"one", 10, 1000}, {"second", 10, 2000}, {"other", 10, 3000}});
    const std::string one = cache.addFile("cache/one", 100);
    fs::create_hard_link(one, cache.cached("second"));
    const std::string other = cache.addFile("cache/other");
    const std::string said = "one: 0 bytes\nsecond: 100 bytes\n2 parts, 100 bytes ";
    EXPECT_EQ(cache.reclaim("100", {"--dry-run"}).out, said + "to free\n");
    EXPECT_EQ(cache.reclaim("100").out, said + "freed\n");
    EXPECT_TRUE(fs::exists(other)) << "nothing goes beyond the request";
}

TEST(Reclaim, UnfinishedDownloadsKeepTheirFilesAndAreNotMarked) {
    const CacheStore cache({{"ready", 10, 1000, 2}, {"downloading", 10, 1000, 3}, {"no-file", 10, 1000, 3}});
    const std::string ready = cache.addFile("cache/ready");
    const std::string downloading = cache.addFile("cache/downloading");
    const ToolRun run = cache.reclaim("1000");
    EXPECT_EQ(run.out, "0 parts, 0 bytes freed\n");
    EXPECT_TRUE(fs::exists(ready)) << "a download is gone on with from its partial file";
    EXPECT_TRUE(fs::exists(downloading)) << "a file that is being written stays";
    EXPECT_EQ(cache.marks(), (Rows{"0", "0", "0"})) << "a purged part would no longer be downloaded";
}

// The files of the database

TEST(Reclaim, TheDatabaseAndItsCompanionsStay) {
    for (const std::string name : {"chat.db", "chat.db-wal", "chat.db-shm", "cache/../chat.db", "link"}) {
        SCOPED_TRACE(name);
        const CacheStore cache(beforeAGoodOne(name));
        const std::string good = cache.addFile("good");
        fs::create_symlink(cache.store().path(), cache.beside("link"));
        const ToolRun run = cache.store().run("reclaim", {"--bytes", "1000", "--cache", cache.beside("")});
        EXPECT_EQ(run.status, 1) << "a path that names the database is refused";
        EXPECT_NE(run.err.find(": belongs to the database\nzavevents: 1 parts could not be reclaimed\n"),
                  std::string::npos)
            << run.err;
        EXPECT_EQ(run.out, "good: 10 bytes\n1 parts, 10 bytes freed\n") << "the other part is reclaimed";
        EXPECT_FALSE(fs::exists(good));
        EXPECT_TRUE(fs::exists(cache.store().path())) << "the database stays";
        EXPECT_TRUE(fs::is_symlink(cache.beside("link")));
        EXPECT_EQ(cache.marks(), (Rows{"0", "1"})) << "what was committed is there";
    }
}

TEST(Reclaim, ANameOfItsOwnTrashIsRefused) {
    const std::string name = ".zav-trash-0123456789abcdef-x";
    const CacheStore cache(beforeAGoodOne(name));
    expectRefusal(cache, cache.cached(name) + ": is a name of files that are being removed");
}

// Rows of any kind

TEST(Reclaim, PartsWhoseIndexIsNoNumberOrWhoseEventIsMissingAreReclaimedByTheirRows) {
    const CacheStore cache({{"well", 10, 4000}});
    cache.store().execute(
        "INSERT INTO event_content_parts (database_identifier, event_content_part_id, event_database_identifier,"
        " transfer_status, file_path, last_accessed, url) VALUES (100, 'x', 7, 4, 'by-text', 1000, 'no url'),"
        " (101, 0, 7, 4, '%zz', 2000, NULL), (102, 1, 7, 4, 'by-number', 3000, NULL)");
    const std::string byText = cache.addFile("cache/by-text");
    const std::string byNumber = cache.addFile("cache/by-number");
    const ToolRun dry = cache.reclaim("1000", {"--dry-run"});
    EXPECT_EQ(dry.out,
              "by-text: 10 bytes\nby-number: 10 bytes\nwell: was gone already\n3 parts, 20 bytes to free\n");
    const std::string refusal =
        "event 7 part 0: the stored file_path is not a relative path\nzavevents: 1 parts could not be reclaimed\n";
    EXPECT_EQ(dry.err, refusal);
    const ToolRun run = cache.reclaim("1000");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out,
              "by-text: 10 bytes\nby-number: 10 bytes\nwell: was gone already\n3 parts, 20 bytes freed\n");
    EXPECT_EQ(run.err, refusal);
    EXPECT_FALSE(fs::exists(byText));
    EXPECT_FALSE(fs::exists(byNumber));
    EXPECT_EQ(
        cache.store().execute(
            "SELECT database_identifier, event_content_part_id, file_path, url, size, purged"
            " FROM event_content_parts WHERE database_identifier >= 100"),
        (Rows{"100|x|by-text|no url|NULL|1", "101|0|%zz|NULL|NULL|NULL", "102|1|by-number|NULL|NULL|1"}))
        << "each row is marked that was chosen, and nothing else is written";
}

TEST(Reclaim, PathsThatAreRefusedAndFilesThatAreGoneDoNotCountTowardTheBytes) {
    const CacheStore cache({{"../x", 1000000, 1000},
                            {"gone", 1000000, 2000},
                            {"%zz", -1, 2500},
                            {"good", 10, 3000},
                            {"newest", 10, 4000}});
    const std::string good = cache.addFile("cache/good");
    const std::string newest = cache.addFile("cache/newest");
    const ToolRun run = cache.reclaim("10");
    EXPECT_EQ(run.status, 0) << "what was asked for was freed: " << run.err;
    EXPECT_EQ(run.err, cache.beside("x") + ": leads out of the cache directory\n" +
                           "event 1 part 2: the stored file_path is not a relative path\n")
        << "a refusal is told all the same";
    EXPECT_EQ(run.out, "gone: was gone already\ngood: 10 bytes\n2 parts, 10 bytes freed\n");
    EXPECT_FALSE(fs::exists(good));
    EXPECT_TRUE(fs::exists(newest)) << "nothing goes beyond the request";
    EXPECT_EQ(cache.marks(), (Rows{"0", "1", "0", "1", "0"}));
}

// Beside another client

TEST(Reclaim, APartThatIsToBeUploadedSinceTheToolWasStoppedKeepsItsFileAndItsRow) {
    // So many that there is a moment without the lock in which the tool can be stopped.
    std::vector<StoredPart> parts;
    for (int index = 0; index < 400; ++index) {
        parts.push_back({"file-" + std::to_string(index), 10, 1000 + index});
    }
    const CacheStore cache(parts);
    for (const StoredPart& part : parts) {
        static_cast<void>(cache.addFile("cache/" + part.filePath));
    }
    TracedTool tool({"reclaim", cache.store().path(), "--bytes", "1000000", "--cache", cache.cache()});
    while (fs::exists(cache.cached("file-0"))) {
        ASSERT_TRUE(tool.nextStatement()) << "the tool removes the first file while there is more to do";
    }
    bool isStored = false;
    while (!isStored) {
        ASSERT_TRUE(tool.nextStatement()) << "the tool has more to do";
        ASSERT_TRUE(tool.stop());
        sqlite3* client = nullptr;
        ASSERT_EQ(sqlite3_open(cache.store().path().c_str(), &client), SQLITE_OK);
        isStored = sqlite3_exec(
                       client,
                       "UPDATE event_content_parts SET transfer_status = 0, size = 11, last_accessed = 5000.5"
                       " WHERE event_content_part_id = 399",
                       nullptr, nullptr, nullptr) == SQLITE_OK;
        sqlite3_close(client);
        tool.goOn();
    }
    EXPECT_EQ(tool.exitStatus(), 0);
    EXPECT_TRUE(fs::exists(cache.cached("file-399"))) << "the only copy of what is to be uploaded stays";
    EXPECT_FALSE(fs::exists(cache.cached("file-398"))) << "the others go";
    EXPECT_EQ(
        cache.store().execute("SELECT transfer_status, size, last_accessed, purged FROM event_content_parts"
                              " WHERE event_content_part_id = 399"),
        (Rows{"0|11|5000.5|0"}))
        << "the row is as the other client wrote it";
}

TEST(Reclaim, ALockThatAnotherClientHoldsIsAFailureThatChangesNothing) {
    const CacheStore cache({{"only"}});
    const std::string only = cache.addFile("cache/only");
    sqlite3* client = nullptr;
    ASSERT_EQ(sqlite3_open(cache.store().path().c_str(), &client), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(client, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    const ToolRun dry = cache.reclaim("1", {"--dry-run"});
    EXPECT_EQ(dry.status, 0) << "a dry run needs no lock: " << dry.err;
    EXPECT_EQ(dry.out, "only: 10 bytes\n1 parts, 10 bytes to free\n");
    const ToolRun run = cache.reclaim("1");
    sqlite3_close(client);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "zavevents: cannot reclaim: database is locked\n");
    EXPECT_EQ(run.out, "0 parts, 0 bytes freed\n");
    EXPECT_TRUE(fs::exists(only));
    EXPECT_EQ(cache.marks(), (Rows{"0"}));
}

// The cache directory and the command line

TEST(Reclaim, AMissingCacheDirectoryIsAFailureThatMarksNothing) {
    const CacheStore cache({{"only"}});
    const std::string missing = cache.beside("missing");
    const ToolRun run = cache.store().run("reclaim", {"--bytes", "1", "--cache", missing});
    EXPECT_EQ(run.status, 1) << "without the directory no file can be looked for";
    EXPECT_EQ(run.err, "zavevents: " + missing + ": No such file or directory\n");
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(cache.marks(), (Rows{"0"})) << "a mistyped directory must not purge the parts";
}

TEST(Reclaim, AFileAsCacheDirectoryIsAFailureThatMarksNothing) {
    const CacheStore cache({{"only"}});
    const std::string file = cache.addFile("file");
    const ToolRun run = cache.store().run("reclaim", {"--bytes", "1", "--cache", file});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "zavevents: " + file + ": Not a directory\n");
    EXPECT_TRUE(fs::exists(file));
    EXPECT_EQ(cache.marks(), (Rows{"0"}));
}

TEST(Reclaim, WithoutBytesOrCacheTheCommandLineIsWrong) {
    const CacheStore cache({{"only"}});
    const std::string file = cache.addFile("cache/only");
    EXPECT_EQ(cache.store().run("reclaim", {"--cache", cache.cache()}).status, 2) << "how much is not said";
    EXPECT_EQ(cache.store().run("reclaim", {"--bytes", "1"}).status, 2) << "where is not said";
    EXPECT_EQ(cache.reclaim("-1").status, 2) << "nobody can free less than nothing";
    EXPECT_TRUE(fs::exists(file)) << "a wrong command line does nothing";
    EXPECT_EQ(cache.marks(), (Rows{"0"}));
}

}  // namespace
}  // namespace zav::test
