#pragma once

#include <ZAVEventRepository/ZAVStoreWork.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

namespace zav::test {

/// The main loop of an application: it runs what it is given when the test says so, on the test's thread.
class MainLoop {
public:
    /// What gives it functions.
    [[nodiscard]] ZAVExecutor executor() {
        return [this](std::function<void()> function) {
            {
                const std::lock_guard lock(mutex_);
                waiting_.push_back(std::move(function));
            }
            given_.notify_all();
        };
    }

    /// Runs what it is given until `isOver` says so; fails the test when that takes ten seconds.
    template <class IsOver>
    void runUntil(const IsOver& isOver) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!isOver()) {
            if (!runNext(end)) {
                ADD_FAILURE() << "what the loop waited for has not come";
                return;
            }
        }
    }

    /// Runs what it has been given by now.
    void runWaiting() {
        while (runNext(std::chrono::steady_clock::now())) {
        }
    }

    [[nodiscard]] std::size_t waiting() {
        const std::lock_guard lock(mutex_);
        return waiting_.size();
    }

private:
    bool runNext(std::chrono::steady_clock::time_point end) {
        std::function<void()> next;
        {
            std::unique_lock lock(mutex_);
            if (!given_.wait_until(lock, end, [this] { return !waiting_.empty(); })) {
                return false;
            }
            next = std::move(waiting_.front());
            waiting_.pop_front();
        }
        next();
        return true;
    }

    std::mutex mutex_;
    std::condition_variable given_;
    std::deque<std::function<void()>> waiting_;
};

/// Keeps what a work is told at its end.
class Outcomes {
public:
    [[nodiscard]] ZAVWorkCompletion completion() {
        return [this](const ZAVWorkOutcome& outcome) { all_.push_back(outcome); };
    }

    /// The one outcome there is; fails the test unless there comes exactly one.
    [[nodiscard]] ZAVWorkOutcome only(MainLoop& loop) {
        loop.runUntil([this] { return !all_.empty(); });
        loop.runWaiting();
        EXPECT_EQ(all_.size(), 1U) << "a completion is called once";
        return all_.empty() ? ZAVWorkOutcome() : all_.front();
    }

    [[nodiscard]] const std::deque<ZAVWorkOutcome>& all() const { return all_; }

private:
    std::deque<ZAVWorkOutcome> all_;
};

}  // namespace zav::test
