#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVTransaction.h>

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

TEST_F(ContentOfSuspendedStore, IsResumedByTheSameWriterAndByTheNext) {
    const auto row = receivePicture(1);
    const auto other = receivePicture(2);
    closeStore();
    ZAVError error;
    auto writer = content().resumeDownload(row, 0, &error);
    ASSERT_TRUE(writer && writer->append(bytesOf("01234"), &error)) << error.description();
    auto givenUp = content().resumeDownload(other, 0, &error);
    ASSERT_TRUE(givenUp && givenUp->append(bytesOf("ab"), &error)) << error.description();
    suspendAda();
    EXPECT_FALSE(writer->finish(&error));
    expectSuspended(error);
    EXPECT_FALSE(writer->startOver(&error)) << "it was finished";
    EXPECT_EQ(writer->size(), 5U);
    givenUp.reset();
    resumeAda();
    EXPECT_FALSE(content().resumeDownload(row, 0, &error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 14") << "it is the first one's still";
    EXPECT_TRUE(writer->finish(&error)) << error.description();
    EXPECT_EQ(contentOf(fileOf(1)), "01234");
    auto next = content().resumeDownload(other, 0, &error);
    ASSERT_TRUE(next) << error.description();
    EXPECT_EQ(next->size(), 2U);
    EXPECT_TRUE(next->append(bytesOf("cde")) && next->finish(&error)) << error.description();
    EXPECT_EQ(contentOf(fileOf(2)), "abcde");
}

// Files of what was deleted

class FilesOfSuspendedStore : public ContentOfSuspendedStore {
protected:
    /// A store that is suspended between the next commit and what is done after it.
    [[nodiscard]] std::unique_ptr<ZAVEventStore> openToFallAsleepAfterACommit() {
        ZAVEventStoreOptions options = optionsOfAda();
        // Called by the thread that has committed, when its turn is over.
        options.executor = [](const std::function<void()>& function) { function(); };
        auto store = open(options);
        subscription_ = store->subscribe([this, asleep = store.get()](const ZAVStoreCommit&) {
            ZAVError error;
            if (!std::exchange(wasSuspended_, true)) {
                EXPECT_TRUE(asleep->suspend(std::chrono::steady_clock::now() + std::chrono::seconds(10),
                                            Sleeping::wait, &error))
                    << error.description();
            }
        });
        return store;
    }

    [[nodiscard]] bool wasSuspended() const { return wasSuspended_; }

private:
    bool wasSuspended_ = false;
    ZAVStoreSubscription subscription_;
};

TEST_F(FilesOfSuspendedStore, AreRemovedWithTheNextCommit) {
    const auto row = downloadPicture(1, "picture");
    const auto kept = downloadPicture(2, "another");
    closeAda();
    const auto store = openToFallAsleepAfterACommit();
    EXPECT_EQ(store->deleteEvents(std::vector{row}), 1U) << "its commit had begun";
    ASSERT_TRUE(wasSuspended());
    EXPECT_EQ(contentOf(fileOf(1)), "picture") << "nobody could ask whose it is";
    ZAVError error;
    ASSERT_TRUE(store->resume(&error)) << error.description();
    EXPECT_TRUE(store->write([](const ZAVRepositories& repositories) {
        addStream(repositories, 9);
        return true;
    }));
    EXPECT_EQ(files(), std::vector<std::string>{fileOf(2)});
    EXPECT_EQ(store->deleteEvents(std::vector{kept}), 1U);
    EXPECT_EQ(files(), std::vector<std::string>());
}

TEST_F(FilesOfSuspendedStore, StayWhenAnotherPartHasComeToNameThem) {
    const auto row = downloadPicture(1, "picture");
    downloadPicture(2, "another");
    closeAda();
    const auto store = openToFallAsleepAfterACommit();
    const std::string path = rows("SELECT file_path FROM event_content_parts").front();
    EXPECT_EQ(store->deleteEvents(std::vector{row}), 1U);
    ASSERT_TRUE(wasSuspended());
    execute("UPDATE event_content_parts SET file_path = '" + path + "'");
    ZAVError error;
    ASSERT_TRUE(store->resume(&error)) << error.description();
    EXPECT_TRUE(store->write([](const ZAVRepositories& repositories) {
        addStream(repositories, 9);
        return true;
    }));
    EXPECT_EQ(contentOf(fileOf(1)), "picture") << "it is asked anew";
}

TEST_F(FilesOfSuspendedStore, AreRemovedLaterWhenTheLockIsWaitedForInVain) {
    const auto row = downloadPicture(1, "picture");
    closeStore();
    const auto other = openHandle(path());
    std::latch isDeleting(1);
    Outcomes outcomes;
    EXPECT_TRUE(ada().writeAsync(
        [&](const ZAVRepositories&) {
            EXPECT_EQ(ada().deleteEvents(std::vector{row}), 1U);
            isDeleting.count_down();
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            return true;
        },
        outcomes.completion()));
    isDeleting.wait();
    auto transaction = ZAVTransaction::begin(*other);  // which waits for the commit
    ASSERT_TRUE(transaction);
    EXPECT_TRUE(ada().suspend(std::chrono::steady_clock::now() + std::chrono::seconds(10)));
    EXPECT_EQ(outcomes.only(loop()).state, ZAVWorkOutcome::State::done);
    EXPECT_EQ(contentOf(fileOf(1)), "picture");
    EXPECT_TRUE(transaction->commit());
    resumeAda();
    EXPECT_TRUE(ada().write([](const ZAVRepositories& repositories) {
        addStream(repositories, 9);
        return true;
    }));
    EXPECT_EQ(files(), std::vector<std::string>());
}

}  // namespace
}  // namespace zav::test
