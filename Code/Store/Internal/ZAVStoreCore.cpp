#include "Store/Internal/ZAVStoreCore.h"

#include <sqlite3.h>

#include <exception>
#include <new>
#include <system_error>
#include <utility>

#include "Private/Database/Internal/ZAVConnection.h"
#include "Private/Database/Internal/ZAVStatements.h"
#include "Store/Internal/ZAVContentFailure.h"
#include "Store/Internal/ZAVFilesWithoutRow.h"
#include "Store/Internal/ZAVStoreErrors.h"
#include "Store/Internal/ZAVStoreOpening.h"
#include "Store/Internal/ZAVWorkOnThread.h"

namespace zav {
namespace {

ZAVWorkOutcome failedWith(const ZAVError& error) {
    return {ZAVWorkOutcome::State::failed, error};
}

/// Not to make a file where there is none any more.
FMDatabaseOptions optionsToOpenAgain(const ZAVEventStoreOptions& options) {
    FMDatabaseOptions writing = ZAVWritingOptions(options);
    writing.access = FMDatabaseOptions::Access::readWrite;
    return writing;
}

/// Runs what may be stopped, on the calling thread.
template <class Run>
ZAVWorkOutcome settled(const Run& run) {
    ZAVWorkControl control;
    ZAVWorkOutcome outcome;
    try {
        outcome = run(control);
    } catch (const ZAVContentFailure&) {
        if (control.stopped() == ZAVWorkControl::Stop::none) {
            throw;
        }
    }
    const auto stop = control.stopped();
    return stop == ZAVWorkControl::Stop::none ? outcome : ZAVQueuedWork::outcomeOf(stop);
}

std::optional<std::int64_t> dataVersion(const ZAVStoreHandle& handle, ZAVError* error) {
    return readNumber(*handle.database(), error, "PRAGMA data_version");
}

}  // namespace

ZAVStoreCore::ZAVStoreCore(const std::shared_ptr<FMDatabase>& writing, const ZAVEventStoreOptions& options)
    : owner_{options.userID, options.appID, options.contentDirectory},
      databasePath_(sqlite3_db_filename(writing->connection().engine(), "main")),
      lookEvery_(options.lookForCommitsOfOthersEvery),
      deliveries_(std::make_shared<ZAVDeliveries>(options.executor)),
      windows_(std::make_shared<ZAVTimelineWindows>(*this, deliveries_)),
      subscribers_(deliveries_, windows_),
      turns_([this] { closeWriting(false); }),
      writingOptions_(optionsToOpenAgain(options)),
      reading_(databasePath_, ZAVReadingOptions(options), options.readers),
      writers_(1),
      readers_(options.readers) {
    adopt(writing);
}

ZAVStoreCore::~ZAVStoreCore() {
    close(QueuedWorks::refused, nullptr);
}

/// Under the turn, or before there is any.
void ZAVStoreCore::adopt(const std::shared_ptr<FMDatabase>& writing) {
    writing->connection().checkpoints().setEarlyEnd([this] { return isHurried_.load(); });
    writing_ = std::make_unique<ZAVStoreHandle>(writing);
    ++openings_;
    isWatching_ = false;
    dataVersion_ = dataVersion(*writing_, nullptr).value_or(0);
}

/// Under the turn: opens the handle that writes, unless it is open.
bool ZAVStoreCore::ensureWriting(ZAVError* error) {
    if (writing_ == nullptr) {
        if (const auto database = ZAVOpenToWrite(databasePath_, writingOptions_.options, error)) {
            adopt(database);
        }
    }
    return writing_ != nullptr;
}

/// Under the turn.
void ZAVStoreCore::giveMemoryBackIfWanted() noexcept {
    if (writing_ != nullptr && isMemoryWanted_.exchange(false)) {
        writing_->connection().releaseMemory();
    }
}

/// After a commit. All rows are asked, which takes a while when they are many, and so beside other writes: if
/// one of these comes in between, they are asked again. What fails is left to a repair, and what a suspension
/// stops to the next commit.
/// @param waiting for a handle that reads.
/// @param inItsTurn calls what it is given in the turn of a write; answers none when there is none to be had.
template <class InItsTurn>
void ZAVStoreCore::removeFiles(LeftOver leftOver, ZAVWaiting waiting, const InItsTurn& inItsTurn) noexcept {
    if (leftOver.files.empty()) {
        return;
    }
    try {
        ZAVFilesWithoutRow files(owner_, leftOver.files);
        const ReadingWork ask = [&](const ZAVRepositories& repositories) {
            files.ask(repositories.events.database());
        };
        constexpr int attempts = 3;
        for (int attempt = 1; files.areThere() && attempt <= attempts; ++attempt) {
            const bool isAsked =
                attempt < attempts && settled([&](ZAVWorkControl& control) {
                                          return run(ask, control, {"removal of files"}, waiting);
                                      }).state == ZAVWorkOutcome::State::done;
            const auto removal = inItsTurn([&] { return removeUnlessChanged(files, leftOver, !isAsked); });
            if (removal.value_or(Removal::stopped) == Removal::stopped) {
                const std::lock_guard lock(stopping_);
                stillToRemove_.insert(stillToRemove_.end(), leftOver.files.begin(), leftOver.files.end());
                return;
            }
            if (*removal == Removal::over) {
                return;
            }
        }
    } catch (const std::exception&) {
        return;
    }
}

void ZAVStoreCore::addStillToRemove(std::vector<ZAVFileWithoutRow>& files) noexcept {
    try {
        const std::lock_guard lock(stopping_);
        files.insert(files.end(), stillToRemove_.begin(), stillToRemove_.end());
        stillToRemove_.clear();
    } catch (const std::bad_alloc&) {
        return;  // the next commit tries it again
    }
}

/// With no lock held, and no turn.
void ZAVStoreCore::handOut() noexcept {
    deliveries_->handOut();
    windows_->lookAtNoted();
}

// On the calling thread

ZAVWorkOutcome ZAVStoreCore::read(const ReadingWork& work) {
    if (const auto* const around = ZAVWorkOnThread::innermostOf(this)) {
        work(around->handle().repositories());
        return {};
    }
    const ZAVStoreGate::Passage passage(gate_);
    return passage.isInside() ? settled([&](ZAVWorkControl& control) {
        return run(work, control, {"read"}, ZAVWaiting::unlessHalted);
    })
                              : failedWith(gate_.refusal());
}

ZAVWorkOutcome ZAVStoreCore::write(const WritingWork& work) {
    if (const auto* const around = ZAVWorkOnThread::innermostOf(this)) {
        return around->kind() == ZAVWorkOnThread::Kind::writing
                   ? writeWithin(around->handle(), work)
                   : failedWith(
                         ZAVErrorOfStore(ZAVEventStoreErrorWriteInRead,
                                         "a write within a read of the same store would wait for itself"));
    }
    const ZAVStoreGate::Passage passage(gate_);
    if (!passage.isInside()) {
        return failedWith(gate_.refusal());
    }
    LeftOver leftOver;
    const auto inTurnOfWrite = [this](const auto& toDo) {
        ZAVTurns::Ticket ticket;
        turns_.draw(ticket);
        return inTurn(ticket, ZAVWaiting::unlessHalted, toDo);
    };
    auto outcome = inTurnOfWrite([&] {
        return settled([&](ZAVWorkControl& control) { return run(work, control, {"write"}, leftOver); });
    });
    removeFiles(std::move(leftOver), ZAVWaiting::unlessHalted, inTurnOfWrite);
    return outcome ? *std::move(outcome) : failedWith(gate_.refusal());
}

ZAVWorkOutcome ZAVStoreCore::writeWithin(ZAVStoreHandle& handle, const WritingWork& work) {
    ZAVError error;
    ZAVWorkSavepoint savepoint(handle, &error);
    if (!savepoint.isSet()) {
        return failedWith(error);
    }
    const bool isWanted = work(handle.repositories());
    if (!savepoint.isStillOpen(&error)) {
        return failedWith(error);
    }
    if (!isWanted) {
        return {ZAVWorkOutcome::State::takenBack};
    }
    return savepoint.keep(&error) ? ZAVWorkOutcome() : failedWith(error);
}

ZAVWorkOutcome ZAVStoreCore::run(const ReadingWork& work, ZAVWorkControl& control, const Label& label,
                                 ZAVWaiting waiting) {
    ZAVReadingHandles::Loan loan(reading_, waiting);
    if (!loan.isHad()) {
        return failedWith(gate_.refusal());
    }
    const ZAVRunningWorks::Entry entry(running_, control, label);
    if (control.stopped() != ZAVWorkControl::Stop::none) {
        return {};  // how it was stopped, its owner knows
    }
    ZAVError error;
    ZAVStoreHandle* const handle = loan.handle(&error);
    if (handle == nullptr) {
        return failedWith(error);
    }
    if (!control.begin(handle->connection())) {
        return {};
    }
    const ZAVSnapshot snapshot(*handle, control, &error);
    if (!snapshot.isTaken()) {
        return failedWith(error);
    }
    const ZAVWorkOnThread running(this, ZAVWorkOnThread::Kind::reading, *handle, control, contentDirectory());
    work(handle->repositories());
    return {};
}

ZAVWorkOutcome ZAVStoreCore::run(const WritingWork& work, ZAVWorkControl& control, const Label& label,
                                 LeftOver& leftOver) {
    const ZAVRunningWorks::Entry entry(running_, control, label);
    ZAVError error;
    if (!ensureWriting(&error)) {
        return failedWith(error);
    }
    writing_->filesWithoutRow().clear();
    bool isCommitted = false;
    ZAVWorkOutcome outcome = runAndCommit(work, control, isCommitted);
    if (isCommitted) {
        leftOver.files = std::move(writing_->filesWithoutRow());
        addStillToRemove(leftOver.files);
    }
    if (!leftOver.files.empty()) {
        leftOver.version =
            ZAVVersionOfDatabase(*writing_->database(), nullptr).value_or(ZAVDatabaseVersion());
        leftOver.opening = openings_;
    }
    return outcome;
}

/// Under the turn.
ZAVStoreCore::Removal ZAVStoreCore::removeUnlessChanged(ZAVFilesWithoutRow& files, LeftOver& leftOver,
                                                        bool asksAgain) {
    ZAVWorkControl control;
    const ZAVRunningWorks::Entry entry(running_, control, {"removal of files"});
    if (!ensureWriting(nullptr)) {
        return Removal::stopped;
    }
    Removal removal = Removal::over;
    const WritingWork remove = [&](const ZAVRepositories& repositories) {
        FMDatabase& database = repositories.events.database();
        const auto present = ZAVVersionOfDatabase(database, nullptr);
        if (asksAgain) {
            files.ask(database);
        } else if (present != leftOver.version || openings_ != leftOver.opening) {
            leftOver.version = present.value_or(ZAVDatabaseVersion());
            leftOver.opening = openings_;
            removal = Removal::changed;
            return false;
        }
        if (control.pass() == ZAVWorkControl::Stop::none) {
            files.remove();
        }
        return false;  // the lock is all that was wanted
    };
    try {
        bool isCommitted = false;
        static_cast<void>(runAndCommit(remove, control, isCommitted));
    } catch (const ZAVContentFailure&) {
        removal = Removal::over;
    }
    return control.stopped() == ZAVWorkControl::Stop::none ? removal : Removal::stopped;
}

ZAVWorkOutcome ZAVStoreCore::runAndCommit(const WritingWork& work, ZAVWorkControl& control,
                                          bool& isCommitted) {
    ZAVStoreHandle& handle = *writing_;
    watchChanges();
    if (!control.begin(handle.connection())) {
        return {};
    }
    const int changesBefore = sqlite3_total_changes(handle.connection().engine());
    ZAVError error;
    ZAVWorkTransaction transaction(handle, control, &error);
    if (!transaction.isBegun()) {
        return failedWith(error);
    }
    const ZAVWorkOnThread running(this, ZAVWorkOnThread::Kind::writing, handle, control, contentDirectory());
    const bool isWanted = work(handle.repositories());
    if (control.pass() != ZAVWorkControl::Stop::none) {
        return {};
    }
    if (!transaction.isStillOpen(&error)) {
        return failedWith(error);
    }
    if (!isWanted) {
        return {ZAVWorkOutcome::State::takenBack};
    }
    if (!transaction.commit(&error)) {
        return failedWith(error);
    }
    isCommitted = true;
    tellOfUnwatched(changesBefore);
    return {};
}

const ZAVURL* ZAVStoreCore::contentDirectory() const noexcept {
    return owner_.contentDirectory ? &*owner_.contentDirectory : nullptr;
}

bool ZAVStoreCore::isInWork() const noexcept {
    return ZAVWorkOnThread::innermostOf(this) != nullptr;
}

ZAVStoreHandle& ZAVStoreCore::handleOfWork() const noexcept {
    return ZAVWorkOnThread::innermostOf(this)->handle();
}

ZAVError ZAVStoreCore::passPointOfNoReturn() {
    const auto stop = ZAVWorkOnThread::innermostOf(this)->control().pass();
    return stop == ZAVWorkControl::Stop::none ? ZAVError() : ZAVQueuedWork::outcomeOf(stop).error;
}

// On a thread of the store

template <class WhenAdded>
std::optional<ZAVPendingWork> ZAVStoreCore::enqueue(ZAVWorkThreads& threads, ZAVQueuedWork::Run run,
                                                    ZAVWorkCompletion completion,
                                                    const ZAVWorkOptions& options, const WhenAdded& whenAdded,
                                                    ZAVError* error) {
    const ZAVStoreGate::Passage passage(gate_);
    if (!passage.isInside(error)) {
        return std::nullopt;
    }
    auto work = std::make_shared<ZAVQueuedWork>(std::move(run), std::move(completion), deliveries_);
    try {
        if (options.deadline) {
            work->setDeadline(alarms_, *options.deadline);
        }
        threads.add(work, whenAdded);
    } catch (const std::system_error& failure) {
        ZAVStoreError(error, ZAVErrorOfStore(ZAVEventStoreErrorNoThread,
                                             std::string("no thread could be started: ") + failure.what()));
        return std::nullopt;
    }
    return ZAVPendingWork(std::move(work));
}

bool ZAVStoreCore::hasExecutor(const char* purpose, ZAVError* error) const {
    if (!deliveries_->hasExecutor()) {
        ZAVStoreError(error, ZAVErrorOfStore(
                                 ZAVEventStoreErrorNoExecutor,
                                 std::string("the store was opened without an executor, by which it could ") +
                                     purpose));
    }
    return deliveries_->hasExecutor();
}

std::optional<ZAVPendingWork> ZAVStoreCore::readAsync(ReadingWork work, ZAVWorkCompletion completion,
                                                      const ZAVWorkOptions& options, ZAVError* error) {
    if (!hasExecutor("tell how the work ends", error)) {
        return std::nullopt;
    }
    return enqueue(
        readers_,
        [this, work = std::move(work), name = options.name](ZAVWorkControl& control) {
            return control.stopped() == ZAVWorkControl::Stop::none
                       ? run(work, control, {"read", name}, ZAVWaiting::always)
                       : ZAVWorkOutcome();
        },
        std::move(completion), options, [] {}, error);
}

std::optional<ZAVPendingWork> ZAVStoreCore::writeAsync(WritingWork work, ZAVWorkCompletion completion,
                                                       const ZAVWorkOptions& options, ZAVError* error) {
    return hasExecutor("tell how the work ends", error)
               ? enqueueWrite(std::move(work), std::move(completion), options, error)
               : std::nullopt;
}

std::optional<ZAVPendingWork> ZAVStoreCore::enqueueWrite(WritingWork work, ZAVWorkCompletion completion,
                                                         const ZAVWorkOptions& options, ZAVError* error) {
    // Drawn when the work is in the queue, from which nothing but its own run takes it.
    const auto ticket = std::make_shared<ZAVTurns::Ticket>();
    return enqueue(
        writers_,
        [this, ticket, work = std::move(work), name = options.name](ZAVWorkControl& control) {
            return inTurn(*ticket, ZAVWaiting::always,
                          [&] {
                              LeftOver leftOver;
                              auto outcome = run(work, control, {"write", name}, leftOver);
                              // In the same turn: those that are queued by now would wait for this thread to
                              // run them. A reader is not waited for, which may wait for the turn.
                              removeFiles(std::move(leftOver), ZAVWaiting::never,
                                          [](const auto& remove) { return std::optional(remove()); });
                              return outcome;
                          })
                .value_or(failedWith(gate_.refusal()));
        },
        std::move(completion), options, [&] { turns_.draw(*ticket); }, error);
}

void ZAVStoreCore::writeLater(std::chrono::milliseconds delay, WritingWork work) noexcept {
    callAt(std::chrono::steady_clock::now() + delay, [this, work = std::move(work)] {
        try {
            enqueueWrite(work, {}, {}, nullptr);
        } catch (const std::exception&) {
            return;
        }
    });
}

bool ZAVStoreCore::runBeside(std::function<void()> function) noexcept {
    try {
        auto run = [function = std::move(function)](ZAVWorkControl&) {
            function();
            return ZAVWorkOutcome();
        };
        return enqueue(
                   readers_, run, {}, {}, [] {}, nullptr)
            .has_value();
    } catch (const std::exception&) {
        return false;
    }
}

// Commits

ZAVStoreSubscription ZAVStoreCore::subscribe(ZAVStoreObserver observer, ZAVError* error) {
    const ZAVStoreGate::Passage passage(gate_);
    if (!passage.isInside(error) || !hasExecutor("tell of commits", error)) {
        return {};
    }
    ZAVStoreSubscription subscription(subscribers_.add(std::move(observer)));
    lookAgainLater();
    return subscription;
}

std::shared_ptr<ZAVTimelineWindows> ZAVStoreCore::showWindow(const std::shared_ptr<ZAVLiveTimeline>& timeline,
                                                             std::chrono::milliseconds coalescing,
                                                             ZAVError* error) {
    const ZAVStoreGate::Passage passage(gate_);
    if (!passage.isInside(error) || !hasExecutor("tell how a window changes", error)) {
        return nullptr;
    }
    windows_->add(timeline, coalescing);
    lookAgainLater();
    return windows_;
}

/// Under the turn: has the handle's changes collected as long as anybody wants to be told.
void ZAVStoreCore::watchChanges() {
    if (subscribers_.areThere() == isWatching_) {
        return;
    }
    writing_->database()->setChangeObserver(
        isWatching_ ? FMChangeObserver()
                    : [this](std::span<const FMRowChange> changes) { subscribers_.tell(changes, false); });
    isWatching_ = !isWatching_;
}

/// Under the turn, after a commit: tells those who came while it was being written, unwatched.
void ZAVStoreCore::tellOfUnwatched(int changesBefore) noexcept {
    if (!isWatching_ && subscribers_.areThere() &&
        sqlite3_total_changes(writing_->connection().engine()) != changesBefore) {
        subscribers_.tell({}, false);
    }
}

std::optional<bool> ZAVStoreCore::lookForCommitsOfOthers(ZAVError* error) {
    const auto* const around = ZAVWorkOnThread::innermostOf(this);
    if (around != nullptr && around->kind() == ZAVWorkOnThread::Kind::writing) {
        return lookInTurn(error);
    }
    const ZAVStoreGate::Passage passage(gate_);
    if (!passage.isInside(error)) {
        return std::nullopt;
    }
    ZAVTurns::Ticket ticket;
    turns_.draw(ticket);
    const auto answer = inTurn(ticket, ZAVWaiting::unlessHalted, [&] { return lookInTurn(error); });
    if (!answer) {
        ZAVStoreError(error, gate_.refusal());
    }
    return answer.value_or(std::nullopt);
}

std::optional<bool> ZAVStoreCore::lookInTurn(ZAVError* error) {
    const auto version = ensureWriting(error) ? dataVersion(*writing_, error) : std::nullopt;
    if (!version) {
        return std::nullopt;
    }
    const bool isAnother = std::exchange(dataVersion_, *version) != *version;
    if (isAnother) {
        subscribers_.tell({}, true);
    }
    return isAnother;
}

/// One look at a time is on its way.
void ZAVStoreCore::lookAgainLater() noexcept {
    if (lookEvery_ <= std::chrono::milliseconds::zero() || !subscribers_.areThere() ||
        isLooking_.exchange(true)) {
        return;
    }
    if (!callAt(std::chrono::steady_clock::now() + lookEvery_, [this] { lookBeside(); })) {
        isLooking_ = false;  // the next subscriber has it tried again
    }
}

void ZAVStoreCore::lookBeside() noexcept {
    isLooking_ = false;
    try {
        const auto ticket = std::make_shared<ZAVTurns::Ticket>();
        enqueue(
            writers_,
            [this, ticket](ZAVWorkControl&) {
                static_cast<void>(inTurn(*ticket, ZAVWaiting::always, [&] { return lookInTurn(nullptr); }));
                lookAgainLater();
                return ZAVWorkOutcome();
            },
            {}, {}, [&] { turns_.draw(*ticket); }, nullptr);
    } catch (const std::exception&) {
        return;
    }
}

// The end

bool ZAVStoreCore::close(QueuedWorks queued, ZAVError* error) {
    if (isInWork()) {
        ZAVStoreError(error, ZAVErrorOfStore(ZAVEventStoreErrorCloseInWork,
                                             "a work cannot close the store that it runs on"));
        return false;
    }
    const bool wasSuspended = gate_.shut();
    if (wasSuspended || queued == QueuedWorks::refused) {
        readers_.refuseWaiting();
        writers_.refuseWaiting();
        turns_.haltForGood();
        reading_.haltForGood();
    }
    gate_.awaitEmptiness();
    const std::lock_guard lock(closing_);
    readers_.close();
    writers_.close();
    alarms_.close();
    windows_->disconnect();
    reading_.discard();  // before the last handle, which folds the log, and so must be one that can
    writing_.reset();
    return true;
}

}  // namespace zav
