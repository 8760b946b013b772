#pragma once

#include <atomic>

#include <ZAVEventRepository/DDLogSink.h>
#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// The default sink: standard error. Verbose lines are queued and written by a thread of the sink's own,
/// which is started for the first of them; an error line waits for its turn in the same queue, so that it is
/// written when `write` returns and the order is kept. A full queue makes the caller wait: no line is
/// dropped. Destroying the sink writes what is still queued.
///
/// Where the thread cannot be started, or a line cannot be queued for want of memory, the caller writes it at
/// once. So does each caller in a process that was forked: it has no part in what its parent had queued, and
/// waits for none of it.
///
/// A line is one line of printable text: control characters, invalid UTF-8 and marks that turn the
/// direction of writing are escaped, and of a message beyond 16 KiB the beginning is written.
class ZAV_EXPORT ZAVStandardErrorSink final : public DDLogSink {
public:
    constexpr ZAVStandardErrorSink() noexcept = default;
    ~ZAVStandardErrorSink() override;
    ZAVStandardErrorSink(const ZAVStandardErrorSink&) = delete;
    ZAVStandardErrorSink& operator=(const ZAVStandardErrorSink&) = delete;

    void write(const DDLogMessage& message) override;
    void flush() override;

private:
    class Queue;
    [[nodiscard]] Queue* queue() noexcept;

    std::atomic<Queue*> queue_ = nullptr;  ///< made for the first line
};

}  // namespace zav
