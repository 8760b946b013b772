#include "Private/Logging/ZAVStandardErrorSink.h"

#include <spdlog/async.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace zav {
namespace {

constexpr std::size_t queueCapacity = 8192;

/// Standard error, counting the lines that it has written so that a caller can wait for its own.
class CountingSink final : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
public:
    void waitForCount(std::uint64_t count) const {
        std::uint64_t written = written_.load(std::memory_order_acquire);
        while (written < count) {
            written_.wait(written, std::memory_order_acquire);
            written = written_.load(std::memory_order_acquire);
        }
    }

private:
    void sink_it_(const spdlog::details::log_msg& message) override {
        output_.log(message);
        written_.fetch_add(1, std::memory_order_release);
        written_.notify_all();
    }
    void flush_() override { output_.flush(); }
    void set_formatter_(std::unique_ptr<spdlog::formatter> formatter) override {
        output_.set_formatter(std::move(formatter));
    }

    spdlog::sinks::stderr_sink_st output_;
    std::atomic<std::uint64_t> written_{0};
};

}  // namespace

class ZAVStandardErrorSink::Queue {
public:
    Queue()
        : pool_(std::make_shared<spdlog::details::thread_pool>(queueCapacity, 1)),
          sink_(std::make_shared<CountingSink>()),
          logger_(std::make_shared<spdlog::async_logger>("zav", sink_, pool_,
                                                         spdlog::async_overflow_policy::block)) {
        logger_->set_level(spdlog::level::trace);
        logger_->set_pattern("%Y-%m-%d %H:%M:%S.%f [%t] %l %v");
    }

    /// Queues one line and returns its number, counted from 1.
    std::uint64_t add(const DDLogMessage& message) {
        std::string text(message.function);
        text += ": ";
        text += message.message;
        // The lock makes the numbers agree with the order in the queue.
        const std::lock_guard lock(mutex_);
        logger_->log(message.flag == DDLogFlagError ? spdlog::level::err : spdlog::level::trace,
                     spdlog::string_view_t(text));
        return ++added_;
    }

    void waitFor(std::uint64_t number) const { sink_->waitForCount(number); }

    std::uint64_t added() {
        const std::lock_guard lock(mutex_);
        return added_;
    }

private:
    std::shared_ptr<spdlog::details::thread_pool> pool_;
    std::shared_ptr<CountingSink> sink_;
    std::shared_ptr<spdlog::async_logger> logger_;
    std::mutex mutex_;
    std::uint64_t added_ = 0;
};

ZAVStandardErrorSink::ZAVStandardErrorSink() : queue_(std::make_unique<Queue>()) {}

ZAVStandardErrorSink::~ZAVStandardErrorSink() {
    queue_->waitFor(queue_->added());
}

void ZAVStandardErrorSink::write(const DDLogMessage& message) {
    const std::uint64_t number = queue_->add(message);
    if (!message.asynchronous) {
        queue_->waitFor(number);
    }
}

void ZAVStandardErrorSink::flush() {
    queue_->waitFor(queue_->added());
}

}  // namespace zav
