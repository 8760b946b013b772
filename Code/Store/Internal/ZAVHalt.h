#pragma once

#include <cstdint>

namespace zav {

/// How long somebody waits for what one has at a time.
enum class ZAVWaiting : std::uint8_t {
    never,         ///< who does not get it at once goes
    unlessHalted,  ///< for its turn; not while it is halted
    always,        ///< for its turn, and for the end of a halt
};

/// Whether something is given out at present. Used under a lock of its owner.
class ZAVHalt {
public:
    /// Who is sent away who waits.
    enum class Reach : std::uint8_t { callers, everybody };

    void begin(Reach reach) noexcept {
        isOn_ = true;
        reach_ = reach;
    }

    /// Everybody is sent away from now on.
    void beginForGood() noexcept { isForGood_ = true; }

    void end() noexcept { isOn_ = false; }

    [[nodiscard]] bool isOn() const noexcept { return isOn_ || isForGood_; }

    /// Whether one who waits so is to go.
    [[nodiscard]] bool sendsAway(ZAVWaiting waiting) const noexcept {
        return isForGood_ || (isOn_ && (reach_ == Reach::everybody || waiting != ZAVWaiting::always));
    }

private:
    bool isOn_ = false;
    bool isForGood_ = false;
    Reach reach_ = Reach::callers;
};

}  // namespace zav
