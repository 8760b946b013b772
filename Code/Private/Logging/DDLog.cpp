#include "Private/Logging/DDLog.h"

#include <cstdlib>
#include <mutex>
#include <utility>

#include "Private/Logging/ZAVStandardErrorSink.h"

namespace zav {

std::array<std::atomic<std::int32_t>, ZAVLogComponentCount> gZAVLogPreferences = {1, 1, 1, 1, 1, 1, 1, 1,
                                                                                  1, 1, 1, 1, 1, 1, 1};
std::atomic<std::uint32_t> ddLogLevel = ~std::uint32_t{0};

namespace {

/// The current sink. The default one, with its thread, is made when the first line needs it.
class CurrentSink {
public:
    std::shared_ptr<DDLogSink> get() {
        const std::lock_guard lock(mutex_);
        if (!sink_) {
            sink_ = std::make_shared<ZAVStandardErrorSink>();
        }
        return sink_;
    }

    std::shared_ptr<DDLogSink> getIfMade() {
        const std::lock_guard lock(mutex_);
        return sink_;
    }

    void set(std::shared_ptr<DDLogSink> sink) {
        const std::lock_guard lock(mutex_);
        std::swap(sink_,
                  sink);  // the old sink, if this was its last owner, is destroyed below, outside the lock
    }

private:
    std::mutex mutex_;
    std::shared_ptr<DDLogSink> sink_;
};

std::atomic<bool> processEnds = false;

CurrentSink& currentSink() {
    // Never destroyed: threads and static objects may log until the process is gone. What was logged is
    // written when the process exits, and from then on each line at once.
    static CurrentSink& current = []() -> CurrentSink& {
        static_cast<void>(std::atexit([] {
            processEnds = true;
            DDLog::flush();
        }));
        return *new CurrentSink;
    }();
    return current;
}

}  // namespace

void DDLog::write(const DDLogMessage& message) {
    const auto sink = currentSink().get();
    sink->write(message);
    if (processEnds) {
        sink->flush();
    }
}

void DDLog::setSink(std::shared_ptr<DDLogSink> sink) {
    currentSink().set(std::move(sink));
}

void DDLog::flush() {
    if (const auto sink = currentSink().getIfMade()) {
        sink->flush();
    }
}

}  // namespace zav
