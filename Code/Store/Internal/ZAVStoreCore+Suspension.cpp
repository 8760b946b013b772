#include <algorithm>
#include <exception>
#include <memory>

#include "Private/Database/Internal/ZAVConnection.h"
#include "Private/Database/Internal/ZAVDatabaseOpening.h"
#include "Store/Internal/ZAVStoreCore.h"
#include "Store/Internal/ZAVStoreErrors.h"

namespace zav {
namespace {

using Time = ZAVAlarms::Time;

/// Something that may be left undone gets half of the time, and not long enough for anybody to wait for it.
Time halfWayTo(Time end) {
    constexpr std::chrono::milliseconds most(500);
    const auto now = std::chrono::steady_clock::now();
    return now + std::min<Time::duration>((end - now) / 2, most);
}

/// Runs something whose statements fail when the time has come. Answers whether it was over before.
template <class Work>
bool isOverBefore(Time end, ZAVAlarms& alarms, const Work& work) {
    const auto control = std::make_shared<ZAVWorkControl>();  // an alarm that rings is not waited for
    const auto alarm = alarms.set(end, [control] { control->stop(ZAVWorkControl::Stop::late); });
    work(*control);
    alarms.takeAway(alarm);
    return control->pass() == ZAVWorkControl::Stop::none;
}

}  // namespace

bool ZAVStoreCore::suspend(Time deadline, SuspendedWorks waiting, const WritingWork& lastWork,
                           ZAVError* error) {
    if (isInWork()) {
        ZAVStoreError(error, ZAVErrorOfStore(ZAVEventStoreErrorSuspendInWork,
                                             "a work cannot suspend the store that it runs on"));
        return false;
    }
    const std::lock_guard lock(closing_);
    if (!gate_.close()) {
        ZAVStoreError(error, gate_.refusal());
        return false;
    }
    const auto reach = waiting == SuspendedWorks::wait ? ZAVHalt::Reach::callers : ZAVHalt::Reach::everybody;
    isHurried_ = true;
    turns_.halt(reach);
    reading_.halt(reach);
    running_.stopAll();
    const bool areReadsOver = reading_.awaitEnd(deadline);
    const bool isWriteOver = turns_.awaitEnd(deadline);
    const bool areRefused = waiting == SuspendedWorks::wait ||
                            (writers_.awaitIdleness(deadline) && readers_.awaitIdleness(deadline));
    if (areReadsOver && isWriteOver && areRefused) {
        fallAsleep(deadline, lastWork);
        return true;
    }
    if (isWriteOver) {
        closeWriting(false);
    }
    const std::string works = running_.description();
    ZAVStoreError(error, ZAVErrorOfStore(ZAVEventStoreErrorWorkRuns,
                                         (works.empty() ? "a work" : works) +
                                             " had not come to an end when the store was to sleep"));
    return false;
}

/// Has the turn, and all other handles are closed.
void ZAVStoreCore::fallAsleep(Time deadline, const WritingWork& lastWork) noexcept {
    bool isFolded = false;
    if (writing_ != nullptr && std::chrono::steady_clock::now() < deadline) {
        try {
            if (lastWork) {
                isOverBefore(halfWayTo(deadline), alarms_, [&](ZAVWorkControl& control) {
                    bool isCommitted = false;
                    static_cast<void>(runAndCommit(lastWork, control, isCommitted));
                });
            }
            // Here, since the engine would not be stopped any more when it does so for the last handle.
            ZAVConnection& connection = writing_->connection();
            bool isCopied = false;
            isFolded = isOverBefore(halfWayTo(deadline), alarms_,
                                    [&](ZAVWorkControl& control) {
                                        if (control.begin(connection)) {
                                            const auto outcome = connection.checkpoints().copy("main");
                                            isCopied =
                                                outcome.status == 0 && outcome.copied == outcome.frames;
                                        }
                                    }) &&
                       isCopied;
        } catch (const std::exception&) {
            isFolded = false;  // for want of memory, or of a thread
        }
    }
    closeWriting(isFolded);
}

/// Under the turn. The last handle on the file takes the log away when all of it is folded.
void ZAVStoreCore::closeWriting(bool takesLogAway) noexcept {
    if (writing_ != nullptr && !takesLogAway) {
        ZAVCloseUntouched(writing_->connection());
    }
    writing_.reset();
}

bool ZAVStoreCore::resume(ZAVError* error) {
    {
        const std::lock_guard lock(closing_);
        if (!gate_.isClosed()) {
            return ZAVStoreGate::Passage(gate_).isInside(error);
        }
        if (turns_.isFree() && !ensureWriting(error)) {
            return false;
        }
        subscribers_.tell({}, true);
        isHurried_ = false;
        running_.goOn();
        reading_.goOn();
        turns_.goOn();
        gate_.open();
    }
    handOut();
    lookAgainLater();
    return true;
}

void ZAVStoreCore::releaseMemory() {
    const ZAVStoreGate::Passage passage(gate_);
    if (!passage.isInside()) {
        return;
    }
    reading_.discard();
    isMemoryWanted_ = true;  // who has the turn gives it back at its end
    ZAVTurns::Ticket ticket;
    turns_.draw(ticket);
    static_cast<void>(inTurn(ticket, ZAVWaiting::never, [] { return true; }));
}

}  // namespace zav
