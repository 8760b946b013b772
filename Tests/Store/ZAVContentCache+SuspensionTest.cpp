#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVEventStore.h>

#include "Store/ContentFixture.h"
#include "Support/FileLocks.h"

namespace zav::test {
namespace {

using Sleeping = ZAVEventStore::SuspendedWorks;

class ContentOfSuspendedStore : public ContentStore {
protected:
    void suspendAda() {
        closeStore();  // the other one on this file
        ZAVError error;
        EXPECT_TRUE(ada().suspend(std::chrono::steady_clock::now() + std::chrono::seconds(10), Sleeping::wait,
                                  &error))
            << error.description();
        EXPECT_EQ(locksOn(path()), std::vector<std::string>());
    }
    void resumeAda() {
        ZAVError error;
        EXPECT_TRUE(ada().resume(&error)) << error.description();
    }
    static void expectSuspended(const ZAVError& error) {
        EXPECT_EQ(domainAndCode(error), "ZAVEventStore 16") << error.description();
    }
};

TEST_F(ContentOfSuspendedStore, CanBeFinishedWhenItIsAwakeAgain) {
    const auto row = receivePicture(1);
    ZAVError error;
    auto writer = content().beginDownload(row, 0, &error);
    ASSERT_TRUE(writer && writer->append(bytesOf("pict"), &error)) << error.description();
    suspendAda();
    EXPECT_TRUE(writer->append(bytesOf("ure"), &error)) << "which needs no database";
    EXPECT_FALSE(writer->finish(&error));
    expectSuspended(error);
    EXPECT_FALSE(content().beginDownload(row, 0, &error));
    expectSuspended(error);
    EXPECT_FALSE(writer->append(bytesOf("s"), &error)) << "it was finished";
    resumeAda();
    EXPECT_TRUE(writer->finish(&error)) << error.description();
    EXPECT_EQ(contentOf(fileOf(1)), "picture");
    EXPECT_EQ(rows("SELECT transfer_status, size FROM event_content_parts"),
              (std::vector<std::string>{"4|7"}));
    EXPECT_FALSE(writer->finish(&error)) << "once";
}

TEST_F(ContentOfSuspendedStore, HasItsAccessesRecordedBefore) {
    const auto row = downloadPicture(1, "picture");
    execute("UPDATE event_content_parts SET last_accessed = 1");
    auto file = content().open(row, 0);
    ASSERT_TRUE(file);
    suspendAda();
    EXPECT_EQ(file->readAll()->asText(), "picture") << "what is open can be read";
    EXPECT_EQ(scalar(*openHandle(path()), "SELECT last_accessed > 1 FROM event_content_parts"), "1");
    ZAVError error;
    EXPECT_FALSE(content().open(row, 0, &error));
    expectSuspended(error);
    EXPECT_FALSE(content().bytesOnDisk(&error));
    expectSuspended(error);
    EXPECT_FALSE(content().purge({}, {}, &error));
    expectSuspended(error);
}

TEST_F(ContentOfSuspendedStore, GoesOnBeingPurgedOnTheHandleOfAnotherDay) {
    constexpr int pictures = 40;  // more than are decided on under one lock
    for (int number = 1; number <= pictures; ++number) {
        downloadPicture(number, "picture");
    }
    closeStore();
    int told = 0;
    ZAVError error;
    const auto result = content().purge(
        {},
        [&](const ZAVPurgedContent&) {
            if (++told == 1) {
                suspendAda();
                resumeAda();
            }
        },
        &error);
    ASSERT_TRUE(result) << error.description();
    EXPECT_EQ(result->parts, static_cast<std::size_t>(pictures));
    EXPECT_EQ(files(), std::vector<std::string>());
}

TEST_F(ContentOfSuspendedStore, KeepsItsFilesWhenItIsSuspendedAmidAPurge) {
    constexpr int pictures = 40;
    for (int number = 1; number <= pictures; ++number) {
        downloadPicture(number, "picture");
    }
    closeStore();
    int told = 0;
    ZAVError error;
    EXPECT_FALSE(content().purge(
        {},
        [&](const ZAVPurgedContent&) {
            if (++told == 1) {
                suspendAda();
            }
        },
        &error));
    expectSuspended(error);
    resumeAda();
    const auto left = content().findOrphans(std::chrono::seconds(0), &error);
    ASSERT_TRUE(left) << error.description();
    EXPECT_TRUE(left->files.empty() && left->partsWithoutFile.empty()) << "rows and files agree";
    EXPECT_EQ(std::to_string(files().size()),
              rows("SELECT COUNT(*) FROM event_content_parts WHERE purged = 0").front());
}

}  // namespace
}  // namespace zav::test
