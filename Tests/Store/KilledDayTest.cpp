#include <ZAVEventRepository/ZAVEventStore.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Support/DatabaseHandles.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestEffort.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr int threadsOfADay = 4;

/// The identifier of the event that a thread made as so many.
ZAVUUID identifierOf(int thread, int number) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "22222222-2222-2222-%04d-%012d", thread, number);
    return *ZAVUUID::fromString(text.data());
}

std::string contentOf(int thread, int number) {
    return "content " + std::to_string(number) + " of thread " + std::to_string(thread);
}

std::span<const std::uint8_t> bytesOf(const std::string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// What becomes of one event of one thread, as far as it was said.
enum class Said { nothing, sending, sent, received, complete, deleting, deleted };

/// The client whose day it is, in a directory.
class Client {
public:
    explicit Client(const TemporaryDirectory& directory) : directory_(directory) {}

    [[nodiscard]] std::string path() const { return directory_.file("chat.db"); }
    [[nodiscard]] std::string root() const { return directory_.file("content"); }

    [[nodiscard]] std::unique_ptr<ZAVEventStore> open() const {
        ZAVEventStoreOptions options;
        options.userID = "ada";
        options.appID = uuidNumber(99);
        options.contentDirectory = ZAVURL::fileURLWithDirectoryPath(root());
        ZAVError error;
        auto store = ZAVEventStore::open(path(), options, &error);
        EXPECT_TRUE(store) << error.description();
        return store;
    }

    [[nodiscard]] std::string fileOf(int thread, int number) const {
        return root() + "/" + uuidNumber(99).UUIDString() + "/ada/" +
               identifierOf(thread, number).UUIDString() + "/part-0";
    }

private:
    const TemporaryDirectory& directory_;
};

/// One thread's part in a day: it says what it is about to do and what is done.
class Thread {
public:
    Thread(ZAVEventStore& store, int number, int first, int output)
        : store_(store), thread_(number), next_(first), output_(output) {}

    [[noreturn]] void work() {
        for (;; ++next_) {
            if (next_ % 3 == 0) {
                send();
            } else {
                download();
            }
            if (next_ % 7 == 6 && rows_.count(next_ - 4) != 0) {
                remove(next_ - 4);
            }
            if (thread_ == 0 && next_ % 25 == 24) {
                ZAVPurgePolicy policy;
                policy.bytesToFree = 100;
                expect(store_.content().purge(policy).has_value());
            }
        }
    }

private:
    void say(Said what, int number) const {
        std::array<char, 40> line{};
        const int length =
            std::snprintf(line.data(), line.size(), "%d %d %d\n", thread_, number, static_cast<int>(what));
        expect(::write(output_, line.data(), static_cast<std::size_t>(length)) == length);
    }

    static void expect(bool isSo) {
        if (!isSo) {
            ::_exit(3);  // the parent sees that it was not its kill
        }
    }

    [[nodiscard]] std::shared_ptr<ZAVEvent> event() const {
        auto event = makeEvent(EventType_MESSAGE, uuidNumber(thread_ + 1), 0);
        event->set_client_id(ZAVDataFromUUID(identifierOf(thread_, next_)));
        auto part = std::make_shared<ZAVEventContent>();
        part->set_media_type("image/png");
        event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});
        return event;
    }

    void send() {
        say(Said::sending, next_);
        const auto sent = event();
        sent->contentParts().front()->setFileURL(
            store_.content().put(identifierOf(thread_, next_), 0, bytesOf(contentOf(thread_, next_))));
        expect(store_.send(sent).has_value());
        say(Said::sent, next_);
        rows_[next_] = sent->databaseIdentifier();
    }

    void download() {
        const auto received = event();
        received->set_creator_id("bruno");
        received->set_seq(static_cast<ZAVSequence>(next_ + 1));
        received->contentParts().front()->set_external_url("https://files.example/" + std::to_string(next_));
        expect(store_.receive(uuidNumber(thread_ + 1), std::vector{received}).has_value());
        say(Said::received, next_);
        rows_[next_] = received->databaseIdentifier();
        auto writer = store_.content().beginDownload(rows_[next_], 0);
        expect(writer && writer->append(bytesOf(contentOf(thread_, next_))) && writer->finish());
        say(Said::complete, next_);
    }

    void remove(int number) {
        say(Said::deleting, number);
        expect(store_.deleteEvents(std::vector{rows_[number]}).has_value());
        say(Said::deleted, number);
    }

    ZAVEventStore& store_;
    int thread_;
    int next_;
    int output_;
    std::map<int, ZAVDatabaseIdentifier> rows_;
};

/// What was said in all days so far.
using Sayings = std::map<std::pair<int, int>, Said>;

/// A day in a process of its own, which is killed after a while.
void liveADay(const Client& client, int first, std::chrono::milliseconds until, Sayings& said) {
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    const pid_t process = ::fork();
    ASSERT_GE(process, 0);
    if (process == 0) {
        ::close(pipe[0]);
        const auto store = client.open();
        std::vector<std::thread> threads;
        for (int number = 0; number < threadsOfADay; ++number) {
            threads.emplace_back([&, number] { Thread(*store, number, first, pipe[1]).work(); });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        ::_exit(4);
    }
    ::close(pipe[1]);
    std::string text;
    const auto end = std::chrono::steady_clock::now() + until;
    bool isKilled = false;
    std::array<char, 4096> bytes{};
    for (;;) {
        const auto rest =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd readable{pipe[0], POLLIN, 0};
        if (!isKilled && (rest.count() <= 0 || ::poll(&readable, 1, static_cast<int>(rest.count())) == 0)) {
            ::kill(process, SIGKILL);
            isKilled = true;
            continue;
        }
        const ssize_t count = ::read(pipe[0], bytes.data(), bytes.size());
        if (count <= 0) {
            break;
        }
        text.append(bytes.data(), static_cast<std::size_t>(count));
    }
    ::close(pipe[0]);
    int status = 0;
    ASSERT_EQ(::waitpid(process, &status, 0), process);
    ASSERT_TRUE(WIFSIGNALED(status)) << "an operation failed, and the process ended with "
                                     << (WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    std::istringstream lines(text);
    int thread = 0;
    int number = 0;
    int what = 0;
    while (lines >> thread >> number >> what) {
        said[{thread, number}] = static_cast<Said>(what);
    }
}

/// What a row says of an event and its only part.
struct Row {
    bool isThere = false;
    std::int64_t status = -1;
    bool isPurged = false;
};

Row rowOf(FMDatabase& database, const ZAVUUID& identifier) {
    auto rows = database.executeQuery(
        "SELECT parts.transfer_status, parts.purged FROM events JOIN event_content_parts AS parts"
        " ON parts.event_database_identifier = events.database_identifier WHERE events.client_id = ?",
        identifier);
    EXPECT_TRUE(rows);
    if (!rows || !rows->next()) {
        return {};
    }
    return {true, rows->longLongIntForColumnIndex(0), rows->boolForColumnIndex(1)};
}

void expectWhatWasSaid(const Client& client, const Sayings& said, FMDatabase& database) {
    for (const auto& [event, what] : said) {
        const auto [thread, number] = event;
        SCOPED_TRACE("event " + std::to_string(number) + " of thread " + std::to_string(thread) +
                     ", of which " + std::to_string(static_cast<int>(what)) + " was said last");
        const Row row = rowOf(database, identifierOf(thread, number));
        const std::string file = client.fileOf(thread, number);
        switch (what) {
            case Said::sent:
            case Said::received:
            case Said::complete:
                EXPECT_TRUE(row.isThere) << "what was stored is there";
                break;
            case Said::deleted:
                EXPECT_FALSE(row.isThere) << "what was deleted is gone";
                break;
            default:
                break;  // it may have come to this or to that
        }
        if (what == Said::complete) {
            EXPECT_EQ(row.status, 4) << "what was complete is complete";
        }
        const bool hasFile = row.isThere && (row.status == 0 || row.status == 4) && !row.isPurged;
        EXPECT_TRUE(hasFile ? fs::exists(file) : row.isThere || !fs::exists(file))
            << "the row and the file agree";
        if (hasFile && fs::exists(file)) {
            EXPECT_EQ(bytesOfFile(file), contentOf(thread, number));
        }
    }
}

TEST(AKilledDay, LosesNothingThatWasSaidToBeDone) {
    const int kills = rounds(20, 300);
    constexpr int killsOfOneStore = 10;
    std::unique_ptr<TemporaryDirectory> directory;
    Sayings said;
    std::size_t events = 0;
    std::size_t repaired = 0;
    for (int kill = 0; kill < kills && !HasFailure(); ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill));
        if (kill % killsOfOneStore == 0) {
            events += said.size();
            said.clear();
            directory = std::make_unique<TemporaryDirectory>();
        }
        const Client client(*directory);
        const int first = kill % killsOfOneStore * 100000;
        ASSERT_NO_FATAL_FAILURE(liveADay(client, first, 30ms + 13ms * (kill % 11), said));
        const auto store = client.open();
        ASSERT_TRUE(store);
        ZAVError error;
        const auto settled = store->content().repair(0s, &error);
        ASSERT_TRUE(settled) << error.description();
        EXPECT_TRUE(settled->uploadsWithoutFile.empty())
            << "a file is in its place before its event is stored";
        repaired += settled->files.size() + settled->partsWithoutFile.size();
        const auto left = store->content().findOrphans(0s, &error);
        ASSERT_TRUE(left) << error.description();
        EXPECT_TRUE(left->files.empty() && left->partsWithoutFile.empty()) << "one repair repairs all";
        EXPECT_TRUE(store->read([&](const ZAVRepositories& repositories) {
            FMDatabase& database = repositories.events.database();
            EXPECT_EQ(scalar(database, "PRAGMA integrity_check"), "ok");
            expectWhatWasSaid(client, said, database);
        }));
    }
    events += said.size();
    EXPECT_GT(events, static_cast<std::size_t>(kills)) << "hardly anything was done";
    if (!HasFailure()) {
        reportSweep("killed a day of four threads " + std::to_string(kills) + " times: of " +
                    std::to_string(events) + " events nothing was lost; " + std::to_string(repaired) +
                    " files and rows were repaired");
    }
}

}  // namespace
}  // namespace zav::test
