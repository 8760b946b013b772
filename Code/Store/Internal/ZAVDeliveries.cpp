#include "Store/Internal/ZAVDeliveries.h"

#include <utility>

namespace zav {

void ZAVDeliveries::add(Calls& calls) noexcept {
    const std::lock_guard lock(mutex_);
    waiting_.splice(waiting_.end(), calls);
}

void ZAVDeliveries::handOut() noexcept {
    std::unique_lock lock(mutex_);
    if (isHandingOut_) {
        return;
    }
    isHandingOut_ = true;
    while (!waiting_.empty()) {
        Calls next;
        next.splice(next.end(), waiting_, waiting_.begin());
        lock.unlock();
        executor_(std::move(next.front()));
        next.clear();
        lock.lock();
    }
    isHandingOut_ = false;
}

}  // namespace zav
