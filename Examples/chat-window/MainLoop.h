#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <deque>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <utility>

/// What other threads want to be done on the one that waits for keys.
class MainLoop {
public:
    MainLoop() {
        if (pipe2(pipe_.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
            throw std::runtime_error("no pipe can be had");
        }
    }
    ~MainLoop() {
        close(pipe_.front());
        close(pipe_.back());
    }
    MainLoop(const MainLoop&) = delete;
    MainLoop& operator=(const MainLoop&) = delete;

    /// Has a function run soon. Any thread may call this.
    void post(std::function<void()> call) {
        const std::lock_guard lock(mutex_);
        calls_.push_back(std::move(call));
        // Where no byte finds room there are enough to wake who waits.
        [[maybe_unused]] const auto written = write(pipe_.back(), "", 1);
    }

    /// Can be read from when something was posted.
    [[nodiscard]] int descriptor() const { return pipe_.front(); }

    /// Runs what was posted until now.
    void runPosted() {
        std::array<char, 64> woken{};
        while (read(pipe_.front(), woken.data(), woken.size()) > 0) {
        }
        std::deque<std::function<void()>> calls;
        {
            const std::lock_guard lock(mutex_);
            calls.swap(calls_);
        }
        for (const auto& call : calls) {
            call();
        }
    }

private:
    std::array<int, 2> pipe_{};
    std::mutex mutex_{};
    std::deque<std::function<void()>> calls_{};
};
