#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace zav {

/// Counts who is inside, and lets nobody in any more once it is shut.
class ZAVStoreGate {
public:
    ZAVStoreGate() = default;
    ~ZAVStoreGate() = default;
    ZAVStoreGate(const ZAVStoreGate&) = delete;
    ZAVStoreGate& operator=(const ZAVStoreGate&) = delete;

    /// A passage, if the gate was open, for as long as this lives.
    class Passage {
    public:
        explicit Passage(ZAVStoreGate& gate) noexcept : gate_(gate), isInside_(gate.enter()) {}
        ~Passage() {
            if (isInside_) {
                gate_.leave();
            }
        }
        Passage(const Passage&) = delete;
        Passage& operator=(const Passage&) = delete;

        [[nodiscard]] bool isInside() const noexcept { return isInside_; }

    private:
        ZAVStoreGate& gate_;
        const bool isInside_;
    };

    /// @param turnsBackWaiting whether those inside who still wait for something are to leave.
    void shut(bool turnsBackWaiting) noexcept {
        const std::lock_guard lock(mutex_);
        isShut_ = true;
        turnsBackWaiting_ = turnsBackWaiting_ || turnsBackWaiting;
    }

    [[nodiscard]] bool turnsBackWaiting() noexcept {
        const std::lock_guard lock(mutex_);
        return turnsBackWaiting_;
    }

    /// Waits until nobody is inside.
    void awaitEmptiness() noexcept {
        std::unique_lock lock(mutex_);
        left_.wait(lock, [this] { return inside_ == 0; });
    }

private:
    [[nodiscard]] bool enter() noexcept {
        const std::lock_guard lock(mutex_);
        inside_ += isShut_ ? 0 : 1;
        return !isShut_;
    }

    void leave() noexcept {
        const std::lock_guard lock(mutex_);
        if (--inside_ == 0 && isShut_) {
            left_.notify_all();  // under the lock: who waits may destroy this as soon as it is had
        }
    }

    std::mutex mutex_;
    std::condition_variable left_;
    std::size_t inside_ = 0;
    bool isShut_ = false;
    bool turnsBackWaiting_ = false;
};

}  // namespace zav
