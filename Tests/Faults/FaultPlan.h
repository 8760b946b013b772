#pragma once

namespace zav::test {

/// Which of the calls that are counted fails. It never allocates: the calls may be those for memory.
class FaultPlan {
public:
    /// Makes the `number`th call from now on fail, counted from 1, or all from that one on.
    constexpr void fail(int number, bool fromThenOn) noexcept { *this = FaultPlan(number, fromThenOn); }

    /// Lets every call pass again.
    constexpr void heal() noexcept { armed_ = false; }

    /// How many calls have failed since `fail`.
    [[nodiscard]] constexpr int failures() const noexcept { return failures_; }

    /// Counts a call, and answers whether it fails.
    [[nodiscard]] constexpr bool fails() noexcept {
        if (!armed_ || --countdown_ > 0 || (countdown_ < 0 && !fromThenOn_)) {
            return false;
        }
        ++failures_;
        return true;
    }

    constexpr FaultPlan() noexcept = default;

private:
    constexpr FaultPlan(int number, bool fromThenOn) noexcept
        : armed_(true), fromThenOn_(fromThenOn), countdown_(number) {}

    bool armed_ = false;
    bool fromThenOn_ = false;
    int countdown_ = 0;
    int failures_ = 0;
};

}  // namespace zav::test
