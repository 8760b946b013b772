#include "Store/Internal/ZAVReadingHandles.h"

#include <utility>

namespace zav {

ZAVReadingHandles::ZAVReadingHandles(std::string path, const FMDatabaseOptions& options, std::size_t capacity)
    : path_(std::move(path)), kept_(options), capacity_(capacity) {
    idle_.reserve(capacity);  // giving back needs no memory
}

ZAVReadingHandles::Loan::Loan(ZAVReadingHandles& handles, ZAVError* error) : place_(handles) {
    if (place_.handle == nullptr) {
        place_.handle = handles.open(error);
    }
}

/// Null when one may be opened.
std::unique_ptr<ZAVStoreHandle> ZAVReadingHandles::take() {
    std::unique_lock lock(mutex_);
    returned_.wait(lock, [this] { return !idle_.empty() || places_ < capacity_; });
    if (idle_.empty()) {
        ++places_;
        return nullptr;
    }
    // The one that was used last has most of the file in its memory.
    auto handle = std::move(idle_.back());
    idle_.pop_back();
    return handle;
}

void ZAVReadingHandles::takeBack(std::unique_ptr<ZAVStoreHandle> handle) noexcept {
    {
        const std::lock_guard lock(mutex_);
        if (handle == nullptr) {
            --places_;
        } else {
            idle_.push_back(std::move(handle));
        }
    }
    returned_.notify_one();
}

std::unique_ptr<ZAVStoreHandle> ZAVReadingHandles::open(ZAVError* error) const {
    const auto database = FMDatabase::databaseWithPath(path_, kept_.options, error);
    return database == nullptr ? nullptr : std::make_unique<ZAVStoreHandle>(database);
}

}  // namespace zav
