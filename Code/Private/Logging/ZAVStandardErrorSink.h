#pragma once

#include <memory>

#include "Private/Foundation/ZAVExport.h"
#include "Private/Logging/DDLogSink.h"

namespace zav {

/// The default sink: standard error. Verbose lines are queued and written by a thread of the sink's own; an
/// error line waits for its turn in the same queue, so that it is written when `write` returns and the order
/// is kept. A full queue makes the caller wait: no line is dropped. Destroying the sink writes what is still
/// queued.
class ZAV_EXPORT ZAVStandardErrorSink final : public DDLogSink {
public:
    ZAVStandardErrorSink();
    ~ZAVStandardErrorSink() override;
    ZAVStandardErrorSink(const ZAVStandardErrorSink&) = delete;
    ZAVStandardErrorSink& operator=(const ZAVStandardErrorSink&) = delete;

    void write(const DDLogMessage& message) override;
    void flush() override;

private:
    class Queue;
    std::unique_ptr<Queue> queue_;
};

}  // namespace zav
