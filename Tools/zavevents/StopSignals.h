#pragma once

#include <poll.h>

#include <array>
#include <csignal>
#include <span>
#include <string>

namespace zavevents {

/// While it lives, the signals that ask a process to end (SIGINT, SIGTERM, SIGHUP) are a question that it
/// answers when it can: it finishes or undoes what it is about. A second one of the same kind ends it at
/// once. One that the process was started to ignore stays ignored. There is at most one such object.
class StopSignals {
public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /// The signal that came first; 0 when none did.
    [[nodiscard]] int received() const;

    /// Waits until something happens to one of some descriptors, as `poll` does.
    /// @return false when a signal has come instead.
    [[nodiscard]] bool waitFor(std::span<pollfd> descriptors) const;

private:
    static constexpr std::array<int, 3> signals{SIGINT, SIGTERM, SIGHUP};

    std::array<struct sigaction, signals.size()> before_{};
};

/// The name of one of these signals.
[[nodiscard]] std::string nameOfSignal(int signal);

/// Ends the process as an unhandled signal does, once all that the library has logged is written.
void endBySignal(int signal);

}  // namespace zavevents
