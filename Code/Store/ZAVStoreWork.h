#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

class ZAVQueuedWork;

/// Runs a function soon, such as on the application's main loop: what `ZAVEventStore` tells comes this way.
///
/// It keeps the functions that it is given and runs them one after the other, in their order, after it has
/// returned. It may be called on any thread, must not throw, and must not wait for the store.
using ZAVExecutor = std::function<void(std::function<void()>)>;

/// How a work on a store ended.
struct ZAVWorkOutcome {
    /// In which of the ways.
    enum class State {
        done,       ///< it ran; what it wrote is stored
        takenBack,  ///< it ran, and did not want what it wrote to be stored
        cancelled,  ///< `ZAVPendingWork::cancel` ended it; nothing is stored
        late,       ///< it had not come to its end at its deadline; nothing is stored
        failed,     ///< nothing is stored, for the reason given
    };

    State state = State::done;    ///< in which way it ended
    ZAVError error{};             ///< why it failed; empty when the work threw
    std::exception_ptr thrown{};  ///< what the work threw; null when it did not
};

/// Called with the outcome of a work that ran beside.
using ZAVWorkCompletion = std::function<void(const ZAVWorkOutcome& outcome)>;

/// How a work runs beside.
struct ZAVWorkOptions {
    /// When it is of no use any more. A work that waits then never runs; one that runs is ended.
    std::optional<std::chrono::steady_clock::time_point> deadline{};

    /// What the work is called where it is told of, as by `ZAVEventStore::suspend`.
    std::string name{};
};

/// A work that was given to `ZAVEventStore::readAsync` or `writeAsync`. Letting go of it does not end the
/// work. Every member may be called from any thread, also after the store is gone.
class ZAV_EXPORT ZAVPendingWork {
public:
    /// For the library's own use.
    explicit ZAVPendingWork(std::shared_ptr<ZAVQueuedWork> work) noexcept;

    /// Ends the work. One that waits never runs; of one that runs each further statement fails with
    /// `SQLITE_INTERRUPT`, the present one too, and what it wrote is taken back.
    /// @return whether the outcome is `cancelled`. False when the work has come to its end, or its commit has
    /// begun and stands: the outcome says so.
    bool cancel() const;

private:
    std::shared_ptr<ZAVQueuedWork> work_;
};

}  // namespace zav
