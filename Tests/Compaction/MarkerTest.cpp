#include <fcntl.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Compaction/LooseStore.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

/// Expects that a compaction is refused for what stands in its marker's place, and leaves it there.
void expectRefusal(const LooseStore& store, const std::string& reason) {
    const std::int64_t freePages = store.freePages();
    const ZAVError error = store.failureToCompact();
    EXPECT_EQ(error.domain(), ZAVErrorDomainDatabase);
    EXPECT_EQ(error.code(), ZAVDatabaseErrorUnsafeCompanion);
    EXPECT_NE(error.description().find(store.marker() + " " + reason), std::string::npos)
        << error.description();
    EXPECT_EQ(store.freePages(), freePages) << "nothing was done";
    EXPECT_TRUE(fs::exists(fs::symlink_status(store.marker()))) << "it belongs to somebody else";
}

/// Expects that a call that finds the database locked fails as it always did.
void expectPlainFailure(const LooseStore& store, const std::shared_ptr<FMDatabase>& other) {
    run(*store.handle(), "BEGIN IMMEDIATE");
    EXPECT_FALSE(other->executeUpdate("INSERT INTO t (text) VALUES ('beside')"));
    EXPECT_EQ(other->lastError().code(), SQLITE_BUSY);
    EXPECT_EQ(other->lastError().description().find("compacted"), std::string::npos)
        << other->lastError().description();
    run(*store.handle(), "ROLLBACK");
}

void expectPlainFailure(const LooseStore& store) {
    expectPlainFailure(store, store.anotherHandle());
}

TEST(CompactionMarker, IsNotTakenForAnythingElse) {
    const LooseStore store;
    const TemporaryDirectory elsewhere;
    const std::string precious = elsewhere.file("precious");
    writeFile(precious, "");
    fs::create_symlink(precious, store.marker());
    expectRefusal(store, "is no ordinary file");
    expectPlainFailure(store);
    fs::remove(store.marker());

    fs::create_symlink(elsewhere.file("absent"), store.marker());
    expectRefusal(store, "is no ordinary file");
    EXPECT_FALSE(fs::exists(elsewhere.file("absent"))) << "nothing is made where a link leads";
    fs::remove(store.marker());

    fs::create_hard_link(precious, store.marker());
    expectRefusal(store, "has another name too");
    fs::remove(store.marker());

    ASSERT_EQ(::mkfifo(store.marker().c_str(), 0600), 0);
    expectRefusal(store, "is no ordinary file");
    expectPlainFailure(store);  // and waits for nobody at the other end
    fs::remove(store.marker());

    fs::create_directory(store.marker());
    expectRefusal(store, "is no ordinary file");
    fs::remove(store.marker());

    writeFile(store.marker(), "somebody's diary");
    expectRefusal(store, "is not empty");
    EXPECT_EQ(bytesOfFile(store.marker()), "somebody's diary");
    fs::remove(store.marker());

    const auto other = store.anotherHandle();
    fs::create_hard_link(store.path(), store.marker());
    expectPlainFailure(store, other);
    run(*store.handle(), "BEGIN IMMEDIATE; INSERT INTO t VALUES (1, 'mine')");
    EXPECT_FALSE(other->executeUpdate("INSERT INTO t (text) VALUES ('beside')"))
        << "a look at the marker has not given the handle's locks up";
    run(*store.handle(), "ROLLBACK");
    fs::remove(store.marker());
    static_cast<void>(store.compactWell());
}

TEST(CompactionMarker, OfAKilledCompactionMeansNothing) {
    const LooseStore store;
    writeFile(store.marker(), "");
    expectPlainFailure(store);
    static_cast<void>(store.compactWell());
    EXPECT_EQ(store.freePages(), 0);
    EXPECT_FALSE(fs::exists(store.marker())) << "the next compaction removes it";
}

TEST(CompactionMarker, HasThePermissionsOfTheDatabase) {
    for (const std::uint32_t mode : {0600U, 0664U}) {
        FMDatabaseOptions options;
        options.newFileMode = mode;
        const mode_t before = ::umask(0);
        const LooseStore store(options);
        ::umask(077);
        std::uint32_t found = 0;
        off_t size = -1;
        static_cast<void>(store.compactWell([&](double share) {
            struct stat file {};
            if (share < 1 && ::lstat(store.marker().c_str(), &file) == 0) {
                found = file.st_mode & 0777U;
                size = file.st_size;
            }
        }));
        ::umask(before);
        EXPECT_EQ(found, mode);
        EXPECT_EQ(size, 0);
    }
}

TEST(CompactionMarker, ThatSomebodyLooksAtForAMomentIsWaitedFor) {
    const LooseStore store;
    writeFile(store.marker(), "");
    const int looker = ::open(store.marker().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(looker, 0);
    ASSERT_EQ(::flock(looker, LOCK_SH), 0);
    const ZAVError error = store.failureToCompact();
    EXPECT_EQ(error.code(), SQLITE_BUSY) << "one who keeps it locked is in the way";
    ::close(looker);
    static_cast<void>(store.compactWell());
}

}  // namespace
}  // namespace zav::test
