#pragma once

#include <functional>
#include <list>
#include <mutex>

#include <ZAVEventRepository/ZAVStoreWork.h>

namespace zav {

/// Hands calls to the application's executor, in the order in which they were added, with no lock held.
class ZAVDeliveries {
public:
    using Calls = std::list<std::function<void()>>;

    /// @param executor may be empty; nothing may be added then.
    explicit ZAVDeliveries(ZAVExecutor executor) : executor_(std::move(executor)) {}
    ~ZAVDeliveries() = default;
    ZAVDeliveries(const ZAVDeliveries&) = delete;
    ZAVDeliveries& operator=(const ZAVDeliveries&) = delete;

    [[nodiscard]] bool hasExecutor() const noexcept { return executor_ != nullptr; }

    /// Takes the calls, which wait for `handOut`.
    void add(Calls& calls) noexcept;

    /// Hands out what waits, unless another thread is doing so.
    void handOut() noexcept;

private:
    const ZAVExecutor executor_;
    std::mutex mutex_;
    Calls waiting_;
    bool isHandingOut_ = false;
};

}  // namespace zav
