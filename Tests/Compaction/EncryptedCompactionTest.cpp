#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "Compaction/LooseStore.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;

constexpr int rows = 24000;
constexpr std::int64_t bytesOfContent = 6000000;

/// As large a store as must not be in memory as a whole.
FMDatabaseOptions withLittleMemory() {
    FMDatabaseOptions options;
    options.pageCacheKiB = 512;
    return options;
}

/// The content of the files that this process has open and that have no name any more.
std::string contentOfNamelessFiles() {
    std::string content;
    for (const auto& descriptor : fs::directory_iterator("/proc/self/fd")) {
        std::error_code failure;
        const std::string target = fs::read_symlink(descriptor.path(), failure).string();
        if (target.starts_with('/') && target.ends_with(" (deleted)")) {
            std::ifstream file(descriptor.path(), std::ios::binary);
            const std::size_t before = content.size();
            content.resize(before + fs::file_size(descriptor.path(), failure));
            file.read(content.data() + before, static_cast<std::streamsize>(content.size() - before));
        }
    }
    return content;
}

struct TemporaryCopy {
    std::size_t largest = 0;
    bool heldText = false;
    bool heldHeader = false;
    std::int64_t memory = 0;  ///< that the engine took more than before, at most
};

TemporaryCopy copyDuringCompaction(const LooseStore& store) {
    TemporaryCopy copy;
    double looked = 0;
    int highest = 0;
    int before = 0;
    sqlite3_status(SQLITE_STATUS_MEMORY_USED, &before, &highest, 1);
    static_cast<void>(store.compactWell([&](double share) {
        if (share - looked > 0.05 && share < 0.7) {
            looked = share;
            const std::string content = contentOfNamelessFiles();
            copy.largest = std::max(copy.largest, content.size());
            copy.heldText = copy.heldText || content.find(LooseStore::keptText) != std::string::npos;
            copy.heldHeader = copy.heldHeader || content.find("SQLite format 3") != std::string::npos;
        }
    }));
    int now = 0;
    sqlite3_status(SQLITE_STATUS_MEMORY_USED, &now, &highest, 0);
    copy.memory = highest - before;
    return copy;
}

class TemporaryFile : public testing::Test {
protected:
    void SetUp() override {
        if (!fs::exists("/proc/self/fd")) {
            GTEST_SKIP() << "there is no looking into one's own files";
        }
        if (sqlite3_compileoption_used("TEMP_STORE=3") != 0) {
            GTEST_SKIP() << "the engine makes no temporary files";
        }
    }
};

TEST_F(TemporaryFile, HoldsTheCopyOfAStoreThatIsNotEncrypted) {
    const LooseStore store(withLittleMemory(), rows);
    const TemporaryCopy copy = copyDuringCompaction(store);
    EXPECT_GT(copy.largest, static_cast<std::size_t>(bytesOfContent / 2));
    EXPECT_TRUE(copy.heldText) << "it is looked at in the right place";
    EXPECT_LT(copy.memory, bytesOfContent / 2) << "the copy is not in memory";
}

TEST_F(TemporaryFile, OfAnEncryptedStoreHoldsNoText) {
    if (sqlite3_compileoption_used("HAS_CODEC") == 0) {
        GTEST_SKIP() << "the engine cannot encrypt";
    }
    FMDatabaseOptions options = withLittleMemory();
    options.key = "correct horse";
    const LooseStore store(options, rows);
    ASSERT_FALSE(store.holds(LooseStore::keptText));
    const std::string content = store.content();
    const TemporaryCopy copy = copyDuringCompaction(store);
    EXPECT_GT(copy.largest, static_cast<std::size_t>(bytesOfContent / 2)) << "the copy is in a file";
    EXPECT_FALSE(copy.heldText);
    EXPECT_FALSE(copy.heldHeader);
    EXPECT_LT(copy.memory, bytesOfContent / 2) << "and not in memory";
    EXPECT_FALSE(store.holds(LooseStore::keptText)) << "the store is as secret as before";
    EXPECT_TRUE(store.content() == content);
    EXPECT_EQ(store.freePages(), 0);
    EXPECT_EQ(scalar(*store.anotherHandle(), "PRAGMA integrity_check"), "ok");
    EXPECT_EQ(scalar(*store.handle(), "PRAGMA temp_store"), "2") << "the handle's own stays in memory";
}

}  // namespace
}  // namespace zav::test
