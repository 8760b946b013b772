#include <ZAVEventRepository/DDLog.h>

#include <pthread.h>

#include <cstdlib>
#include <mutex>
#include <utility>

#include <ZAVEventRepository/ZAVStandardErrorSink.h>

#include "Private/Foundation/Internal/ZAVUndestroyed.h"

namespace zav {

std::array<std::atomic<std::int32_t>, ZAVLogComponentCount> gZAVLogPreferences = {1, 1, 1, 1, 1, 1, 1, 1,
                                                                                  1, 1, 1, 1, 1, 1, 1};
std::atomic<std::uint32_t> ddLogLevel = ~std::uint32_t{0};

namespace {

std::atomic<bool> processEnds = false;

// What was logged is written when the process exits, and from then on each line at once.
void writeAllAtExit() noexcept {
    processEnds = true;
    try {
        DDLog::flush();
    } catch (
        ...) {  // NOLINT(bugprone-empty-catch): of an application's sink; there is nobody to report it to
    }
}

/// The sink of the application, or the default one.
class CurrentSink {
public:
    /// Needs no memory.
    std::shared_ptr<DDLogSink> get() {
        const std::lock_guard lock(mutex_);
        if (!endsInOrder_) {
            endsInOrder_ = std::atexit(writeAllAtExit) == 0;
        }
        return sink_ ? sink_ : std::shared_ptr<DDLogSink>(std::shared_ptr<void>(), &defaultSink_);
    }

    void set(std::shared_ptr<DDLogSink> sink) {
        {
            const std::lock_guard lock(mutex_);
            std::swap(sink_, sink);
        }
        // Outside the lock: the old sink, if this was its last owner, is destroyed on return.
        if (!sink) {
            defaultSink_.flush();
        }
    }

    void lock() noexcept { mutex_.lock(); }
    void unlock() noexcept { mutex_.unlock(); }

private:
    std::mutex mutex_;
    std::shared_ptr<DDLogSink> sink_;
    ZAVStandardErrorSink defaultSink_;
    bool endsInOrder_ = false;
};

// Threads and static objects may log until the process is gone.
constinit ZAVUndestroyed<CurrentSink> currentSink;

// A process that is forked while another thread looks the sink up must not find it locked for ever.
[[maybe_unused]] const int lockingForForks = ::pthread_atfork([]() noexcept { currentSink.value.lock(); },
                                                              []() noexcept { currentSink.value.unlock(); },
                                                              []() noexcept { currentSink.value.unlock(); });

}  // namespace

void DDLog::write(const DDLogMessage& message) noexcept {
    try {
        const auto sink = currentSink.value.get();
        sink->write(message);
        if (processEnds) {
            sink->flush();
        }
    } catch (
        ...) {  // NOLINT(bugprone-empty-catch): the operation that logs goes on whatever becomes of its line
    }
}

void DDLog::setSink(std::shared_ptr<DDLogSink> sink) {
    currentSink.value.set(std::move(sink));
}

void DDLog::flush() {
    currentSink.value.get()->flush();
}

}  // namespace zav
