#pragma once

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <ZAVEventRepository/FMDatabaseOptions.h>
#include <ZAVEventRepository/ZAVError.h>

#include "Private/Database/Internal/ZAVKeptOptions.h"
#include "Store/Internal/ZAVStoreHandle.h"

namespace zav {

/// The handles of a store that read: opened when they are needed first, lent to one thread at a time.
class ZAVReadingHandles {
public:
    ZAVReadingHandles(std::string path, const FMDatabaseOptions& options, std::size_t capacity);
    ~ZAVReadingHandles() = default;
    ZAVReadingHandles(const ZAVReadingHandles&) = delete;
    ZAVReadingHandles& operator=(const ZAVReadingHandles&) = delete;

    /// A handle that is lent until this goes. Waits when all are lent.
    class Loan {
    public:
        /// The handle is null when none can be opened, with the reason in `error`.
        Loan(ZAVReadingHandles& handles, ZAVError* error);
        ~Loan() = default;
        Loan(const Loan&) = delete;
        Loan& operator=(const Loan&) = delete;

        [[nodiscard]] ZAVStoreHandle* handle() const noexcept { return place_.handle.get(); }

    private:
        /// A handle, or the right to open one.
        struct Place {
            explicit Place(ZAVReadingHandles& handles) : owner(handles), handle(handles.take()) {}
            ~Place() { owner.takeBack(std::move(handle)); }
            Place(const Place&) = delete;
            Place& operator=(const Place&) = delete;

            ZAVReadingHandles& owner;
            std::unique_ptr<ZAVStoreHandle> handle;
        };

        Place place_;
    };

    /// Closes the handles. None may be lent.
    void close() noexcept { idle_.clear(); }

private:
    [[nodiscard]] std::unique_ptr<ZAVStoreHandle> take();
    void takeBack(std::unique_ptr<ZAVStoreHandle> handle) noexcept;
    [[nodiscard]] std::unique_ptr<ZAVStoreHandle> open(ZAVError* error) const;

    const std::string path_;
    const ZAVKeptOptions kept_;
    const std::size_t capacity_;

    std::mutex mutex_;
    std::condition_variable returned_;
    std::vector<std::unique_ptr<ZAVStoreHandle>> idle_;
    std::size_t places_ = 0;  ///< that are taken, those of the idle ones among them
};

}  // namespace zav
