#include <ZAVEventRepository/ZAVEventStore.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Support/DatabaseHandles.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestEffort.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

/// A main loop on a thread of its own.
class LoopThread {
public:
    LoopThread() : thread_([this] { run(); }) {}
    ~LoopThread() {
        {
            const std::lock_guard lock(mutex_);
            isOver_ = true;
        }
        changed_.notify_one();
        thread_.join();
    }
    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

    [[nodiscard]] ZAVExecutor executor() {
        return [this](std::function<void()> call) {
            {
                const std::lock_guard lock(mutex_);
                calls_.push_back(std::move(call));
            }
            changed_.notify_one();
        };
    }

private:
    void run() {
        std::unique_lock lock(mutex_);
        for (;;) {
            changed_.wait(lock, [this] { return !calls_.empty() || isOver_; });
            if (calls_.empty()) {
                return;
            }
            const std::function<void()> call = std::move(calls_.front());
            calls_.pop_front();
            lock.unlock();
            call();
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> calls_;
    bool isOver_ = false;
    std::thread thread_;
};

constexpr int eventsOfABatch = 5;

/// Stream 1 gets batches, stream 2 what the user sends.
const ZAVUUID& batches() {
    static const ZAVUUID uuid = uuidNumber(1);
    return uuid;
}
const ZAVUUID& ownRoom() {
    static const ZAVUUID uuid = uuidNumber(2);
    return uuid;
}

std::shared_ptr<ZAVEvent> event(const ZAVUUID& stream) {
    auto made = std::make_shared<ZAVEvent>();
    made->set_type(EventType_MESSAGE);
    made->set_stream_id(ZAVDataFromUUID(stream));
    made->set_client_id(ZAVDataFromUUID(ZAVUUID::random()));
    made->set_content(std::vector<std::shared_ptr<ZAVTContent>>{makeTextPart("hello")});
    return made;
}

/// Eight threads that use one store, each in its way.
class ClientsDay {
public:
    explicit ClientsDay(int operations) : operations_(operations), store_(open()) {}

    void run() {
        const auto subscription = store_->subscribe([this](const ZAVStoreCommit& commit) {
            told_ += static_cast<std::int64_t>(commit.changes.size());
        });
        const std::vector<std::function<void(int)>> lives{
            [this](int) { receiveBatch(); },     [this](int turn) { receiveBeside(turn); },
            [this](int turn) { send(turn); },    [this](int turn) { postWhatWaits(turn); },
            [this](int) { readBatches(); },      [this](int turn) { readBeside(turn); },
            [this](int turn) { readOwn(turn); }, [this](int turn) { tombstone(turn); }};
        std::vector<std::thread> threads;
        for (const auto& live : lives) {
            threads.emplace_back([this, live] {
                for (int turn = 0; turn < operations_ && !testing::Test::HasFailure(); ++turn) {
                    live(turn);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        ZAVError error;
        const auto settled = store_->content().repair(std::chrono::seconds(0), &error);
        EXPECT_TRUE(settled && settled->files.empty() && settled->partsWithoutFile.empty())
            << "files and rows agree; " << error.description();
        EXPECT_TRUE(store_->close(ZAVEventStore::QueuedWorks::run));
        store_.reset();
        loop_.reset();  // after what the store has told
    }

    void check() const {
        const auto database = openHandle(path());
        EXPECT_EQ(scalar(*database, "PRAGMA integrity_check"), "ok");
        EXPECT_EQ(scalar(*database,
                         "SELECT COUNT(*) FROM events WHERE stream_database_identifier ="
                         " (SELECT database_identifier FROM streams WHERE stream_id ="
                         " X'11111111111111111111111111111101')"),
                  std::to_string(seq_.load()))
            << "every event of every batch that was received is there";
        EXPECT_EQ(scalar(*database, "SELECT COUNT(*) FROM events WHERE creator_id = 'ada'"),
                  std::to_string(sent_.load()))
            << "and every event that was sent";
        EXPECT_EQ(completions_.load(), asked_.load()) << "each completion was called once";
    }

private:
    [[nodiscard]] std::string path() const { return directory_.file("day.db"); }

    [[nodiscard]] std::unique_ptr<ZAVEventStore> open() {
        ZAVEventStoreOptions options;
        options.userID = "ada";
        options.appID = uuidNumber(99);
        options.contentDirectory = ZAVURL::fileURLWithDirectoryPath(directory_.file("content"));
        options.executor = loop_->executor();
        options.database.synchronous = FMDatabaseOptions::Synchronous::normal;
        options.lookForCommitsOfOthersEvery = std::chrono::milliseconds(20);
        ZAVError error;
        auto store = ZAVEventStore::open(path(), options, &error);
        EXPECT_NE(store, nullptr) << error.description();
        return store;
    }

    std::vector<std::shared_ptr<ZAVEvent>> nextBatch() {
        std::vector<std::shared_ptr<ZAVEvent>> batch;
        const ZAVSequence first = seq_.fetch_add(eventsOfABatch) + 1;
        for (ZAVSequence seq = first; seq < first + eventsOfABatch; ++seq) {
            batch.push_back(event(batches()));
            batch.back()->set_creator_id("bruno");
            batch.back()->set_seq(seq);
        }
        return batch;
    }

    void receiveBatch() {
        ZAVError error;
        EXPECT_TRUE(store_->receive(batches(), nextBatch(), {}, &error)) << error.description();
    }

    /// Some of it is cancelled, and given again then.
    void receiveBeside(int turn) {
        const auto batch = nextBatch();
        const auto receive = [this, batch](const ZAVRepositories&) {
            return store_->receive(batches(), batch).has_value();
        };
        ++asked_;
        const auto work = store_->writeAsync(receive, [this](const ZAVWorkOutcome&) { ++completions_; });
        ASSERT_TRUE(work);
        if (turn % 4 == 0 && work->cancel()) {
            ZAVError error;
            EXPECT_TRUE(store_->receive(batches(), batch, {}, &error)) << error.description();
        }
    }

    void send(int) {
        ZAVError error;
        EXPECT_TRUE(store_->send(event(ownRoom()), &error)) << error.description();
        ++sent_;
    }

    /// What waits gets its sequence by its answer or by its echo.
    void postWhatWaits(int turn) {
        ZAVError error;
        const auto waiting = store_->outbox({}, &error);
        ASSERT_TRUE(waiting) << error.description();
        for (const auto& event : *waiting) {
            post(event, turn % 2 == 0);
        }
    }

    void post(const std::shared_ptr<ZAVEvent>& event, bool byAnswer) {
        ZAVError error;
        const ZAVSequence seq = ++ownSeq_;
        ZAVReceivedEvent answer;
        if (byAnswer) {
            answer =
                store_->recordPosted(ownRoom(), *ZAVUUIDFromData(event->client_id()), seq, "ada", 1, &error)
                    .value_or(answer);
        } else {
            event->set_seq(seq);
            const auto answers = store_->receive(ownRoom(), std::vector{event}, {}, &error);
            answer = answers ? answers->front() : answer;
        }
        EXPECT_EQ(answer.outcome, ZAVReceivedEvent::Outcome::own) << error.description();
    }

    /// Looks at the newest batches: what was whole once is not looked at for ever.
    static void expectWholeBatches(const ZAVRepositories& repositories) {
        EXPECT_EQ(
            scalar(
                repositories.events.database(),
                "SELECT COUNT(*) FROM (SELECT COUNT(*) AS events FROM (SELECT seq FROM events"
                " WHERE stream_database_identifier = (SELECT database_identifier FROM streams WHERE stream_id ="
                " X'11111111111111111111111111111101') ORDER BY seq DESC LIMIT 200)"
                " GROUP BY (seq - 1) / 5) WHERE events <> 5"),
            "0")
            << "a reader has seen half a batch";
    }

    void readBatches() {
        ZAVError error;
        EXPECT_TRUE(store_->read(expectWholeBatches, &error)) << error.description();
    }

    void readBeside(int turn) {
        ++asked_;
        ZAVWorkOptions options;
        if (turn % 10 == 0) {
            options.deadline = std::chrono::steady_clock::now() + std::chrono::microseconds(turn % 500);
        }
        ZAVError error;
        EXPECT_TRUE(store_->readAsync(
            expectWholeBatches, [this](const ZAVWorkOutcome&) { ++completions_; }, options, &error))
            << error.description();
    }

    void readOwn(int turn) {
        ZAVError error;
        if (turn % 50 == 0) {
            EXPECT_TRUE(store_->content().bytesOnDisk(&error)) << error.description();
        }
        if (turn % 500 == 499) {
            EXPECT_TRUE(store_->content().purge({}, {}, &error)) << error.description();
        }
        EXPECT_TRUE(store_->read(
            [&](const ZAVEventRepository& events) {
                ZAVError failure;
                static_cast<void>(events.eventForDatabaseIdentifier(turn + 1, &failure));
                EXPECT_FALSE(failure) << failure.description();
            },
            &error))
            << error.description();
    }

    /// A picture comes, is downloaded and looked at, and goes, by hand or because there are many.
    void lookAtPicture(int turn) {
        const ZAVUUID gallery = uuidNumber(3);
        const auto picture = event(gallery);
        picture->set_creator_id("carla");
        picture->set_seq(turn + 1);
        const auto part = std::make_shared<ZAVEventContent>();
        part->set_external_url("https://files.example/" + std::to_string(turn));
        picture->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});
        ZAVError error;
        ASSERT_TRUE(store_->receive(gallery, std::vector{picture}, {}, &error)) << error.description();
        const auto row = picture->databaseIdentifier();
        ZAVContentCache& content = store_->content();
        auto writer = content.beginDownload(row, 0, &error);
        const std::array<std::uint8_t, 3> bytes{1, 2, 3};
        ASSERT_TRUE(writer && writer->append(bytes, &error) && writer->finish(&error)) << error.description();
        const auto file = content.open(row, 0, &error);
        EXPECT_TRUE(file ? file->readAll(&error).has_value() : error.code() == ZAVEventStoreErrorNoContent)
            << "it is there unless it was purged meanwhile; " << error.description();
        if (turn % 3 == 0) {
            EXPECT_EQ(store_->deleteEvents(std::vector{row}, &error), 1U) << error.description();
        }
    }

    void tombstone(int turn) {
        if (turn % 20 == 0) {
            lookAtPicture(turn);
        }
        ZAVError error;
        EXPECT_TRUE(store_->write(
            [turn](const ZAVEventRepository& events) {
                return events.persistTombstoneEventWithTargetSeq(turn + 1, 1);
            },
            &error))
            << error.description();
    }

    const int operations_;
    TemporaryDirectory directory_;
    std::atomic<ZAVSequence> seq_{0};
    std::atomic<int> sent_{0};
    std::atomic<std::int64_t> told_{0};
    std::atomic<int> asked_{0};
    std::atomic<int> completions_{0};
    ZAVSequence ownSeq_ = 0;
    std::unique_ptr<LoopThread> loop_ = std::make_unique<LoopThread>();
    std::unique_ptr<ZAVEventStore> store_;
};

TEST(AClientsDay, OfEightThreadsLosesNothingAndMeetsNoLock) {
    ClientsDay day(rounds(5000, 125000));
    day.run();
    day.check();
}

}  // namespace
}  // namespace zav::test
