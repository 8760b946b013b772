#include "StopSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <vector>

#include <ZAVEventRepository/DDLog.h>

#include "ToolError.h"

namespace zavevents {
namespace {

std::atomic<int> receivedSignal = 0;
static_assert(std::atomic<int>::is_always_lock_free, "a signal's handler may use it");

/// Written to by the handler, so that a wait ends whichever thread the signal was delivered to, and also when
/// it came just before.
std::array<int, 2> wakeup{-1, -1};

extern "C" void noteSignal(int signal) {
    int none = 0;
    receivedSignal.compare_exchange_strong(none, signal);
    const int error = errno;
    const char byte = 0;
    [[maybe_unused]] const auto written = ::write(wakeup[1], &byte, 1);  // if it is full, who waits is awake
    errno = error;
}

}  // namespace

StopSignals::StopSignals() {
    receivedSignal = 0;
    if (::pipe2(wakeup.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        throw ToolError(std::string("cannot make a pipe: ") + std::strerror(errno));
    }
    struct sigaction action {};
    action.sa_handler = noteSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    ::sigemptyset(&action.sa_mask);
    for (std::size_t index = 0; index < signals.size(); ++index) {
        ::sigaction(signals[index], nullptr, &before_[index]);
        if (before_[index].sa_handler != SIG_IGN) {
            ::sigaction(signals[index], &action, nullptr);
        }
    }
}

StopSignals::~StopSignals() {
    for (std::size_t index = 0; index < signals.size(); ++index) {
        ::sigaction(signals[index], &before_[index], nullptr);
    }
    for (int& end : wakeup) {
        ::close(end);
        end = -1;
    }
}

int StopSignals::received() const {
    return receivedSignal;
}

bool StopSignals::waitFor(std::span<pollfd> descriptors) const {
    std::vector<pollfd> waitedFor(descriptors.begin(), descriptors.end());
    waitedFor.push_back({wakeup[0], POLLIN, 0});
    while (received() == 0) {
        if (::poll(waitedFor.data(), waitedFor.size(), -1) >= 0) {
            std::copy_n(waitedFor.begin(), descriptors.size(), descriptors.begin());
            if (waitedFor.back().revents == 0) {
                return true;
            }
        } else if (errno != EINTR) {
            throw ToolError(std::string("cannot wait: ") + std::strerror(errno));
        }
    }
    return false;
}

std::string nameOfSignal(int signal) {
    return signal == SIGINT ? "SIGINT" : signal == SIGTERM ? "SIGTERM" : "SIGHUP";
}

void endBySignal(int signal) {
    zav::DDLog::flush();
    static_cast<void>(std::signal(signal, SIG_DFL));
    static_cast<void>(std::raise(signal));
}

}  // namespace zavevents
