#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>
#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Faults/ImportedBatch.h"
#include "Faults/StoredState.h"
#include "Faults/VolatileFileSystem.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestEffort.h"

namespace zav::test {
namespace {

using Random = VolatileFileSystem::Random;

const std::string databaseName = "store.db";

/// How a database is kept, and on what.
struct Setting {
    bool writeAheadLog = true;
    std::optional<FMDatabaseOptions::Synchronous>
        synchronous{};     ///< the library's own choice when there is none
    std::string script{};  ///< what to run on every handle that writes
    VolatileFileSystem::Hardware hardware{};

    [[nodiscard]] FMDatabaseOptions options(const std::string& vfs) const {
        FMDatabaseOptions options;
        options.vfs = vfs;
        options.writeAheadLog = writeAheadLog;
        options.synchronous = synchronous.value_or(options.synchronous);
        options.writeAheadLogPages = 40;  // the log is folded into the file every few steps
        options.pageCacheKiB = 96;        // and pages are written before a transaction ends
        return options;
    }

    [[nodiscard]] std::shared_ptr<FMDatabase> open(const std::string& path, const std::string& vfs,
                                                   ZAVError* error = nullptr) const {
        auto database = ZAVDatabaseSchema::openDatabase(path, options(vfs), error);
        return database && (script.empty() || database->executeStatements(script)) ? database : nullptr;
    }
};

/// A life of a database in steps, each of which makes one thing permanent, or nothing. The seed says all of
/// it.
class Course {
public:
    Course(const VolatileFileSystem& disk, const Setting& setting, std::uint64_t seed)
        : disk_(disk), setting_(setting), random_(seed) {
        add("opening", [this] { return reopen(); });
        addBatch();
        addBatch();
        for (int count = 0; count < 22; ++count) {
            addAny();
        }
        add("closing and opening", [this] { return reopen(); });
        addBatch();
        add("closing", [this] {
            reader_.reset();
            database_.reset();
            return true;
        });
    }

    [[nodiscard]] std::size_t size() const { return steps_.size(); }
    [[nodiscard]] const std::string& nameOf(std::size_t step) const { return steps_[step].name; }

    /// Whether the step was acknowledged.
    [[nodiscard]] bool take(std::size_t step) { return steps_[step].run(); }

    /// What is stored after the steps that were taken; a closed database is opened for it.
    [[nodiscard]] StoredState state() {
        return StoredState(database_ ? *database_ : *setting_.open(databaseName, disk_.name()));
    }

private:
    struct Step {
        std::string name;
        std::function<bool()> run;
    };

    void add(std::string name, std::function<bool()> run) {
        steps_.push_back({std::move(name), std::move(run)});
    }

    void addBatch() {
        const int number = batches_++;
        add("storing batch " + std::to_string(number),
            [this, number] { return ImportedBatch(number).store(database_, nullptr); });
    }

    /// Adds a step that does something with one of the stored events, if it is still there.
    void addChange(const std::string& name,
                   std::function<bool(const ZAVEventRepository&, const std::shared_ptr<ZAVEvent>&)> change) {
        const ImportedBatch batch(below(batches_));
        const ZAVSequence seq = batch.seqAt(static_cast<std::size_t>(below(20)));
        add(name + " " + std::to_string(seq),
            [this, stream = batch.stream(), seq, change = std::move(change)] {
                const ZAVEventRepository repository(database_);
                ZAVError error;
                const auto event = repository.eventWithSeq(seq, stream, &error);
                return event ? change(repository, event) : !error;
            });
    }

    void addAny() {
        switch (below(14)) {
            case 0:
                return addChange("tombstoning", [](const auto& repository, const auto& event) {
                    return repository.persistTombstoneEventWithTargetSeq(event->seq(),
                                                                         event->streamDatabaseIdentifier());
                });
            case 1:
                return addChange("sequencing", [](const auto& repository, const auto& event) {
                    event->set_creator_id("the service");
                    return repository.updateObject(*event);
                });
            case 2:
                return addChange("updating the parts of", [this](const auto& repository, const auto& event) {
                    return updateParts(repository, *event);
                });
            case 3:
                return addChange("deleting", [this](const auto& repository, const auto& event) {
                    return deleteEvent(repository, event);
                });
            case 4:
                return add("dropping a batch", [this] { return dropBatch(); });
            case 5:
                return add("closing and opening", [this] { return reopen(); });
            case 6:
                return add("folding the log", [this] {
                    return ZAVDatabaseMaintenance(database_)
                        .checkpoint(ZAVCheckpointMode::truncate)
                        .has_value();
                });
            case 7:
                return add("compacting", [this] { return database_->executeStatements("VACUUM"); });
            case 8:
                return add("letting a reader come or go", [this] { return toggleReader(); });
            default:
                return addBatch();
        }
    }

    bool reopen() {
        database_.reset();
        database_ = setting_.open(databaseName, disk_.name());
        return database_ != nullptr;
    }

    bool updateParts(const ZAVEventRepository& repository, const ZAVEvent& event) {
        auto transaction = ZAVTransaction::begin(*database_);
        if (!transaction) {
            return false;
        }
        for (const auto& part : event.contentParts()) {
            part->setTransferStatus(ZAVContentTransferComplete);
            part->setFileURL(ZAVURL::URLWithString("kept/" + std::to_string(event.seq())));
            part->setLastAccessed(ZAVDateFromSecondsSince1970(1400000000));
            if (!repository.persistEventContentUpdate(*part)) {
                return false;
            }
        }
        return transaction->commit();
    }

    bool deleteEvent(const ZAVEventRepository& repository, const std::shared_ptr<ZAVEvent>& event) {
        const ZAVSet<ZAVEvent> events{event};
        auto transaction = ZAVTransaction::begin(*database_);
        return transaction && repository.deleteUnprocessedEvents(events) && repository.deleteEvents(events) &&
               transaction->commit();
    }

    bool dropBatch() {
        auto transaction = ZAVTransaction::begin(*database_);
        return transaction && ImportedBatch(batches_).storeWithin(database_, nullptr);
    }

    /// One that reads keeps the log from being folded as a whole. Without a log it would keep out the writer.
    bool toggleReader() {
        if (reader_ || !setting_.writeAheadLog) {
            reader_.reset();
            return true;
        }
        FMDatabaseOptions options = setting_.options(disk_.name());
        options.access = FMDatabaseOptions::Access::readWrite;
        auto handle = FMDatabase::databaseWithPath(databaseName, options);
        auto rows = handle ? handle->executeQuery("SELECT * FROM events") : std::nullopt;
        if (!rows || !rows->next()) {
            return false;
        }
        reader_ = std::make_unique<Reader>(Reader{std::move(handle), std::move(*rows)});
        return true;
    }

    int below(int limit) { return static_cast<int>(random_() % static_cast<std::uint64_t>(limit)); }

    /// A handle with a cursor under way.
    struct Reader {
        std::shared_ptr<FMDatabase> database;
        FMResultSet rows;
    };

    const VolatileFileSystem& disk_;
    const Setting& setting_;
    Random random_;
    std::vector<Step> steps_;
    int batches_ = 0;
    std::shared_ptr<FMDatabase> database_;
    std::unique_ptr<Reader> reader_;
};

/// What a course stores when the power stays: the state before the first step and after each.
struct Undisturbed {
    std::vector<StoredState> states;
    std::size_t calls = 0;

    Undisturbed(const Setting& setting, std::uint64_t seed, std::size_t stepsAtMost) {
        VolatileFileSystem disk(setting.hardware);
        Course course(disk, setting, seed);
        const std::size_t steps = std::min(course.size(), stepsAtMost);
        for (std::size_t step = 0; step < steps; ++step) {
            if (!course.take(step)) {
                ADD_FAILURE() << "without any loss of power, " << course.nameOf(step) << " failed";
                return;
            }
            calls = disk.calls();
            states.push_back(course.state());
        }
        // What is not there yet is there as soon as it is opened.
        states.insert(states.begin(), states.front());
    }
};

/// What is expected of the files that a loss of power leaves.
struct Expectation {
    const std::vector<StoredState>& states;
    std::size_t earliest;
    std::size_t latest;
};

/// What was found in them.
struct Verdict {
    std::string complaint;  ///< "" when it is as expected
    std::size_t state = 0;  ///< the latest expected state that it is
};

Verdict verdictOn(const std::shared_ptr<FMDatabase>& database, const ZAVError& error,
                  const Expectation& expectation) {
    if (!database) {
        return {"cannot be opened: " + error.description()};
    }
    const std::string integrity = integrityOf(*database);
    if (integrity != "ok") {
        return {"fails the engine's check: " + integrity};
    }
    const auto& [states, earliest, latest] = expectation;
    const StoredState state(*database);
    for (std::size_t index = latest + 1; index-- > earliest;) {
        if (states[index] == state) {
            return {"", index};
        }
    }
    std::ostringstream complaint;
    const auto other = std::find(states.begin(), states.end(), state);
    complaint << "holds " << state << "; that is "
              << (other == states.end()
                      ? "no state that the database ever had"
                      : "the state after " + std::to_string(other - states.begin()) + " steps")
              << ", where the states after " << earliest << " to " << latest
              << " steps are acceptable, the last of them with " << states[latest];
    return {complaint.str()};
}

/// A sweep of losses of power over courses in one setting.
class Sweep {
public:
    explicit Sweep(Setting setting) : setting_(std::move(setting)) {}

    /// Whether acknowledged steps may be lost, though only the last ones, and only as a whole.
    void allowLosses() { lossesAllowed_ = true; }

    /// Takes no step but the first.
    void endAfterOpening() { stepsAtMost_ = 1; }

    /// Looks at what the power would leave if it went in some of a course's calls, several times in each;
    /// ends with the first complaint.
    void lookAside(std::uint64_t seed, int cutCount, int survivalsPerCut) {
        const Undisturbed undisturbed(setting_, seed, stepsAtMost_);
        random_.seed(seed);
        std::set<std::size_t> chosen;
        while (chosen.size() < std::min(static_cast<std::size_t>(cutCount), undisturbed.calls)) {
            chosen.insert(1 + random_() % undisturbed.calls);
        }
        struct Survivor {
            std::string circumstances;
            std::unique_ptr<VolatileFileSystem> disk;
        };
        std::vector<Survivor> survivors;
        VolatileFileSystem disk(setting_.hardware);
        disk.observe([&](const VolatileFileSystem::Call& call) {
            if (!chosen.contains(disk.calls())) {
                return;
            }
            ++cuts_;
            for (int count = 0; count < survivalsPerCut; ++count) {
                survivors.push_back({"in call " + std::to_string(disk.calls()) + ", " + call.description(),
                                     disk.afterPowerLoss(random_)});
            }
        });
        Course course(disk, setting_, seed);
        for (std::size_t step = 0; step + 1 < undisturbed.states.size() && complaint_.empty(); ++step) {
            ASSERT_TRUE(course.take(step)) << "looking aside, " << course.nameOf(step) << " failed";
            for (const Survivor& survivor : survivors) {
                examine(*survivor.disk, undisturbed, step,
                        "course " + std::to_string(seed) + ", " + course.nameOf(step) + ", " +
                            survivor.circumstances);
            }
            survivors.clear();
        }
    }

    /// Lets the power go in some of a course's calls, each time in a course of its own: nothing that fails
    /// may be acknowledged.
    void cutShort(std::uint64_t seed, int cutCount) {
        const Undisturbed undisturbed(setting_, seed, stepsAtMost_);
        random_.seed(seed);
        for (int count = 0; count < cutCount && complaint_.empty(); ++count) {
            const std::size_t call = 1 + random_() % undisturbed.calls;
            VolatileFileSystem disk(setting_.hardware);
            disk.cutPowerAtCall(call);
            std::size_t acknowledged = 0;
            std::string name;
            {
                Course course(disk, setting_, seed);
                while (acknowledged < course.size() && course.take(acknowledged)) {
                    ++acknowledged;
                }
                acknowledged = std::min(acknowledged, course.size() - 1);
                name = course.nameOf(acknowledged);
            }
            ASSERT_TRUE(disk.powerIsCut())
                << "a course of " << undisturbed.calls << " calls ended before call " << call;
            ++cuts_;
            examine(*disk.afterPowerLoss(random_), undisturbed, acknowledged,
                    "course " + std::to_string(seed) + ", " + name + ", cut short in call " +
                        std::to_string(call));
        }
    }

    /// The first thing that was not as expected; "" when there is none.
    [[nodiscard]] const std::string& complaint() const { return complaint_; }
    [[nodiscard]] int losses() const { return losses_; }

    void report(const std::string& circumstances) const {
        if (!complaint_.empty()) {
            return;
        }
        std::ostringstream sentence;
        sentence << "lost the power at " << cuts_ << " calls " << circumstances << " and looked at "
                 << examined_ << " outcomes, " << secondLosses_
                 << " of them after losing it again in the recovery: ";
        if (lossesAllowed_) {
            sentence << losses_ << " lacked the last that was acknowledged, none was damaged";
        } else {
            sentence << "all that was acknowledged was there";
        }
        reportSweep(sentence.str() + ", and " + std::to_string(ahead_) + " had what was about to be");
    }

private:
    /// Looks at the files that were left while a step was under way.
    void examine(VolatileFileSystem& disk, const Undisturbed& undisturbed, std::size_t step,
                 const std::string& circumstances) {
        if (!complaint_.empty()) {
            return;
        }
        const std::size_t latest = std::min(step + 1, undisturbed.states.size() - 1);
        const Verdict verdict =
            examine(disk, {undisturbed.states, lossesAllowed_ ? 0 : step, latest}, circumstances, true);
        if (verdict.complaint.empty()) {
            const auto is = [&](std::size_t index) {
                return undisturbed.states[index] == undisturbed.states[verdict.state];
            };
            losses_ += verdict.state < step && !is(step) ? 1 : 0;
            ahead_ += verdict.state > step && !is(step) ? 1 : 0;
        }
    }

    Verdict examine(VolatileFileSystem& disk, const Expectation& expectation,
                    const std::string& circumstances, bool mayLosePowerAgain) {
        ++examined_;
        if (examined_ % 100 == 0) {
            expectTheSameInRealFiles(disk, expectation, circumstances);
        }
        std::unique_ptr<VolatileFileSystem> second;
        std::string secondCall;
        const bool losesPowerAgain = mayLosePowerAgain && random_() % 3 == 0;
        if (losesPowerAgain) {
            // Each call of the recovery is as likely as any other to be the last.
            disk.observe([&](const VolatileFileSystem::Call& call) {
                if (random_() % disk.calls() == 0) {
                    second = disk.afterPowerLoss(random_);
                    secondCall = call.description();
                }
            });
        }
        ZAVError error;
        auto database = setting_.open(databaseName, disk.name(), &error);
        Verdict verdict = verdictOn(database, error, expectation);
        // The engine fills its log up to the end of a sector. Once that filling is lost, writing on damages a
        // fragile sector that matters: there a second loss is survived in the recovery, but not after it.
        if (verdict.complaint.empty() && examined_ % 3 == 0 &&
            (setting_.hardware.powersafeOverwrite || !losesPowerAgain)) {
            verdict.complaint = complaintAboutGoingOn(database);
        }
        database.reset();
        disk.observe({});
        note(verdict, circumstances);
        if (second && verdict.complaint.empty()) {
            ++secondLosses_;
            const Expectation again{expectation.states, lossesAllowed_ ? expectation.earliest : verdict.state,
                                    verdict.state};
            examine(*second, again, circumstances + ", and again in the recovery, " + secondCall, false);
        }
        return verdict;
    }

    /// The same files in a real directory, with the engine's own file system.
    void expectTheSameInRealFiles(const VolatileFileSystem& disk, const Expectation& expectation,
                                  const std::string& circumstances) {
        const TemporaryDirectory directory;
        disk.copyTo(directory.path());
        ZAVError error;
        const auto database = setting_.open(directory.file(databaseName), "", &error);
        note(verdictOn(database, error, expectation), circumstances + ", in real files");
    }

    /// A database that survived takes another batch.
    static std::string complaintAboutGoingOn(const std::shared_ptr<FMDatabase>& database) {
        const auto undone = ZAVTransaction::begin(*database);
        const ImportedBatch batch(1000);
        ZAVError error;
        if (!undone || !batch.storeWithin(database, &error)) {
            return "takes no further batch: " + error.description();
        }
        const std::string presence = ImportedBatch(1000).presenceIn(database);
        return presence == ImportedBatch::whole ? "" : "took a further batch, and holds " + presence;
    }

    void note(const Verdict& verdict, const std::string& circumstances) {
        if (complaint_.empty() && !verdict.complaint.empty()) {
            complaint_ = "the power went in " + circumstances + "; what was left " + verdict.complaint;
        }
    }

    Setting setting_;
    Random random_;
    bool lossesAllowed_ = false;
    std::size_t stepsAtMost_ = std::numeric_limits<std::size_t>::max();
    std::string complaint_;
    int cuts_ = 0;
    int examined_ = 0;
    int secondLosses_ = 0;
    int losses_ = 0;
    int ahead_ = 0;
};

class PowerLoss : public testing::Test {
protected:
    /// What fails after the power went is no news.
    void SetUp() override { ddLogLevel = 0; }
    void TearDown() override { ddLogLevel = level_; }

    static Setting rollbackJournal() {
        Setting setting;
        setting.writeAheadLog = false;
        return setting;
    }

    static Setting on(Setting setting, const VolatileFileSystem::Hardware& hardware) {
        setting.hardware = hardware;
        return setting;
    }

    static constexpr VolatileFileSystem::Hardware smallFragileSectors{false, 512};
    static constexpr VolatileFileSystem::Hardware largeFragileSectors{false, 4096};

    /// Looks aside in several courses; expects that nothing is found that should not be.
    static void expectSurvival(Sweep& sweep, int courses, int cutCount, int survivalsPerCut) {
        for (int seed = 1; seed <= courses; ++seed) {
            sweep.lookAside(static_cast<std::uint64_t>(seed), cutCount, survivalsPerCut);
        }
        EXPECT_TRUE(sweep.complaint().empty()) << sweep.complaint();
    }

private:
    std::uint32_t level_ = ddLogLevel;
};

TEST_F(PowerLoss, TakesNothingThatWasAcknowledged) {
    Sweep sweep({});
    expectSurvival(sweep, rounds(2, 12), rounds(80, 150), rounds(2, 3));
    sweep.report("with a write-ahead log");
}

TEST_F(PowerLoss, TakesNothingThatWasAcknowledgedWhereATornWriteDamagesWhatIsBesideIt) {
    for (const auto& hardware : {smallFragileSectors, largeFragileSectors}) {
        Sweep sweep(on({}, hardware));
        expectSurvival(sweep, rounds(1, 6), rounds(70, 100), rounds(2, 3));
        sweep.report("with a write-ahead log on fragile sectors of " + std::to_string(hardware.sectorSize));
    }
}

TEST_F(PowerLoss, TakesNothingThatWasAcknowledgedWithoutAWriteAheadLog) {
    Sweep sweep(rollbackJournal());
    expectSurvival(sweep, rounds(1, 12), rounds(90, 120), rounds(2, 3));
    sweep.report("with a rollback journal");
}

TEST_F(PowerLoss, TakesNothingThatWasAcknowledgedWithoutAWriteAheadLogWhereATornWriteDamagesWhatIsBesideIt) {
    for (const auto& hardware : {smallFragileSectors, largeFragileSectors}) {
        Sweep sweep(on(rollbackJournal(), hardware));
        expectSurvival(sweep, rounds(1, 6), rounds(40, 60), rounds(2, 3));
        sweep.report("with a rollback journal on fragile sectors of " + std::to_string(hardware.sectorSize));
    }
}

TEST_F(PowerLoss, TakesOnlyTheLastTransactionsWhereSyncingIsRelaxed) {
    Setting setting;
    setting.synchronous = FMDatabaseOptions::Synchronous::normal;
    Sweep sweep(setting);
    sweep.allowLosses();
    expectSurvival(sweep, rounds(1, 12), rounds(90, 120), rounds(2, 3));
    EXPECT_GT(sweep.losses(), 0) << "losing nothing, the sweep shows nothing";
    sweep.report("with relaxed syncing");
}

TEST_F(PowerLoss, LeavesADatabaseThatCanBeOpenedWhenItComesInTheFirstOpening) {
    for (const Setting& setting : {Setting(), rollbackJournal(), on({}, smallFragileSectors)}) {
        Sweep sweep(setting);
        sweep.endAfterOpening();
        expectSurvival(sweep, 1, 500, rounds(1, 10));
        sweep.report("of the first opening");
    }
}

TEST_F(PowerLoss, LetsNothingSucceedThatItCutsShort) {
    for (const Setting& setting : {Setting(), rollbackJournal()}) {
        Sweep sweep(setting);
        for (int seed = 1; seed <= rounds(1, 10); ++seed) {
            sweep.cutShort(static_cast<std::uint64_t>(seed), rounds(20, 30));
        }
        EXPECT_TRUE(sweep.complaint().empty()) << sweep.complaint();
        sweep.report("that failed in a course of their own");
    }
}

/// The sweeps above would show nothing if the file system were kinder than a disk.
TEST_F(PowerLoss, DamagesADatabaseWhereNothingIsSynced) {
    for (Setting setting : {Setting(), rollbackJournal()}) {
        setting.script = "PRAGMA synchronous=OFF";
        Sweep sweep(setting);
        sweep.lookAside(1, 120, 2);
        EXPECT_FALSE(sweep.complaint().empty()) << "everything survived, though nothing was synced";
    }
}

}  // namespace
}  // namespace zav::test
