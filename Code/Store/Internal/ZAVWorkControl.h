#pragma once

#include <mutex>

namespace zav {

class ZAVConnection;

/// Whether a work may go on. One thread runs it; any may stop it.
class ZAVWorkControl {
public:
    /// Why a work was stopped.
    enum class Stop { none, cancelled, late, closed, suspended };

    ZAVWorkControl() = default;
    ~ZAVWorkControl() = default;
    ZAVWorkControl(const ZAVWorkControl&) = delete;
    ZAVWorkControl& operator=(const ZAVWorkControl&) = delete;

    /// What became of an attempt to stop a work.
    enum class Attempt {
        tooLate,      ///< it has come to its end, or may not be stopped any more
        beforeBegin,  ///< it will not begin
        whileRunning  ///< it runs, and will be taken back
    };

    /// Stops the work. A second attempt answers as the first.
    Attempt stop(Stop reason) noexcept;

    /// By the thread that runs the work: it uses the connection from now on, until it may not be stopped.
    /// @return false when it was stopped before.
    [[nodiscard]] bool begin(ZAVConnection& connection) noexcept;

    /// By the thread that runs the work: it may not be stopped from now on, and nobody interrupts the
    /// connection for it.
    /// @return how it was stopped before, if it was.
    Stop pass() noexcept;

    /// How it was stopped, if it was.
    [[nodiscard]] Stop stopped() noexcept;

private:
    std::mutex mutex_;
    ZAVConnection* connection_ = nullptr;  ///< while the work runs and may be stopped
    bool hasBegun_ = false;
    bool isPast_ = false;
    Stop stop_ = Stop::none;
};

}  // namespace zav
