#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include <ZAVEventRepository/ZAVStoreWork.h>

#include "Store/Internal/ZAVAlarms.h"
#include "Store/Internal/ZAVDeliveries.h"
#include "Store/Internal/ZAVWorkControl.h"

namespace zav {

/// A work that waits for a thread of the store, and then runs there. Its completion is called once, through
/// the store's deliveries.
class ZAVQueuedWork : public std::enable_shared_from_this<ZAVQueuedWork> {
public:
    /// Runs the work, which may throw.
    using Run = std::function<ZAVWorkOutcome(ZAVWorkControl& control)>;

    /// @param completion may be empty.
    ZAVQueuedWork(Run run, ZAVWorkCompletion completion, std::shared_ptr<ZAVDeliveries> deliveries);
    ~ZAVQueuedWork() = default;
    ZAVQueuedWork(const ZAVQueuedWork&) = delete;
    ZAVQueuedWork& operator=(const ZAVQueuedWork&) = delete;

    /// Has the work stopped at a time, unless it has been run by then. Before it is queued, and once.
    /// @throws std::system_error when there can be no thread for it.
    void setDeadline(ZAVAlarms& alarms, ZAVAlarms::Time deadline);

    /// Runs the work and reports its outcome. Once, on a thread of the store.
    void run() noexcept;

    /// Stops the work. One that has not begun is reported at once.
    /// @return whether it could be stopped for this reason.
    bool stop(ZAVWorkControl::Stop reason) noexcept;

    /// The outcome of a work that was stopped. For want of memory it is without an error.
    [[nodiscard]] static ZAVWorkOutcome outcomeOf(ZAVWorkControl::Stop reason) noexcept;

private:
    /// What the completion is called with; it outlives the work, which has memory ready for being reported.
    struct Report {
        ZAVWorkCompletion completion;
        ZAVWorkOutcome outcome;
    };

    void report(ZAVWorkOutcome outcome) noexcept;

    ZAVWorkControl control_;
    Run run_;
    std::shared_ptr<Report> report_;
    ZAVDeliveries::Calls call_;
    std::shared_ptr<ZAVDeliveries> deliveries_;
    ZAVAlarms* alarms_ = nullptr;
    ZAVAlarms::Alarm deadline_;
    std::atomic<bool> isReported_{false};
};

}  // namespace zav
