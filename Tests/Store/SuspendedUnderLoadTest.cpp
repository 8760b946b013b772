#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/ZAVEventStore.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Support/DatabaseHandles.h"
#include "Support/FileLocks.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestEffort.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using namespace std::chrono_literals;

constexpr int suspendedStore = 16;  // of ZAVEventStore

/// What a process under load exits with when something else failed than it should.
[[noreturn]] void failInProcess(const std::string& what) {
    std::fprintf(stderr, "the process under load: %s\n", what.c_str());
    ::_exit(3);
}

/// A main loop that runs what it is given on a thread of its own, as long as the process lives.
class LoopOfProcess {
public:
    LoopOfProcess() {
        std::thread([this] { run(); }).detach();
    }

    void post(std::function<void()> call) {
        const std::lock_guard lock(mutex_);
        calls_.push_back(std::move(call));
        posted_.notify_one();
    }

private:
    void run() {
        for (;;) {
            std::unique_lock lock(mutex_);
            posted_.wait(lock, [this] { return !calls_.empty(); });
            const std::function<void()> call = std::move(calls_.front());
            calls_.pop_front();
            lock.unlock();
            call();
        }
    }

    std::mutex mutex_;
    std::condition_variable posted_;
    std::deque<std::function<void()>> calls_;
};

/// An application with one store, on which threads read, write, move content and give works to the store
/// without pause. It suspends the store when it is told to, by a letter, and resumes it.
class ApplicationUnderLoad {
public:
    ApplicationUnderLoad(std::string path, std::string root)
        : path_(std::move(path)), root_(std::move(root)) {
        ZAVEventStoreOptions options;
        options.userID = "ada";
        options.appID = uuidNumber(99);
        options.contentDirectory = ZAVURL::fileURLWithDirectoryPath(root_);
        options.executor = [this](std::function<void()> call) { loop_.post(std::move(call)); };
        options.database.synchronous = FMDatabaseOptions::Synchronous::normal;
        options.lookForCommitsOfOthersEvery = std::chrono::milliseconds(7);
        ZAVError error;
        store_ = ZAVEventStore::open(path_, options, &error);
        if (store_ == nullptr) {
            failInProcess(error.description());
        }
    }

    /// Answers each letter with one: "y" when it is done, "n" when it is not.
    [[noreturn]] void live(int orders, int answers) {
        ddLogLevel = 0;  // each call that is interrupted is a line
        const auto subscription = store_->subscribe([](const ZAVStoreCommit&) {});
        const std::vector<std::function<void()>> lives{[this] { read(); },       [this] { read(); },
                                                       [this] { write(); },      [this] { moveContent(); },
                                                       [this] { readBeside(); }, [this] { writeBeside(); }};
        for (const auto& life : lives) {
            std::thread([life] {
                for (;;) {
                    life();
                }
            }).detach();
        }
        for (char order = 0; ::read(orders, &order, 1) == 1;) {
            const char answer = obey(order) ? 'y' : 'n';
            if (::write(answers, &answer, 1) != 1) {
                break;
            }
        }
        ::_exit(0);  // the test has gone
    }

private:
    bool obey(char order) {
        using Works = ZAVEventStore::SuspendedWorks;
        ZAVError error;
        if (order == 'r') {
            if (!store_->resume(&error)) {
                failInProcess(error.description());
            }
            return true;
        }
        const auto deadline = std::chrono::milliseconds(order == 's' ? 20 : 10000);
        const bool isAsleep = store_->suspend(std::chrono::steady_clock::now() + deadline,
                                              order == 'f' ? Works::refused : Works::wait, &error);
        if (!isAsleep && error.code() != ZAVEventStoreErrorWorkRuns) {
            failInProcess(error.description());
        }
        return isAsleep;
    }

    /// Whether it succeeded: if not, the store must have been suspended.
    static bool expectDone(bool isDone, const ZAVError& error, const char* what) {
        if (!isDone && (error.code() != suspendedStore || error.domain() != "ZAVEventStore")) {
            failInProcess(std::string(what) + ": " + error.description());
        }
        if (!isDone) {
            std::this_thread::sleep_for(200us);
        }
        return isDone;
    }

    void read() {
        ZAVError error;
        expectDone(store_->read(
                       [](const ZAVRepositories& repositories) {
                           auto rows = repositories.events.database().executeQuery(
                               "SELECT COUNT(*), SUM(LENGTH(client_id)) FROM events");
                           if (rows && rows->next() && rows->longLongIntForColumnIndex(0) % 5 != 0) {
                               failInProcess("half a batch was seen");
                           }
                       },
                       &error),
                   error, "read");
    }

    static bool storeBatch(const ZAVRepositories& repositories) {
        const auto stream = repositories.streams.findOrCreateStreamWithUUID(uuidNumber(1));
        std::vector<std::shared_ptr<ZAVEvent>> batch;
        for (int count = 0; count < 5 && stream != ZAVDatabaseIdentifierNotSet; ++count) {
            auto event = makeEvent(EventType_MESSAGE, uuidNumber(1), count);
            event->set_client_id(ZAVDataFromUUID(ZAVUUID::random()));
            batch.push_back(std::move(event));
        }
        bool areStored = !batch.empty();
        for (const auto& event : batch) {
            areStored = areStored && repositories.events.persistEvents({event});
        }
        return areStored;
    }

    void write() {
        ZAVError error;
        expectDone(store_->write(storeBatch, &error), error, "write");
    }

    template <class Give>
    void giveBeside(const Give& give) {
        const auto over = std::make_shared<std::promise<ZAVWorkOutcome>>();
        auto outcome = over->get_future();
        ZAVError error;
        const bool isGiven =
            give([over](const ZAVWorkOutcome& told) { over->set_value(told); }, &error).has_value();
        if (expectDone(isGiven, error, "giving a work")) {
            const ZAVWorkOutcome told = outcome.get();
            expectDone(told.state == ZAVWorkOutcome::State::done, told.error, "a work beside");
        }
    }

    void readBeside() {
        giveBeside([&](ZAVWorkCompletion completion, ZAVError* error) {
            return store_->readAsync(
                [](const ZAVRepositories& repositories) {
                    for (ZAVDatabaseIdentifier row = 1; row <= 50; ++row) {
                        static_cast<void>(repositories.events.eventForDatabaseIdentifier(row));
                    }
                },
                std::move(completion), {}, error);
        });
    }

    void writeBeside() {
        giveBeside([&](ZAVWorkCompletion completion, ZAVError* error) {
            return store_->writeAsync(storeBatch, std::move(completion), {}, error);
        });
    }

    /// A picture comes, is downloaded, looked at, and goes with others.
    void moveContent() {
        ZAVError error;
        const auto event = makeEvent(EventType_MESSAGE, uuidNumber(2), 0);
        event->set_client_id(ZAVDataFromUUID(ZAVUUID::random()));
        event->set_creator_id("bruno");
        event->set_seq(++pictures_);
        const auto part = std::make_shared<ZAVEventContent>();
        part->set_external_url("https://files.example/" + std::to_string(pictures_));
        event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});
        if (!expectDone(
                store_->write(
                    [&](const ZAVRepositories& repositories) { return storeBatchBut(repositories, event); },
                    &error),
                error, "receive")) {
            return;
        }
        const auto row = event->databaseIdentifier();
        ZAVContentCache& content = store_->content();
        auto writer = content.beginDownload(row, 0, &error);
        if (!expectDone(writer.has_value(), error, "begin a download")) {
            return;
        }
        const std::array<std::uint8_t, 3> bytes{1, 2, 3};
        if (!writer->append(bytes, &error)) {
            failInProcess("append: " + error.description());
        }
        while (!expectDone(writer->finish(&error), error, "finish a download")) {
        }
        expectDone(content.open(row, 0, &error).has_value(), error, "open");
        if (pictures_ % 8 == 0) {
            ZAVPurgePolicy policy;
            policy.bytesToFree = 6;
            expectDone(content.purge(policy, {}, &error).has_value(), error, "purge");
        }
    }

    /// Five events, one of them this.
    bool storeBatchBut(const ZAVRepositories& repositories, const std::shared_ptr<ZAVEvent>& event) {
        const auto answers = store_->receive(uuidNumber(2), std::vector{event});
        bool areStored = answers.has_value();
        for (int count = 0; count < 4; ++count) {
            const auto other = makeEvent(EventType_MESSAGE, uuidNumber(2), count);
            other->set_client_id(ZAVDataFromUUID(ZAVUUID::random()));
            areStored = areStored && repositories.events.persistEvents({other});
        }
        return areStored;
    }

    const std::string path_;
    const std::string root_;
    LoopOfProcess loop_;
    std::unique_ptr<ZAVEventStore> store_;
    ZAVSequence pictures_ = 0;
};

/// That application, in a process of its own. It is killed at the end.
class LoadedProcess {
public:
    explicit LoadedProcess(const TemporaryDirectory& directory) {
        std::array<int, 2> orders{};
        std::array<int, 2> answers{};
        if (::pipe(orders.data()) != 0 || ::pipe(answers.data()) != 0) {
            throw std::runtime_error("no pipe");
        }
        id_ = ::fork();
        if (id_ == 0) {
            ::close(orders[1]);
            ::close(answers[0]);
            ApplicationUnderLoad(directory.file("chat.db"), directory.file("content"))
                .live(orders[0], answers[1]);
        }
        ::close(orders[0]);
        ::close(answers[1]);
        orders_ = orders[1];
        answers_ = answers[0];
    }
    ~LoadedProcess() {
        ::kill(id_, SIGKILL);
        ::waitpid(id_, nullptr, 0);
        ::close(orders_);
        ::close(answers_);
    }
    LoadedProcess(const LoadedProcess&) = delete;
    LoadedProcess& operator=(const LoadedProcess&) = delete;

    /// Whether it did what it was told; none when it has ended.
    [[nodiscard]] std::optional<bool> tell(char order) const {
        char answer = 0;
        if (::write(orders_, &order, 1) != 1 || ::read(answers_, &answer, 1) != 1) {
            return std::nullopt;
        }
        return answer == 'y';
    }

    void signal(int number) const { ::kill(id_, number); }

    void awaitStop() const {
        int status = 0;
        ASSERT_EQ(::waitpid(id_, &status, WUNTRACED), id_);
        ASSERT_TRUE(WIFSTOPPED(status));
    }

    /// What it has open whose name begins so.
    [[nodiscard]] std::vector<std::string> openFiles(const std::string& prefix) const {
        namespace fs = std::filesystem;
        std::vector<std::string> files;
        for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(id_) + "/fd")) {
            std::error_code failure;
            const std::string name = fs::read_symlink(entry.path(), failure).string();
            if (!failure && name.starts_with(prefix)) {
                files.push_back(name);
            }
        }
        return files;
    }

private:
    pid_t id_ = -1;
    int orders_ = -1;
    int answers_ = -1;
};

/// Takes the whole file for one connection at the first attempt, without waiting, and lets it go. Answers
/// what the engine says.
int takeExclusively(const std::string& path) {
    sqlite3* connection = nullptr;
    int status = sqlite3_open_v2(path.c_str(), &connection, SQLITE_OPEN_READWRITE, nullptr);
    sqlite3_busy_timeout(connection, 0);
    for (const char* const statement :
         {"PRAGMA locking_mode=EXCLUSIVE", "BEGIN EXCLUSIVE", "SELECT COUNT(*) FROM events", "ROLLBACK"}) {
        if (status == SQLITE_OK) {
            status = sqlite3_exec(connection, statement, nullptr, nullptr, nullptr);
        }
    }
    sqlite3_close(connection);
    return status;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

TEST(AStoppedProcess, StillHoldsTheLocksOfAStoreThatWasNotSuspended) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("chat.db");
    const LoadedProcess process(directory);
    ASSERT_EQ(process.tell('r'), true) << "which is not suspended";
    std::this_thread::sleep_for(50ms);
    process.signal(SIGSTOP);
    process.awaitStop();
    EXPECT_FALSE(locksOn(path).empty());
    EXPECT_EQ(takeExclusively(path), SQLITE_BUSY);
    process.signal(SIGCONT);
    ASSERT_EQ(process.tell('w'), true);
    process.signal(SIGSTOP);
    process.awaitStop();
    EXPECT_EQ(joined(locksOn(path)), "");
    EXPECT_EQ(takeExclusively(path), SQLITE_OK);
    process.signal(SIGCONT);
}

TEST(ASuspendedStore, HoldsNoLockWheneverItIsSuspendedUnderLoad) {
    const int suspensions = rounds(50, 1000);
    const TemporaryDirectory directory;
    const std::string path = directory.file("chat.db");
    const LoadedProcess process(directory);
    std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same moments each time, as far as they can be
    int late = 0;
    std::chrono::steady_clock::duration longest{0};
    for (int suspension = 0; suspension < suspensions; ++suspension) {
        SCOPED_TRACE("suspension " + std::to_string(suspension));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
        constexpr std::array<char, 3> ways{'s', 'w', 'f'};
        const auto start = std::chrono::steady_clock::now();
        auto isAsleep = process.tell(ways.at(random() % ways.size()));
        if (isAsleep == false) {
            ++late;
            isAsleep = process.tell('w');
        }
        longest = std::max(longest, std::chrono::steady_clock::now() - start);
        ASSERT_EQ(isAsleep, true);
        ASSERT_EQ(joined(locksOn(path)), "");
        ASSERT_EQ(joined(process.openFiles(path)), "");
        ASSERT_EQ(takeExclusively(path), SQLITE_OK);
        ASSERT_EQ(process.tell('r'), true);
    }
    ASSERT_EQ(process.tell('w'), true);
    const auto database = openHandle(path);
    EXPECT_EQ(scalar(*database, "PRAGMA integrity_check"), "ok");
    EXPECT_EQ(std::stoi(scalar(*database, "SELECT COUNT(*) FROM events")) % 5, 0) << "whole batches";
    if (!HasFailure()) {
        reportSweep(
            "suspended a store under load " + std::to_string(suspensions) + " times, " +
            std::to_string(late) + " of them at the second attempt: no lock was left; the longest took " +
            std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(longest).count()) + " ms, " +
            scalar(*database, "SELECT COUNT(*) FROM events") + " events were stored meanwhile");
    }
}

}  // namespace
}  // namespace zav::test
