#include "CallQueue.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "ToolError.h"

namespace zavevents {

/// What waits, with the descriptor that says so. An executor may outlive its queue.
class CallQueue::Waiting {
public:
    Waiting() {
        if (event_ < 0) {
            throw ToolError(std::string("cannot make an event: ") + std::strerror(errno));
        }
    }
    ~Waiting() { ::close(event_); }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

    [[nodiscard]] int descriptor() const { return event_; }

    void add(std::function<void()> call) {
        const std::lock_guard lock(mutex_);
        calls_.push_back(std::move(call));
        static_cast<void>(::eventfd_write(event_, 1));
    }

    [[nodiscard]] std::vector<std::function<void()>> take() {
        const std::lock_guard lock(mutex_);
        eventfd_t count = 0;
        static_cast<void>(::eventfd_read(event_, &count));
        return std::exchange(calls_, {});
    }

private:
    const int event_ = ::eventfd(0, static_cast<int>(EFD_CLOEXEC) | static_cast<int>(EFD_NONBLOCK));
    std::mutex mutex_;
    std::vector<std::function<void()>> calls_;
};

CallQueue::CallQueue() : waiting_(std::make_shared<Waiting>()) {}

zav::ZAVExecutor CallQueue::executor() const {
    return [queue = std::weak_ptr(waiting_)](std::function<void()> call) {
        if (const auto waiting = queue.lock()) {
            waiting->add(std::move(call));
        }
    };
}

int CallQueue::descriptor() const {
    return waiting_->descriptor();
}

void CallQueue::run() {
    for (const auto& call : waiting_->take()) {
        call();
    }
}

}  // namespace zavevents
