#include <ZAVEventRepository/ZAVStandardErrorSink.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "Private/Logging/Internal/ZAVForks.h"
#include "Private/Logging/Internal/ZAVLogOutput.h"

namespace zav {

/// The lines of one process in the order in which they came. They are written by one thread at a time: by the
/// queue's own, or by a caller who has to wait for a line that nobody is writing.
class __attribute__((visibility("hidden"))) ZAVStandardErrorSink::Queue {
public:
    Queue() = default;
    ~Queue();
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    /// Takes a line. Unless it is asynchronous it is written when this returns.
    void take(const DDLogMessage& message);

    /// Returns when every line taken so far has been written.
    void flush();

    [[nodiscard]] bool isOfThisProcess() const noexcept { return fork_ == ZAVForks::count(); }

    /// Lets go of the queue of the process from which this one was forked. It cannot be destroyed: its lock
    /// may be taken by a thread that is not here, and its own thread is not here either.
    static void abandon(Queue* queue) noexcept;

private:
    using Lock = std::unique_lock<std::mutex>;

    struct Line {
        ZAVLogStamp stamp;
        std::string text;
    };

    bool add(const DDLogMessage& message, const ZAVLogText& text);
    void writeAtOnce(const DDLogMessage& message, const ZAVLogText& text);
    bool haveThread() noexcept;
    void writeLines() noexcept;
    void writeNext(Lock& lock) noexcept;
    void writeUnlocked(const ZAVLogStamp& stamp, std::string_view text, Lock& lock) noexcept;
    void awaitWritten(std::uint64_t number, Lock& lock) noexcept;

    static constexpr std::size_t capacity = 8192;

    std::mutex mutex_;
    std::condition_variable added_;
    std::condition_variable written_;
    std::deque<Line> lines_;
    std::uint64_t addedCount_ = 0;
    std::uint64_t writtenCount_ = 0;
    bool writing_ = false;  ///< somebody is writing, and alone uses the output
    bool ending_ = false;
    ZAVLogOutput output_;
    std::thread thread_;
    const unsigned fork_ = ZAVForks::count();
    Queue* next_ = nullptr;  ///< among the abandoned ones
};

ZAVStandardErrorSink::Queue::~Queue() {
    flush();
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    added_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void ZAVStandardErrorSink::Queue::take(const DDLogMessage& message) {
    const ZAVLogText text(message);
    if (!add(message, text)) {
        writeAtOnce(message, text);
    }
}

/// False, and nothing is done, when there is no memory for the line.
bool ZAVStandardErrorSink::Queue::add(const DDLogMessage& message, const ZAVLogText& text) {
    Lock lock;
    try {
        std::string kept(text.text());
        lock = Lock(mutex_);
        while (lines_.size() >= capacity) {
            awaitWritten(addedCount_ - capacity + 1, lock);
        }
        lines_.push_back({ZAVLogStamp(message.flag), std::move(kept)});
    } catch (const std::bad_alloc&) {
        return false;
    }
    const std::uint64_t number = ++addedCount_;
    if (message.asynchronous && haveThread()) {
        added_.notify_one();
    } else {
        awaitWritten(number, lock);
    }
    return true;
}

/// Writes a line that is not in the queue, after those that are.
void ZAVStandardErrorSink::Queue::writeAtOnce(const DDLogMessage& message, const ZAVLogText& text) {
    Lock lock(mutex_);
    awaitWritten(addedCount_, lock);
    while (writing_) {
        written_.wait(lock);
    }
    writeUnlocked(ZAVLogStamp(message.flag), text.text(), lock);
    added_.notify_one();
}

void ZAVStandardErrorSink::Queue::flush() {
    Lock lock(mutex_);
    awaitWritten(addedCount_, lock);
}

/// Whether there is a thread for the lines, now if not before.
bool ZAVStandardErrorSink::Queue::haveThread() noexcept {
    if (fork_ != 0) {
        return false;  // a forked process may end at any moment, and without a word
    }
    if (!thread_.joinable()) {
        try {
            thread_ = std::thread([this] { writeLines(); });
        } catch (const std::exception&) {
            return false;
        }
    }
    return true;
}

void ZAVStandardErrorSink::Queue::writeLines() noexcept {
    Lock lock(mutex_);
    while (!ending_) {
        if (lines_.empty() || writing_) {
            added_.wait(lock);
        } else {
            writeNext(lock);
        }
    }
}

/// Writes a line without the lock. To be called when nobody is writing.
void ZAVStandardErrorSink::Queue::writeUnlocked(const ZAVLogStamp& stamp, std::string_view text,
                                                Lock& lock) noexcept {
    writing_ = true;
    lock.unlock();
    output_.write(stamp, text);
    lock.lock();
    writing_ = false;
    written_.notify_all();
}

/// Writes the first line of the queue. To be called when nobody is writing.
void ZAVStandardErrorSink::Queue::writeNext(Lock& lock) noexcept {
    const Line line = std::move(lines_.front());
    lines_.pop_front();
    writeUnlocked(line.stamp, line.text, lock);
    ++writtenCount_;
    if (!lines_.empty()) {
        added_.notify_one();
    }
}

void ZAVStandardErrorSink::Queue::awaitWritten(std::uint64_t number, Lock& lock) noexcept {
    while (writtenCount_ < number) {
        if (writing_) {
            written_.wait(lock);
        } else {
            writeNext(lock);
        }
    }
}

void ZAVStandardErrorSink::Queue::abandon(Queue* queue) noexcept {
    static std::atomic<Queue*> abandoned = nullptr;
    queue->next_ = abandoned.exchange(queue);
}

ZAVStandardErrorSink::~ZAVStandardErrorSink() {
    Queue* const queue = queue_.load();
    if (queue != nullptr && !queue->isOfThisProcess()) {
        Queue::abandon(queue);
    } else {
        delete queue;
    }
}

void ZAVStandardErrorSink::write(const DDLogMessage& message) {
    if (Queue* const queue = this->queue()) {
        queue->take(message);
    } else {
        ZAVLogOutput::writeTextAlone(ZAVLogText(message).text());
    }
}

void ZAVStandardErrorSink::flush() {
    Queue* const queue = queue_.load();
    if (queue != nullptr && queue->isOfThisProcess()) {
        queue->flush();
    }
}

/// The queue of this process, made if need be; null when there is no memory for it.
ZAVStandardErrorSink::Queue* ZAVStandardErrorSink::queue() noexcept {
    Queue* present = queue_.load(std::memory_order_acquire);
    if (present != nullptr && present->isOfThisProcess()) {
        return present;
    }
    try {
        auto made = std::make_unique<Queue>();
        Queue* const before = present;
        if (!queue_.compare_exchange_strong(present, made.get())) {
            return present;  // another thread was faster
        }
        if (before != nullptr) {
            Queue::abandon(before);
        }
        return made.release();
    } catch (const std::exception&) {
        return nullptr;
    }
}

}  // namespace zav
