#include <ZAVEventRepository/ZAVEventStore.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Faults/FaultSweep.h"
#include "Support/DatabaseHandles.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestEffort.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;
using Events = std::vector<std::shared_ptr<ZAVEvent>>;
using Rows = std::vector<std::string>;

const ZAVError errorFromBefore("Caller", 5, "from before");

ZAVEventStoreOptions optionsWith(const FMDatabaseOptions& database) {
    ZAVEventStoreOptions options;
    options.userID = "ada";
    options.appID = uuidNumber(99);
    options.database = database;
    return options;
}

std::shared_ptr<ZAVEvent> message(int number, const std::string& author, ZAVSequence seq) {
    auto event = makeEvent(EventType_MESSAGE, uuidNumber(1), number);
    event->set_creator_id(author);
    event->set_seq(seq);
    event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{makeTextPart("text")});
    return event;
}

std::shared_ptr<ZAVEvent> deletionOf(ZAVSequence target, int number, ZAVSequence seq) {
    auto event = message(number, "bruno", seq);
    event->set_type(EventType_EVENT_DELETED);
    event->set_target_seq(target);
    event->set_content(std::nullopt);
    return event;
}

/// A page of all kinds: one's own event, one that is deleted, one whose deletion comes first, and a new one.
Events page() {
    return {message(10, "ada", 2), deletionOf(1, 11, 3), deletionOf(5, 12, 4), message(13, "bruno", 5),
            message(14, "bruno", 6)};
}

Rows rowsOfAll(FMDatabase& database) {
    Rows all;
    for (const char* const table :
         {"streams", "events", "event_content_parts", "keyed_values_local", "messages"}) {
        const Rows rows = rowsOf(database, std::string("SELECT * FROM ") + table + " ORDER BY 1");
        all.insert(all.end(), rows.begin(), rows.end());
    }
    return all;
}

/// A store with an event of another and one of the user's that waits, which each round copies; and its rows
/// before and after the page.
class PageToReceive {
public:
    explicit PageToReceive(FMDatabaseOptions options) : path_(directory_.file("template.db")) {
        options.vfs.clear();
        const auto waiting = message(10, "ada", 0);
        waiting->unset_seq();
        {
            const auto store = ZAVEventStore::open(path_, optionsWith(options));
            if (!store || !store->receive(uuidNumber(1), Events{message(1, "bruno", 1)}) ||
                !store->send(waiting)) {
                throw std::runtime_error("the store cannot be filled");
            }
        }
        before_ = rowsOfAll(*openHandle(path_));
        const std::string copy = directory_.file("after.db");
        fs::copy_file(path_, copy);
        {
            const auto store = ZAVEventStore::open(copy, optionsWith(options));
            if (!store || !store->receive(uuidNumber(1), page())) {
                throw std::runtime_error("the page cannot be received");
            }
        }
        after_ = rowsOfAll(*openHandle(copy));
    }

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] const Rows& before() const { return before_; }
    [[nodiscard]] const Rows& after() const { return after_; }

private:
    TemporaryDirectory directory_;
    std::string path_;
    Rows before_;
    Rows after_;
};

/// One page that meets a fault, and what is left of it. Answers whether the fault was met.
bool survives(const PageToReceive& source, const FaultInjector& injector, const FMDatabaseOptions& options,
              int number, bool fromThenOn, SweepTally& tally) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("store.db");
    fs::copy_file(source.path(), path);
    const auto store = ZAVEventStore::open(path, optionsWith(options));
    if (!store) {
        throw std::runtime_error("the store cannot be opened without a fault");
    }
    const Events events = page();
    ZAVError error = errorFromBefore;
    injector.fail(number, fromThenOn);
    const auto answers = store->receive(uuidNumber(1), events, {}, &error);
    injector.heal();
    if (injector.failures() == 0) {
        EXPECT_TRUE(answers) << error.description();
        return false;
    }
    ++tally.faults;
    ++(answers ? tally.absorbed : tally.reported);
    EXPECT_EQ(error == errorFromBefore, answers.has_value()) << "the answer and the error do not agree";
    EXPECT_NE(error, ZAVError()) << "it failed with an empty error";
    Rows rows;
    ZAVError failure;
    EXPECT_TRUE(store->read(
        [&](const ZAVRepositories& repositories) { rows = rowsOfAll(repositories.events.database()); },
        &failure))
        << failure.description();
    // A commit whose last step fails may have reached the file.
    EXPECT_TRUE(rows == source.after() || (!answers && rows == source.before())) << "half a page is stored";
    for (const auto& event : events) {
        EXPECT_EQ(event->databaseIdentifier() != ZAVDatabaseIdentifierNotSet, answers.has_value())
            << "the record has another row than before, or none";
    }
    error = errorFromBefore;
    EXPECT_TRUE(store->receive(uuidNumber(1), events, {}, &error))
        << "the fault is gone, and it fails: " << error.description();
    EXPECT_TRUE(store->close(ZAVEventStore::QueuedWorks::run));
    const auto database = openHandle(path);
    EXPECT_EQ(rowsOfAll(*database), source.after());
    EXPECT_EQ(scalar(*database, "PRAGMA integrity_check"), "ok");
    return true;
}

SweepTally sweepReceiving(const FaultInjector& injector, const FMDatabaseOptions& options, bool fromThenOn,
                          int step) {
    SweepTally tally;
    if (!options.writeAheadLog) {
        return tally;  // a store has always one
    }
    const PageToReceive source(options);
    forEachFault("receiving", injector, options, fromThenOn, step,
                 [&](int number) { return survives(source, injector, options, number, fromThenOn, tally); });
    return tally;
}

TEST(FaultsInReceiving, OfTheFileSystemLeaveAPageWholeOrNotAtAll) {
    reportSweep("file faults in receiving: " + sweepEveryFileCall(sweepReceiving).description());
}

TEST(FaultsInReceiving, OfMemoryLeaveAPageWholeOrNotAtAll) {
    reportSweep("memory faults in receiving: " + sweepEveryRequestForMemory(sweepReceiving).description());
}

}  // namespace
}  // namespace zav::test
