#include "Private/Logging/Internal/ZAVLogOutput.h"

#include <poll.h>
#include <pthread.h>
#include <spdlog/details/log_msg.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <span>

#include <ZAVEventRepository/ZAVPrintable.h>

#include "Private/Foundation/Internal/ZAVUndestroyed.h"
#include "Private/Logging/Internal/ZAVForks.h"

namespace zav {
namespace {

/// Time, thread and severity stand before the text.
constexpr std::size_t stampSize = 256;

// To lay a line out is to ask for the local time, for which the system takes a lock of its own: a process
// that is forked in that moment would find it taken for ever.
constinit ZAVUndestroyed<std::mutex> layingOut;

// NOLINTNEXTLINE(cert-err58-cpp): it throws nothing
[[maybe_unused]] const int waitingToFork =
    ::pthread_atfork([]() noexcept { layingOut.value.lock(); }, []() noexcept { layingOut.value.unlock(); },
                     []() noexcept { layingOut.value.unlock(); });

void writeToStandardError(std::string_view text) noexcept {
    while (!text.empty()) {
        const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            pollfd standardError{STDERR_FILENO, POLLOUT, 0};
            static_cast<void>(::poll(&standardError, 1, -1));
        } else if (errno != EINTR) {
            return;
        }
    }
}

/// The system's number of the calling thread. Asked for once, and anew in a forked process.
std::size_t threadNumber() noexcept {
    thread_local std::size_t number = 0;
    thread_local unsigned process = 0;
    if (number == 0 || process != ZAVForks::count()) {
        number = spdlog::details::os::_thread_id();
        process = ZAVForks::count();
    }
    return number;
}

}  // namespace

ZAVLogText::ZAVLogText(const DDLogMessage& message) noexcept {
    const std::span<char> text(text_);
    size_ = ZAVCopyPrintable(message.function, text.first(functionSize));
    text_[size_++] = ':';
    text_[size_++] = ' ';
    size_ += ZAVCopyPrintable(message.message, text.subspan(size_, messageSize));
}

ZAVLogStamp::ZAVLogStamp(std::uint32_t flag) noexcept
    : time(spdlog::log_clock::now()),
      thread(threadNumber()),
      severity(flag == DDLogFlagError ? spdlog::level::err : spdlog::level::trace) {}

ZAVLogOutput::ZAVLogOutput()
    : formatter_("%Y-%m-%d %H:%M:%S.%f [%t] %l %v", spdlog::pattern_time_type::local, "\n") {
    line_.reserve(stampSize + ZAVLogText::functionSize + ZAVLogText::messageSize);
}

void ZAVLogOutput::write(const ZAVLogStamp& stamp, std::string_view text) noexcept {
    try {
        spdlog::details::log_msg message(stamp.time, {}, "zav", stamp.severity,
                                         spdlog::string_view_t(text.data(), text.size()));
        message.thread_id = stamp.thread;
        line_.clear();
        {
            const std::lock_guard lock(layingOut.value);
            formatter_.format(message, line_);
        }
        writeToStandardError({line_.data(), line_.size()});
    } catch (...) {
        writeTextAlone(text);
    }
}

void ZAVLogOutput::writeTextAlone(std::string_view text) noexcept {
    writeToStandardError(text);
    writeToStandardError("\n");
}

}  // namespace zav
