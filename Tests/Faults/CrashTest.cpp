#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Faults/ImportedBatch.h"
#include "Faults/StoredState.h"
#include "Support/Process.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestEffort.h"
#include "Support/Tool.h"

namespace zav::test {
namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::microseconds;
using Random = std::mt19937_64;

/// Waits for a random time, at most twice `usual`.
void waitAbout(Microseconds usual, Random& random) {
    std::this_thread::sleep_for(Microseconds(random() % static_cast<std::uint64_t>(2 * usual.count() + 1)));
}

/// How long something takes, from the times it took.
class Duration {
public:
    explicit Duration(Microseconds guess) : usual_(guess) {}

    void add(Clock::duration measured) {
        usual_ = (3 * usual_ + std::chrono::duration_cast<Microseconds>(measured)) / 4;
    }
    [[nodiscard]] Microseconds usual() const { return usual_; }

private:
    Microseconds usual_;
};

/// Times that depend on the machine; they choose the moments to kill in, and nothing is expected of them.
struct Pace {
    Duration opening{Microseconds(20000)};
    Duration batch{Microseconds(8000)};
};

/// Whether a kill has left something to recover.
bool leftAJournal(const std::string& path) {
    return std::filesystem::exists(path + "-journal") || std::filesystem::exists(path + "-wal");
}

/// What became of the writers and their batches.
struct Tally {
    int killed = 0;
    int journals = 0;
    int acknowledged = 0;
    int committedUnheard = 0;
};

/// A database into which writers import, each until it is killed.
class KilledImport {
public:
    KilledImport(std::string journal, Random& random, Pace& pace, Tally& tally)
        : journal_(std::move(journal)), random_(random), pace_(pace), tally_(tally) {}

    /// Starts a writer where the last one ended, and kills it.
    void killWriter() {
        Process writer({ZAV_IMPORTING_WRITER_PATH, path_, std::to_string(stored_), journal_});
        awaitMoment(writer);
        EXPECT_EQ(writer.kill(), SIGKILL)
            << "the writer ended by itself, with status " << writer.exitStatus();
        ++tally_.killed;
        tally_.journals += leftAJournal(path_) ? 1 : 0;
        while (const auto line = writer.line()) {
            hear(*line);
        }
    }

    /// Checks that what was acknowledged is there, and nothing by halves.
    void check() {
        ZAVError error;
        const auto database = ZAVDatabaseSchema::openDatabase(path_, {}, &error);
        ASSERT_TRUE(database) << "after a kill the database opens; " << error.description();
        ASSERT_EQ(integrityOf(*database), "ok") << "a kill leaves no damage";
        for (; checked_ < stored_; ++checked_) {
            expectWhole(database, checked_);
        }
        const std::string underWay = ImportedBatch(stored_).presenceIn(database);
        if (underWay != ImportedBatch::absent) {
            ASSERT_EQ(underWay, ImportedBatch::whole)
                << "what a kill interrupts is stored as a whole or not at all";
            ++tally_.committedUnheard;
            rows_ += ImportedBatch(stored_).rows();
            checked_ = ++stored_;
        }
        EXPECT_EQ(ImportedRows::in(*database), rows_)
            << "the database holds the rows of the " << stored_ << " batches that it holds, and no others";
    }

    /// Checks every batch once more.
    void checkAll() {
        ASSERT_NO_FATAL_FAILURE(check());
        const auto database = ZAVDatabaseSchema::openDatabase(path_);
        ASSERT_TRUE(database);
        for (int number = 0; number < stored_; ++number) {
            expectWhole(database, number);
        }
    }

private:
    /// Reads what the writer says until a random moment.
    void awaitMoment(Process& writer) {
        const std::size_t lines = 1 + random_() % 9;
        for (std::size_t count = 0; count < lines; ++count) {
            const auto before = Clock::now();
            const auto line = writer.line();
            ASSERT_TRUE(line) << "the writer ended by itself";
            if (*line == "open") {
                pace_.opening.add(Clock::now() - before);
            } else if (hear(*line)) {
                pace_.batch.add(Clock::now() - before);
            }
        }
        waitAbout(lines == 1 ? pace_.opening.usual() : pace_.batch.usual(), random_);
    }

    /// Takes note of a batch that was acknowledged; false when the line tells of none.
    bool hear(const std::string& line) {
        if (line == "opening" || line == "open") {
            return false;
        }
        EXPECT_EQ(line, std::to_string(stored_)) << "the writer stores one batch after the other";
        rows_ += ImportedBatch(stored_).rows();
        ++stored_;
        ++tally_.acknowledged;
        return true;
    }

    static void expectWhole(const std::shared_ptr<FMDatabase>& database, int number) {
        EXPECT_EQ(ImportedBatch(number).presenceIn(database), ImportedBatch::whole)
            << "batch " << number << " was acknowledged and is there in full";
    }

    std::string journal_;
    Random& random_;
    Pace& pace_;
    Tally& tally_;
    TemporaryDirectory directory_;
    std::string path_ = directory_.file("store.db");
    int stored_ = 0;   ///< the batches from 0 up to this one were acknowledged, or found
    int checked_ = 0;  ///< those up to this one were found
    ImportedRows rows_;
};

constexpr std::uint64_t seed = 20140601;

TEST(Crash, TakesNothingThatWasAcknowledgedAndLeavesNothingByHalves) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const int kills = rounds(42, 420);
    const int killsPerDatabase = 14;
    Random random(seed);
    Pace pace;
    Tally tally;
    for (int database = 0; database * killsPerDatabase < kills && !HasFailure(); ++database) {
        KilledImport import(database % 3 == 2 ? "rollback" : "log", random, pace, tally);
        for (int count = 0; count < killsPerDatabase && !HasFailure(); ++count) {
            import.killWriter();
            // Not every time, so that some writers find what no one has recovered since the kill before.
            if (random() % 2 == 0) {
                import.check();
            }
        }
        import.checkAll();
    }
    if (HasFailure()) {
        return;
    }
    reportSweep("killed a writer " + std::to_string(tally.killed) + " times, " +
                std::to_string(tally.journals) +
                " of them with something to recover: " + std::to_string(tally.acknowledged) +
                " batches acknowledged, all of them found; " + std::to_string(tally.committedUnheard) +
                " more were whole, the others under way had left no trace");
}

/// What a new database holds.
StoredState stateOfNewDatabase() {
    const TemporaryDirectory directory;
    return StoredState(*ZAVDatabaseSchema::openDatabase(directory.file("new.db")));
}

/// Whether a file holds a schema as it is left by the opening that made it; there need not be a file.
bool isMade(const std::string& path, const StoredState& complete) {
    if (!std::filesystem::exists(path)) {
        return false;
    }
    FMDatabaseOptions options;
    options.writeAheadLog = false;
    ZAVError error;
    const auto database = FMDatabase::databaseWithPath(path, options, &error);
    if (!database) {
        ADD_FAILURE() << "an opening that was killed leaves a database; " << error.description();
        return false;
    }
    if (ZAVDatabaseSchema::versionOfDatabase(*database) == 0) {
        const auto tables = database->executeQuery("SELECT 1 FROM sqlite_master")->next();
        EXPECT_FALSE(tables) << "an opening that was killed leaves all tables or none";
        return false;
    }
    EXPECT_EQ(StoredState(*database), complete)
        << "an opening that was killed leaves the whole schema or none";
    return true;
}

TEST(Crash, LeavesADatabaseThatCanBeOpenedWhenItComesInTheFirstOpening) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const StoredState complete = stateOfNewDatabase();
    Random random(seed);
    Pace pace;
    const int kills = rounds(16, 160);
    int journals = 0;
    int made = 0;
    for (int count = 0; count < kills && !HasFailure(); ++count) {
        const TemporaryDirectory directory;
        const std::string path = directory.file("store.db");
        Process writer({ZAV_IMPORTING_WRITER_PATH, path, "none", count % 3 == 2 ? "rollback" : "log"});
        ASSERT_EQ(writer.line(), "opening");
        if (count % 8 == 0) {
            const auto before = Clock::now();
            ASSERT_EQ(writer.line(), "open");
            pace.opening.add(Clock::now() - before);
        } else {
            std::this_thread::sleep_for(Microseconds(
                random() % static_cast<std::uint64_t>(pace.opening.usual().count() * 5 / 4 + 1)));
        }
        ASSERT_EQ(writer.kill(), SIGKILL) << "the writer ended by itself";
        journals += leftAJournal(path) ? 1 : 0;
        made += isMade(path, complete) ? 1 : 0;
        ZAVError error;
        const auto database = ZAVDatabaseSchema::openDatabase(path, {}, &error);
        ASSERT_TRUE(database) << "after a kill the database opens; " << error.description();
        EXPECT_EQ(integrityOf(*database), "ok");
        EXPECT_EQ(StoredState(*database), complete) << "what a kill prevented is made up for";
    }
    if (!HasFailure()) {
        reportSweep("killed a writer " + std::to_string(kills) + " times as it made its database, " +
                    std::to_string(journals) + " of them with something to recover: " + std::to_string(made) +
                    " databases were complete, the others empty");
    }
}

/// The lines of events to import: of two streams, with and without sequence, parts and metadata.
std::string linesToImport(int count) {
    std::vector<nlohmann::json> events;
    for (int number = 1; number <= count; ++number) {
        std::string identifier = std::to_string(100000000000 + number);
        nlohmann::json changes = {{"client_id", "c0000000-0000-4000-8000-" + identifier},
                                  {"stream_id", uuidText(0xA0 + number % 2)},
                                  {"type", 4}};
        if (number % 7 != 0) {
            changes["seq"] = number;
        }
        if (number % 3 == 0) {
            changes["transient_metadata"] = {{"push-text", "message " + identifier}};
        }
        nlohmann::json parts = nlohmann::json::array();
        for (int part = 0; part < number % 4; ++part) {
            const std::string text(static_cast<std::size_t>(20 + number * 7 % 300), 'x');
            parts.push_back({{"media_type", "text/plain"}, {"size", text.size()}, {"text", text}});
        }
        if (!parts.empty()) {
            changes["content"] = parts;
        }
        events.push_back(eventJSON(1, changes));
    }
    return lines(events);
}

/// The events that the tool lists, each without the rows that it is kept in: an import that meets a stored
/// event passes over a row identifier.
std::vector<nlohmann::json> eventsIn(const ToolStore& store, const std::string& selection = "--all") {
    std::vector<nlohmann::json> events = parsedLines(store.events({selection}));
    for (nlohmann::json& event : events) {
        event.erase("database_identifier");
        for (nlohmann::json& part : event["content"]) {
            part.erase("event_database_identifier");
        }
    }
    return events;
}

/// Fails the test unless `found` is how `expected` begins.
void expectBeginning(const std::vector<nlohmann::json>& found, const std::vector<nlohmann::json>& expected,
                     const std::string& promise) {
    ASSERT_LE(found.size(), expected.size()) << promise;
    for (std::size_t index = 0; index < found.size(); ++index) {
        ASSERT_EQ(found[index], expected[index])
            << promise << "; event " << index << " is the first to differ";
    }
}

/// An import by the tool, killed again and again until it comes to its end.
class KilledToolImport {
public:
    static constexpr std::size_t batchSize = 20;

    KilledToolImport(const std::string& toImport, const std::vector<nlohmann::json>& whenDone)
        : whenDone_(whenDone), file_(store_.write("events.jsonl", toImport)) {}

    /// Starts the import and kills it; true when it was done before.
    bool run(Microseconds usual, Random& random) {
        Process tool({ZAV_TOOL_PATH, "import", store_.path(), file_, "--batch", std::to_string(batchSize),
                      "--record-changes"});
        waitAbout(usual * 2 / 3, random);
        if (tool.kill() == SIGKILL) {
            return false;
        }
        EXPECT_EQ(tool.exitStatus(), 0) << "the import that comes after a kill goes through";
        return true;
    }

    /// Checks that whole batches are there, in the order of the lines, and no fewer than before; all of them
    /// when the import is done.
    void check(bool isDone) {
        ASSERT_EQ(store_.run("init").status, 0) << "after a kill the database opens";
        ASSERT_EQ(store_.run("check").status, 0) << "a kill leaves no damage";
        const std::vector<nlohmann::json> events = eventsIn(store_);
        EXPECT_EQ(events.size() % batchSize, 0U) << "an import that was killed leaves whole batches";
        EXPECT_GE(events.size(), count_) << "an import that was killed loses nothing of the one before";
        expectBeginning(events, whenDone_, "the first batches are stored first");
        expectBeginning(eventsIn(store_, "--unprocessed"), events, "each new event is recorded as a change");
        EXPECT_EQ(store_.stats().at("unprocessed"), events.size())
            << "each new event is recorded as a change";
        if (isDone) {
            EXPECT_EQ(events.size(), whenDone_.size()) << "an import that is done has stored all";
        }
        count_ = events.size();
    }

private:
    ToolStore store_;
    const std::vector<nlohmann::json>& whenDone_;
    std::string file_;
    std::size_t count_ = 0;
};

TEST(Crash, LeavesWholeBatchesOfAnImportThatCanBeRepeated) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const std::string toImport = linesToImport(600);
    const ToolStore undisturbed;
    const auto before = Clock::now();
    undisturbed.importWell(toImport,
                           {"--batch", std::to_string(KilledToolImport::batchSize), "--record-changes"});
    const auto usual = std::chrono::duration_cast<Microseconds>(Clock::now() - before);
    const std::vector<nlohmann::json> whenDone = eventsIn(undisturbed);

    Random random(seed);
    const int runs = rounds(9, 150);
    int killed = 0;
    auto import = std::make_unique<KilledToolImport>(toImport, whenDone);
    for (int count = 0; count < runs && !HasFailure(); ++count) {
        const bool done = import->run(usual, random);
        import->check(done);
        if (done) {
            import = std::make_unique<KilledToolImport>(toImport, whenDone);
        }
        killed += done ? 0 : 1;
    }
    if (!HasFailure()) {
        reportSweep("killed the tool " + std::to_string(killed) + " times in " + std::to_string(runs) +
                    " imports: whole batches each time, and the same events in the end");
    }
}

}  // namespace
}  // namespace zav::test
