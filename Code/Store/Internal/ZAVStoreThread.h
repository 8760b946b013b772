#pragma once

#include <pthread.h>

#include <csignal>
#include <thread>
#include <utility>

namespace zav {

/// Starts a thread that receives no signals: they are the application's.
/// @throws std::system_error when there can be none.
template <class Function>
[[nodiscard]] std::thread ZAVStartThread(Function function) {
    /// Blocks all signals on this thread, which the new one inherits.
    class WithoutSignals {
    public:
        WithoutSignals() noexcept {
            sigset_t all;
            sigfillset(&all);
            pthread_sigmask(SIG_SETMASK, &all, &before_);
        }
        ~WithoutSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
        WithoutSignals(const WithoutSignals&) = delete;
        WithoutSignals& operator=(const WithoutSignals&) = delete;

    private:
        sigset_t before_{};
    };
    const WithoutSignals blocked;
    return std::thread(std::move(function));
}

}  // namespace zav
