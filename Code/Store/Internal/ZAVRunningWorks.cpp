#include "Store/Internal/ZAVRunningWorks.h"

#include <sstream>

namespace zav {

ZAVRunningWorks::Entry::Entry(ZAVRunningWorks& works, ZAVWorkControl& control, const Label& label) noexcept
    : works_(works), control_(control), label_(label) {
    works_.add(*this);
}

ZAVRunningWorks::Entry::~Entry() {
    works_.remove(*this);
}

void ZAVRunningWorks::add(Entry& work) noexcept {
    const std::lock_guard lock(mutex_);
    work.behind_ = first_;
    if (first_ != nullptr) {
        first_->before_ = &work;
    }
    first_ = &work;
    if (isStopping_) {
        work.control_.stop(ZAVWorkControl::Stop::suspended);
    }
}

void ZAVRunningWorks::remove(const Entry& work) noexcept {
    const std::lock_guard lock(mutex_);
    (work.before_ == nullptr ? first_ : work.before_->behind_) = work.behind_;
    if (work.behind_ != nullptr) {
        work.behind_->before_ = work.before_;
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
