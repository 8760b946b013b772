#include "Store/Internal/ZAVReadingHandles.h"

#include <utility>

namespace zav {

ZAVReadingHandles::ZAVReadingHandles(std::string path, const FMDatabaseOptions& options, std::size_t capacity)
    : path_(std::move(path)), kept_(options), capacity_(capacity) {
    idle_.reserve(capacity);  // giving back needs no memory
}

ZAVReadingHandles::Loan::~Loan() {
    if (isHad_) {
        owner_.takeBack(*this);
    }
}

ZAVStoreHandle* ZAVReadingHandles::Loan::handle(ZAVError* error) {
    if (handle_ == nullptr) {
        const auto database = FMDatabase::databaseWithPath(owner_.path_, owner_.kept_.options, error);
        handle_ = database == nullptr ? nullptr : std::make_unique<ZAVStoreHandle>(database);
    }
    return handle_.get();
}

bool ZAVReadingHandles::take(ZAVWaiting waiting, Loan& loan) noexcept {
    std::unique_lock lock(mutex_);
    const auto isThere = [this] { return !halt_.isOn() && (!idle_.empty() || places_ < capacity_); };
    changed_.wait(lock,
                  [&] { return isThere() || halt_.sendsAway(waiting) || waiting == ZAVWaiting::never; });
    if (!isThere()) {
        return false;
    }
    loan.generation_ = generation_;
    if (idle_.empty()) {
        ++places_;
    } else {
        // The one that was used last has most of the file in its memory.
        loan.handle_ = std::move(idle_.back());
        idle_.pop_back();
    }
    return true;
}

void ZAVReadingHandles::takeBack(Loan& loan) noexcept {
    {
        std::unique_lock lock(mutex_);
        if (loan.handle_ != nullptr && (halt_.isOn() || loan.generation_ != generation_)) {
            lock.unlock();
            loan.handle_.reset();
            lock.lock();
        }
        if (loan.handle_ == nullptr) {
            --places_;
        } else {
            idle_.push_back(std::move(loan.handle_));
        }
    }
    changed_.notify_all();
}

void ZAVReadingHandles::discard() noexcept {
    change([this] {
        places_ -= idle_.size();
        idle_.clear();
        ++generation_;
    });
}

void ZAVReadingHandles::halt(ZAVHalt::Reach reach) noexcept {
    change([&] { halt_.begin(reach); });
    discard();
}

void ZAVReadingHandles::haltForGood() noexcept {
    change([this] { halt_.beginForGood(); });
}

bool ZAVReadingHandles::awaitEnd(std::chrono::steady_clock::time_point deadline) noexcept {
    std::unique_lock lock(mutex_);
    return changed_.wait_until(lock, deadline, [this] { return places_ == 0; });
}

void ZAVReadingHandles::goOn() noexcept {
    change([this] { halt_.end(); });
}

}  // namespace zav
