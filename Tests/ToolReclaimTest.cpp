#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Support/Tool.h"

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
            content.push_back({{"media_type", "image/png"},
                               {"size", part.size},
                               {"last_accessed", part.lastAccessed},
                               {"transfer_status", part.transferStatus},
                               {"file_path", "replaced-below"}});
        }
        store_.importWell(lines({eventJSON(1, {{"type", 4}, {"content", content}})}));
        for (std::size_t index = 0; index < parts.size(); ++index) {
            // Past the tool, which refuses to store a path that is not relative.
            store_.execute("UPDATE event_content_parts SET file_path = '" + parts[index].filePath +
                           "' WHERE event_content_part_id = " + std::to_string(index));
        }
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

/// Reclaims a part whose path is `filePath` before another that is well, and expects the refusal of the one
/// and the reclaiming of the other.
void expectRefusal(const CacheStore& cache, const std::string& reason) {
    const std::string good = cache.addFile("cache/good");
    const ToolRun run = cache.reclaim("1000");
    EXPECT_EQ(run.status, 1) << "a part that cannot be reclaimed makes the command fail";
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
    const ToolRun run = cache.reclaim("25");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "oldest: 10 bytes\nolder: 20 bytes\n2 parts, 30 bytes freed\n");
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
    const ToolRun run = cache.reclaim("100", {"--dry-run"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "old: 10 bytes\ngone: was gone already\n2 parts, 10 bytes to free\n");
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
    const ToolRun run = cache.reclaim("1000");
    EXPECT_EQ(run.status, 0) << "a missing file is what was wanted";
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "gone: was gone already\nno/such/directory/gone: was gone already\n2 parts, 0 bytes freed\n");
    EXPECT_EQ(cache.marks(), (Rows{"1", "1"})) << "a part without its file is purged";
}

TEST(Reclaim, NothingToReclaimIsNoFailure) {
    const CacheStore cache({});
    const ToolRun run = cache.reclaim("1000");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "0 parts, 0 bytes freed\n");
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

TEST(Reclaim, AStoredUrlThatIsNoUrlIsNotLost) {
    const CacheStore cache({{"only"}});
    const std::string file = cache.addFile("cache/only");
    cache.store().execute("UPDATE event_content_parts SET url = 'no url'");
    const ToolRun run = cache.reclaim("1");
    EXPECT_EQ(cache.store().execute("SELECT url FROM event_content_parts"), (Rows{"no url"}))
        << "without its url the content could not be downloaded again";
    EXPECT_EQ(fs::exists(file), run.status != 0) << "the file of a part that was refused stays";
}

// Nothing outside the cache directory is removed

TEST(Reclaim, APathThatClimbsOutOfTheCacheIsRefused) {
    const CacheStore cache(beforeAGoodOne("../secret"));
    expectThatTheFileBesideTheCacheStays(cache,
                                         cache.beside("secret") + ": leads out of the cache directory");
}

TEST(Reclaim, APathThatClimbsOutOfADirectoryOfTheCacheIsRefused) {
    const CacheStore cache(beforeAGoodOne("folder/../../secret"));
    expectThatTheFileBesideTheCacheStays(cache,
                                         cache.beside("secret") + ": leads out of the cache directory");
}

TEST(Reclaim, APathThatClimbsOutInPercentEscapesIsRefused) {
    const CacheStore cache(beforeAGoodOne("%2E%2E/secret"));
    expectThatTheFileBesideTheCacheStays(cache,
                                         cache.cached("../secret") + ": leads out of the cache directory");
}

TEST(Reclaim, APathWithAnEscapedSlashThatClimbsOutIsRefused) {
    const CacheStore cache(beforeAGoodOne("x%2F..%2F..%2Fsecret"));
    expectThatTheFileBesideTheCacheStays(
        cache, cache.cached("x/../../secret") + ": leads out of the cache directory");
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
    expectThatTheFileBesideTheCacheStays(
        cache, "event 1 part 0: the stored file_path is no relative path and would be lost");
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
    const std::string good = cache.addFile("cache/good");
    const ToolRun run = cache.reclaim("1000");
    EXPECT_EQ(run.status, 1) << "no file has a zero byte in its name";
    EXPECT_NE(run.err.find("leads out of the cache directory\n"), std::string::npos)
        << "a zero byte must not cut off the reason: " << run.err;
    EXPECT_TRUE(fs::exists(kept)) << "a zero byte must not cut the path to another file's";
    EXPECT_FALSE(fs::exists(good)) << "the other part is reclaimed";
    EXPECT_EQ(cache.marks(), (Rows{"0", "1"}));
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
    expectRefusal(cache, "event 1 part 0: the stored file_path is no relative path and would be lost");
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
