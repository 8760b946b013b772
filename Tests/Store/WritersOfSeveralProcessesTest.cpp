#include <ZAVEventRepository/ZAVEventStore.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "Support/DatabaseHandles.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestEffort.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using WritersClock = std::chrono::steady_clock;

constexpr auto longestWaitAllowed = std::chrono::milliseconds(500);

constexpr auto durationOfAWrite = std::chrono::milliseconds(5);

/// How often others may write while one waits: as often as they can in the longest wait that is allowed.
/// Unlike the wait itself, this does not grow where a busy machine lets all of them wait.
constexpr std::int64_t oftenestOvertaken = longestWaitAllowed / durationOfAWrite;

/// What each of the processes tells of itself, in memory that they share.
struct Tally {
    std::atomic<std::int64_t> writes{0};
    std::atomic<std::int64_t> longestWait{0};  ///< in microseconds, for the lock
    std::atomic<std::int64_t> waited{0};       ///< of all writes together
    std::atomic<std::int64_t> overtaken{0};    ///< by how many writes of others in one wait, at most
    std::atomic<bool> hasFailed{false};
};

class SharedTallies {
public:
    explicit SharedTallies(std::size_t count) : size_(count * sizeof(Tally)) {
        memory_ = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory_ == MAP_FAILED) {
            throw std::bad_alloc();
        }
        for (std::size_t number = 0; number < count; ++number) {
            new (&at(number)) Tally();
        }
    }
    ~SharedTallies() { ::munmap(memory_, size_); }
    /// How often all have written.
    [[nodiscard]] std::int64_t writes() const {
        std::int64_t writes = 0;
        for (std::size_t number = 0; number < size_ / sizeof(Tally); ++number) {
            writes += at(number).writes;
        }
        return writes;
    }

    SharedTallies(const SharedTallies&) = delete;
    SharedTallies& operator=(const SharedTallies&) = delete;

    [[nodiscard]] Tally& at(std::size_t number) const { return static_cast<Tally*>(memory_)[number]; }

private:
    std::size_t size_;
    void* memory_;
};

/// Writes transactions of five milliseconds one after the other.
[[noreturn]] void writeWithoutPause(const std::string& path, WritersClock::time_point end,
                                    const SharedTallies& tallies, Tally& tally) {
    ZAVEventStoreOptions options;
    options.database.busyTimeout = std::chrono::seconds(60);
    const auto store = ZAVEventStore::open(path, options);
    int number = 0;
    while (store != nullptr && WritersClock::now() < end) {
        const auto asked = WritersClock::now();
        const std::int64_t writesBefore = tallies.writes();
        const bool isStored = store->write([&](const ZAVRepositories& repositories) {
            const auto begun = WritersClock::now();
            const auto wait = std::chrono::duration_cast<std::chrono::microseconds>(begun - asked).count();
            tally.waited += wait;
            tally.overtaken = std::max<std::int64_t>(tally.overtaken, tallies.writes() - writesBefore);
            tally.longestWait = std::max<std::int64_t>(tally.longestWait, wait);
            const bool isDone = repositories.streams.findOrCreateStreamWithUUID(ZAVUUID::random()) !=
                                ZAVDatabaseIdentifierNotSet;
            while (WritersClock::now() < begun + durationOfAWrite) {
                ++number;  // busy, as one who stores is
            }
            return isDone;
        });
        tally.hasFailed = tally.hasFailed || !isStored;
        ++tally.writes;
    }
    tally.hasFailed = tally.hasFailed || store == nullptr;
    ::_exit(number < 0 ? 1 : 0);
}

void letWrite(std::size_t processes, std::chrono::seconds duration) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("chat.db");
    ASSERT_NE(ZAVEventStore::open(path), nullptr);
    const SharedTallies tallies(processes);
    const auto end = WritersClock::now() + duration;
    std::vector<pid_t> ids;
    for (std::size_t number = 0; number < processes; ++number) {
        ids.push_back(::fork());
        if (ids.back() == 0) {
            writeWithoutPause(path, end, tallies, tallies.at(number));
        }
    }
    std::string report;
    std::int64_t writes = 0;
    for (std::size_t number = 0; number < processes; ++number) {
        int status = 0;
        ASSERT_EQ(::waitpid(ids[number], &status, 0), ids[number]);
        const Tally& tally = tallies.at(number);
        EXPECT_TRUE(WIFEXITED(status) && !tally.hasFailed);
        EXPECT_LT(tally.overtaken, oftenestOvertaken);
        if (runsAtLength() && processes == 2) {
            EXPECT_LT(std::chrono::microseconds(tally.longestWait), longestWaitAllowed);
        }
        EXPECT_GT(tally.writes, 0);
        writes += tally.writes;
        report += " " + std::to_string(tally.writes) + " writes, longest wait " +
                  std::to_string(tally.longestWait / 1000) + " ms, mean " +
                  std::to_string(tally.waited / std::max<std::int64_t>(tally.writes, 1)) + " us, overtaken " +
                  std::to_string(tally.overtaken) + " times;";
    }
    EXPECT_EQ(scalar(*openHandle(path), "SELECT COUNT(*) FROM streams"), std::to_string(writes));
    reportSweep(std::to_string(processes) + " processes wrote without pause for " +
                std::to_string(duration.count()) + " s:" + report);
}

TEST(TwoProcesses, ThatWriteWithoutPauseDoNotKeepEachOtherWaiting) {
    letWrite(2, std::chrono::seconds(rounds(3, 60)));
}

TEST(FourProcesses, ThatWriteWithoutPauseDoNotKeepEachOtherWaiting) {
    letWrite(4, std::chrono::seconds(rounds(2, 20)));
}

TEST(AProcessThatIsStoppedWhileItWaits, KeepsNobodyFromWriting) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("chat.db");
    ASSERT_NE(ZAVEventStore::open(path), nullptr);
    std::array<int, 2> order{};
    ASSERT_EQ(::pipe(order.data()), 0);
    const auto addOne = [](const ZAVRepositories& repositories) {
        return repositories.streams.findOrCreateStreamWithUUID(ZAVUUID::random()) !=
               ZAVDatabaseIdentifierNotSet;
    };
    const pid_t waiting = ::fork();
    if (waiting == 0) {
        char letter = 0;
        ZAVEventStoreOptions options;
        options.database.busyTimeout = std::chrono::seconds(60);
        const bool isTold = ::read(order[0], &letter, 1) == 1;
        const auto store = ZAVEventStore::open(path, options);
        ::_exit(isTold && store != nullptr && store->write(addOne) ? 0 : 1);
    }
    const auto store = ZAVEventStore::open(path);
    ASSERT_NE(store, nullptr);
    EXPECT_TRUE(store->write([&](const ZAVRepositories& repositories) {
        EXPECT_EQ(::write(order[1], "w", 1), 1);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        ::kill(waiting, SIGSTOP);
        ::waitpid(waiting, nullptr, WUNTRACED);
        return addOne(repositories);
    }));
    ZAVError error;
    for (int count = 0; count < 5; ++count) {
        EXPECT_TRUE(store->write(addOne, &error)) << error.description();
    }
    ::kill(waiting, SIGCONT);
    int status = -1;
    EXPECT_EQ(::waitpid(waiting, &status, 0), waiting);
    EXPECT_EQ(status, 0) << "and it writes when it goes on";
    EXPECT_TRUE(store->read([](const ZAVRepositories& repositories) {
        EXPECT_EQ(scalar(repositories.events.database(), "SELECT COUNT(*) FROM streams"), "7");
    }));
    ::close(order[0]);
    ::close(order[1]);
}

}  // namespace
}  // namespace zav::test
