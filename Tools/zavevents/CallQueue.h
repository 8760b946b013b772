#pragma once

#include <memory>

#include <ZAVEventRepository/ZAVEventStoreOptions.h>

namespace zavevents {

/// Calls that other threads hand to the one which runs them, whenever it finds that there are some.
class CallQueue {
public:
    /// @throws ToolError when the system gives no descriptor.
    CallQueue();

    /// Takes calls in, on any thread; what comes after the queue is gone is dropped.
    [[nodiscard]] zav::ZAVExecutor executor() const;

    /// A descriptor that can be read while calls wait.
    [[nodiscard]] int descriptor() const;

    /// Runs the calls that wait.
    void run();

private:
    class Waiting;

    std::shared_ptr<Waiting> waiting_;
};

}  // namespace zavevents
