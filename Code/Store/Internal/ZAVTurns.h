#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <utility>

#include "Store/Internal/ZAVHalt.h"

namespace zav {

/// A lock that is had in the order in which tickets for it were drawn. Each ticket that was drawn must be
/// used, once.
class ZAVTurns {
public:
    /// A place in the queue. It stays where it is from when it is drawn until its turn is over.
    class Ticket {
    public:
        Ticket() = default;
        ~Ticket() = default;
        Ticket(const Ticket&) = delete;
        Ticket& operator=(const Ticket&) = delete;

    private:
        friend class ZAVTurns;
        Ticket* before_ = nullptr;
        Ticket* behind_ = nullptr;
    };

    /// @param putAway is called by one whose turn ends when the turns were halted and are not waited for any
    /// more; it has the turn still. It must not throw.
    explicit ZAVTurns(std::function<void()> putAway) : putAway_(std::move(putAway)) {}
    ~ZAVTurns() = default;
    ZAVTurns(const ZAVTurns&) = delete;
    ZAVTurns& operator=(const ZAVTurns&) = delete;

    void draw(Ticket& ticket) noexcept {
        const std::lock_guard lock(mutex_);
        ticket.before_ = last_;
        (last_ == nullptr ? first_ : last_->behind_) = &ticket;
        last_ = &ticket;
    }

    /// The lock, from when all who drew before have had it, for as long as this lives.
    class Turn {
    public:
        /// Look whether it `isHad`: it is not when one who waits so is sent away.
        Turn(ZAVTurns& turns, Ticket& ticket, ZAVWaiting waiting) noexcept
            : turns_(turns), ticket_(ticket), isHad_(turns.await(ticket, waiting)) {}
        ~Turn() {
            if (isHad_) {
                turns_.pass(ticket_);
            }
        }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

        [[nodiscard]] bool isHad() const noexcept { return isHad_; }

    private:
        ZAVTurns& turns_;
        Ticket& ticket_;
        const bool isHad_;
    };

    /// Nobody gets a turn any more.
    void halt(ZAVHalt::Reach reach) noexcept {
        change([&] { halt_.begin(reach); });
    }

    /// The same, and for everybody.
    void haltForGood() noexcept {
        change([&] { halt_.beginForGood(); });
    }

    /// While it is halted: waits until the present turn is over.
    /// @return false when the deadline comes before; who has the turn puts away then what it guards.
    [[nodiscard]] bool awaitEnd(std::chrono::steady_clock::time_point deadline) noexcept {
        std::unique_lock lock(mutex_);
        isLeftAlone_ = !changed_.wait_until(lock, deadline, [this] { return !isTaken_; });
        return !isLeftAlone_;
    }

    /// While it is halted: whether nobody has the turn, and it is the caller's.
    [[nodiscard]] bool isFree() noexcept {
        const std::lock_guard lock(mutex_);
        return !isTaken_;
    }

    void goOn() noexcept {
        change([&] {
            halt_.end();
            isLeftAlone_ = false;
        });
    }

private:
    template <class Change>
    void change(const Change& change) noexcept {
        {
            const std::lock_guard lock(mutex_);
            change();
        }
        changed_.notify_all();
    }

    [[nodiscard]] bool await(Ticket& ticket, ZAVWaiting waiting) noexcept {
        std::unique_lock lock(mutex_);
        const auto isNext = [&] { return !halt_.isOn() && !isTaken_ && first_ == &ticket; };
        changed_.wait(lock,
                      [&] { return isNext() || halt_.sendsAway(waiting) || waiting == ZAVWaiting::never; });
        if (isNext()) {
            isTaken_ = true;
            return true;
        }
        remove(ticket);
        lock.unlock();
        changed_.notify_all();
        return false;
    }

    void pass(Ticket& ticket) noexcept {
        std::unique_lock lock(mutex_);
        if (isLeftAlone_) {
            lock.unlock();
            putAway_();
            lock.lock();
        }
        isTaken_ = false;
        remove(ticket);
        lock.unlock();
        changed_.notify_all();
    }

    /// The mutex must be held.
    void remove(Ticket& ticket) noexcept {
        (ticket.before_ == nullptr ? first_ : ticket.before_->behind_) = ticket.behind_;
        (ticket.behind_ == nullptr ? last_ : ticket.behind_->before_) = ticket.before_;
    }

    const std::function<void()> putAway_;
    std::mutex mutex_;
    std::condition_variable changed_;
    Ticket* first_ = nullptr;
    Ticket* last_ = nullptr;
    ZAVHalt halt_;
    bool isTaken_ = false;
    bool isLeftAlone_ = false;  ///< halted, and nobody waits for the end of the turn
};

}  // namespace zav
