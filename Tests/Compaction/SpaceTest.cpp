#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <regex>

#include "Compaction/FakeFileSystem.h"
#include "Compaction/LooseStore.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;

struct Lack {
    std::uint64_t missing = 0;
    std::string where;
    std::uint64_t needed = 0;
};

/// What the message of a refusal says.
Lack lackIn(const ZAVError& error) {
    EXPECT_EQ(error.domain(), ZAVErrorDomainDatabase);
    EXPECT_EQ(error.code(), ZAVDatabaseErrorNoSpace);
    const std::string text = error.description();
    std::smatch found;
    if (!std::regex_search(text, found,
                           std::regex("(\\d+) bytes are missing in (.*), where (\\d+) are needed"))) {
        ADD_FAILURE() << text;
        return {};
    }
    return {std::stoull(found[1]), found[2], std::stoull(found[3])};
}

/// On another file system than that of most tests; empty for none.
std::string directoryOnAnotherFileSystem() {
    return fs::exists("/dev/shm") ? "/dev/shm" : "";
}

TEST(SpaceForACompaction, IsLookedForBeforeAnythingIsWritten) {
    const LooseStore store;
    const std::string content = store.content();
    const std::int64_t bytes = store.bytesOfDatabase() + store.bytesOfLog();
    const std::int64_t freePages = store.freePages();
    constexpr std::uint64_t available = 100000;
    {
        const FakeFileSystem full([](const std::string&) { return available; });
        int calls = 0;
        const Lack lack = lackIn(store.failureToCompact([&](double) { ++calls; }));
        EXPECT_EQ(calls, 0);
        EXPECT_EQ(lack.missing, lack.needed - available);
        EXPECT_NE(lack.where.find(store.directory()), std::string::npos) << lack.where;
        EXPECT_GT(lack.needed, 1000000U) << "at least what the rows take";
    }
    EXPECT_EQ(store.bytesOfDatabase() + store.bytesOfLog(), bytes);
    EXPECT_EQ(store.freePages(), freePages);
    EXPECT_EQ(store.content(), content);
    EXPECT_FALSE(fs::exists(store.marker()));
    static_cast<void>(store.compactWell());
}

TEST(SpaceForACompaction, IsEnoughWhenNotAByteIsMissing) {
    const LooseStore store;
    std::uint64_t available = 0;
    const FakeFileSystem small([&](const std::string&) { return available; });
    std::uint64_t needed = lackIn(store.failureToCompact()).needed;
    if (::getenv("SQLITE_TMPDIR") == nullptr) {
        available = needed - 1;
        EXPECT_EQ(lackIn(store.failureToCompact()).missing, 1U);
    }
    available = needed;
    static_cast<void>(store.compactWell());
}

TEST(SpaceForACompaction, IsLookedForWhereTheTemporaryCopyWillBe) {
    const std::string elsewhere = directoryOnAnotherFileSystem();
    struct stat here {};
    struct stat there {};
    if (sqlite3_compileoption_used("TEMP_STORE=3") != 0) {
        GTEST_SKIP() << "the engine makes no temporary files";
    }
    sqlite3_shutdown();  // the engine looks for the variable when it begins
    ASSERT_EQ(::setenv("SQLITE_TMPDIR", elsewhere.c_str(), 1), 0);
    const LooseStore store;
    if (elsewhere.empty() || ::stat(store.directory().c_str(), &here) != 0 ||
        ::stat(elsewhere.c_str(), &there) != 0 || here.st_dev == there.st_dev) {
        GTEST_SKIP() << "there is one file system alone";
    }
    {
        const FakeFileSystem full([&](const std::string& directory) -> std::optional<fsblkcnt_t> {
            return directory == elsewhere ? std::optional<fsblkcnt_t>(10) : std::nullopt;
        });
        const Lack lack = lackIn(store.failureToCompact());
        EXPECT_EQ(lack.where, elsewhere);
        EXPECT_EQ(lack.missing, lack.needed - 10);
    }
    {
        const FakeFileSystem full([&](const std::string& directory) -> std::optional<fsblkcnt_t> {
            return directory == store.directory() ? std::optional<fsblkcnt_t>(10) : std::nullopt;
        });
        EXPECT_EQ(lackIn(store.failureToCompact()).where, store.directory());
    }
    static_cast<void>(store.compactWell());
}

}  // namespace
}  // namespace zav::test
