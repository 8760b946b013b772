#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

#include <ZAVEventRepository/ZAVError.h>

#include "Store/Internal/ZAVStoreErrors.h"

namespace zav {

/// Counts who is inside, and lets nobody in while the store is suspended, or any more once it is shut.
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

        /// The same; if it is not, the reason is in `error`.
        [[nodiscard]] bool isInside(ZAVError* error) const {
            if (!isInside_) {
                ZAVStoreError(error, gate_.refusal());
            }
            return isInside_;
        }

    private:
        ZAVStoreGate& gate_;
        const bool isInside_;
    };

    /// Lets nobody in until it is opened again.
    /// @return false when it was shut before.
    [[nodiscard]] bool close() noexcept {
        const std::lock_guard lock(mutex_);
        isOpen_ = false;
        return !isShut_;
    }

    void open() noexcept {
        const std::lock_guard lock(mutex_);
        isOpen_ = true;
    }

    /// Whether it is closed, and may be opened again.
    [[nodiscard]] bool isClosed() noexcept {
        const std::lock_guard lock(mutex_);
        return !isOpen_ && !isShut_;
    }

    /// Lets nobody in any more.
    /// @return whether it was closed.
    bool shut() noexcept {
        const std::lock_guard lock(mutex_);
        isShut_ = true;
        return !isOpen_;
    }

    /// Why somebody is not let in, or was sent away.
    [[nodiscard]] ZAVError refusal() {
        const std::lock_guard lock(mutex_);
        return isShut_ ? ZAVErrorOfClosedStore() : ZAVErrorOfSuspendedStore();
    }

    /// Waits until nobody is inside.
    void awaitEmptiness() noexcept {
        std::unique_lock lock(mutex_);
        left_.wait(lock, [this] { return inside_ == 0; });
    }

private:
    [[nodiscard]] bool enter() noexcept {
        const std::lock_guard lock(mutex_);
        const bool letsIn = isOpen_ && !isShut_;
        inside_ += letsIn ? 1 : 0;
        return letsIn;
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
    bool isOpen_ = true;
    bool isShut_ = false;
};

}  // namespace zav
