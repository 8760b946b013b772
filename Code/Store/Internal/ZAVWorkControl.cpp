#include "Store/Internal/ZAVWorkControl.h"

#include "Private/Database/Internal/ZAVConnection.h"

namespace zav {

ZAVWorkControl::Attempt ZAVWorkControl::stop(Stop reason) noexcept {
    // Under this mutex the connection is this work's, and not the next one's yet.
    const std::lock_guard lock(mutex_);
    if (stop_ == Stop::none) {
        if (isPast_) {
            return Attempt::tooLate;
        }
        stop_ = reason;
        if (connection_ != nullptr) {
            connection_->interrupt();
        }
    }
    return hasBegun_ ? Attempt::whileRunning : Attempt::beforeBegin;
}

bool ZAVWorkControl::begin(ZAVConnection& connection) noexcept {
    const std::lock_guard lock(mutex_);
    if (stop_ != Stop::none) {
        return false;
    }
    hasBegun_ = true;
    connection_ = &connection;
    return true;
}

ZAVWorkControl::Stop ZAVWorkControl::pass() noexcept {
    const std::lock_guard lock(mutex_);
    isPast_ = true;
    if (connection_ != nullptr) {
        connection_->endInterruption();
        connection_ = nullptr;
    }
    return stop_;
}

ZAVWorkControl::Stop ZAVWorkControl::stopped() noexcept {
    const std::lock_guard lock(mutex_);
    return stop_;
}

}  // namespace zav
