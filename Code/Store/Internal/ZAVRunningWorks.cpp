#include "Store/Internal/ZAVRunningWorks.h"

#include <sstream>

namespace zav {

ZAVRunningWorks::Entry::Entry(ZAVRunningWorks& works, ZAVWorkControl& control, const Label& label) noexcept
    : works_(works), control_(control), label_(label) {
    const std::lock_guard lock(works_.mutex_);
    behind_ = works_.first_;
    if (behind_ != nullptr) {
        behind_->before_ = this;
    }
    works_.first_ = this;
    if (works_.isStopping_) {
        control_.stop(ZAVWorkControl::Stop::suspended);
    }
}

ZAVRunningWorks::Entry::~Entry() {
    const std::lock_guard lock(works_.mutex_);
    (before_ == nullptr ? works_.first_ : before_->behind_) = behind_;
    if (behind_ != nullptr) {
        behind_->before_ = before_;
    }
}

void ZAVRunningWorks::stopAll() noexcept {
    const std::lock_guard lock(mutex_);
    isStopping_ = true;
    for (const Entry* work = first_; work != nullptr; work = work->behind_) {
        work->control_.stop(ZAVWorkControl::Stop::suspended);
    }
}

void ZAVRunningWorks::goOn() noexcept {
    const std::lock_guard lock(mutex_);
    isStopping_ = false;
}

std::string ZAVRunningWorks::description() {
    std::ostringstream text;
    const std::lock_guard lock(mutex_);
    for (const Entry* work = first_; work != nullptr; work = work->behind_) {
        text << (work == first_ ? "" : ", ");
        if (work->label_.name.empty()) {
            text << "a " << work->label_.kind;
        } else {
            text << "the " << work->label_.kind << " \"" << work->label_.name << '"';
        }
        text << " on thread " << work->thread_;
    }
    return text.str();
}

}  // namespace zav
