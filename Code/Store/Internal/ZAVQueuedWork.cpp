#include "Store/Internal/ZAVQueuedWork.h"

#include <exception>
#include <new>
#include <utility>

#include "Store/Internal/ZAVStoreErrors.h"

namespace zav {

ZAVQueuedWork::ZAVQueuedWork(Run run, ZAVWorkCompletion completion, std::shared_ptr<ZAVDeliveries> deliveries)
    : run_(std::move(run)), deliveries_(std::move(deliveries)) {
    if (completion) {
        report_ = std::make_shared<Report>(Report{std::move(completion), {}});
        call_.emplace_back([report = report_] { report->completion(report->outcome); });
    }
}

void ZAVQueuedWork::setDeadline(ZAVAlarms& alarms, ZAVAlarms::Time deadline) {
    deadline_ = alarms.set(deadline, [work = weak_from_this()] {
        if (const auto late = work.lock()) {
            late->stop(ZAVWorkControl::Stop::late);
        }
    });
    alarms_ = &alarms;
}

void ZAVQueuedWork::run() noexcept {
    ZAVWorkOutcome outcome;
    try {
        outcome = run_(control_);
    } catch (...) {
        outcome.state = ZAVWorkOutcome::State::failed;
        outcome.thrown = std::current_exception();
    }
    const ZAVWorkControl::Stop stop = control_.pass();
    if (alarms_ != nullptr) {
        alarms_->takeAway(deadline_);
    }
    run_ = nullptr;  // what the work holds goes before its completion is called
    report(stop == ZAVWorkControl::Stop::none ? std::move(outcome) : outcomeOf(stop));
}

bool ZAVQueuedWork::stop(ZAVWorkControl::Stop reason) noexcept {
    const ZAVWorkControl::Attempt attempt = control_.stop(reason);
    if (attempt == ZAVWorkControl::Attempt::beforeBegin) {
        report(outcomeOf(control_.stopped()));
    }
    return attempt != ZAVWorkControl::Attempt::tooLate && control_.stopped() == reason;
}

ZAVWorkOutcome ZAVQueuedWork::outcomeOf(ZAVWorkControl::Stop reason) noexcept {
    using State = ZAVWorkOutcome::State;
    ZAVWorkOutcome outcome;
    outcome.state = reason == ZAVWorkControl::Stop::cancelled ? State::cancelled
                    : reason == ZAVWorkControl::Stop::late    ? State::late
                                                              : State::failed;
    if (outcome.state == State::failed) {
        try {
            outcome.error = reason == ZAVWorkControl::Stop::suspended ? ZAVErrorOfSuspendedStore()
                                                                      : ZAVErrorOfClosedStore();
        } catch (const std::bad_alloc&) {
            return outcome;
        }
    }
    return outcome;
}

void ZAVQueuedWork::report(ZAVWorkOutcome outcome) noexcept {
    if (isReported_.exchange(true) || report_ == nullptr) {
        return;
    }
    report_->outcome = std::move(outcome);
    deliveries_->add(call_);
    deliveries_->handOut();
}

}  // namespace zav
