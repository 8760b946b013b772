#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <ZAVEventRepository/FMDatabaseOptions.h>
#include <ZAVEventRepository/ZAVError.h>

#include "Private/Database/Internal/ZAVKeptOptions.h"
#include "Store/Internal/ZAVHalt.h"
#include "Store/Internal/ZAVStoreHandle.h"

namespace zav {

/// The handles of a store that read: opened when they are needed first, lent to one thread at a time.
class ZAVReadingHandles {
public:
    ZAVReadingHandles(std::string path, const FMDatabaseOptions& options, std::size_t capacity);
    ~ZAVReadingHandles() = default;
    ZAVReadingHandles(const ZAVReadingHandles&) = delete;
    ZAVReadingHandles& operator=(const ZAVReadingHandles&) = delete;

    /// A handle, or the right to open one, that is lent until this goes.
    class Loan {
    public:
        /// Waits when all are lent. Look whether it `isHad`: it is not when one who waits so is sent away.
        Loan(ZAVReadingHandles& handles, ZAVWaiting waiting)
            : owner_(handles), isHad_(handles.take(waiting, *this)) {}
        ~Loan();
        Loan(const Loan&) = delete;
        Loan& operator=(const Loan&) = delete;

        [[nodiscard]] bool isHad() const noexcept { return isHad_; }

        /// The handle, opened now if need be; null when it cannot be, with the reason in `error`.
        [[nodiscard]] ZAVStoreHandle* handle(ZAVError* error);

    private:
        friend class ZAVReadingHandles;
        ZAVReadingHandles& owner_;
        std::unique_ptr<ZAVStoreHandle> handle_;
        std::uint64_t generation_ = 0;
        const bool isHad_;
    };

    /// Closes the handles that are not lent, and those that are when they are given back.
    void discard() noexcept;

    /// The same, and lends none any more.
    void halt(ZAVHalt::Reach reach) noexcept;
    void haltForGood() noexcept;

    /// While it is halted: waits until all handles are closed. False when the deadline comes before.
    [[nodiscard]] bool awaitEnd(std::chrono::steady_clock::time_point deadline) noexcept;
    void goOn() noexcept;

private:
    [[nodiscard]] bool take(ZAVWaiting waiting, Loan& loan) noexcept;
    void takeBack(Loan& loan) noexcept;

    /// Changes something under the lock, and tells those who wait.
    template <class Change>
    void change(const Change& change) noexcept {
        {
            const std::lock_guard lock(mutex_);
            change();
        }
        changed_.notify_all();
    }

    const std::string path_;
    const ZAVKeptOptions kept_;
    const std::size_t capacity_;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::unique_ptr<ZAVStoreHandle>> idle_;
    std::size_t places_ = 0;        ///< that are taken, those of the idle ones among them
    std::uint64_t generation_ = 0;  ///< of the handles that are kept when they are given back
    ZAVHalt halt_;
};

}  // namespace zav
