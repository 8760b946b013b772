#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace zav {

/// A lock that is had in the order in which tickets for it were drawn. Each ticket must be used.
class ZAVTurns {
public:
    using Ticket = std::uint64_t;

    ZAVTurns() = default;
    ~ZAVTurns() = default;
    ZAVTurns(const ZAVTurns&) = delete;
    ZAVTurns& operator=(const ZAVTurns&) = delete;

    [[nodiscard]] Ticket draw() noexcept {
        const std::lock_guard lock(mutex_);
        return next_++;
    }

    /// The lock, from when all who drew before have had it, for as long as this lives.
    class Turn {
    public:
        explicit Turn(ZAVTurns& turns) noexcept : Turn(turns, turns.draw()) {}
        Turn(ZAVTurns& turns, Ticket ticket) noexcept : turns_(turns) { turns.await(ticket); }
        ~Turn() { turns_.pass(); }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        ZAVTurns& turns_;
    };

private:
    void await(Ticket ticket) noexcept {
        std::unique_lock lock(mutex_);
        passed_.wait(lock, [&] { return ticket == present_; });
    }

    void pass() noexcept {
        {
            const std::lock_guard lock(mutex_);
            ++present_;
        }
        passed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable passed_;
    Ticket next_ = 0;
    Ticket present_ = 0;
};

}  // namespace zav
