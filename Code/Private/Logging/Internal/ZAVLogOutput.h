#pragma once

#include <spdlog/common.h>
#include <spdlog/pattern_formatter.h>

#include <array>
#include <cstddef>
#include <string_view>

#include <ZAVEventRepository/DDLogSink.h>

namespace zav {

/// What a line of the default sink says, printable and bounded: the function in no more than 256 bytes, the
/// message in no more than 16 KiB. Needs no memory.
class ZAVLogText {
public:
    explicit ZAVLogText(const DDLogMessage& message) noexcept;

    [[nodiscard]] std::string_view text() const noexcept { return {text_.data(), size_}; }

    static constexpr std::size_t functionSize = 256;
    static constexpr std::size_t messageSize = 16384;

private:
    std::array<char, functionSize + messageSize + 2> text_;
    std::size_t size_;
};

/// When and on which thread a line was logged, and how severe it is.
struct ZAVLogStamp {
    /// That of a line logged now by this thread.
    explicit ZAVLogStamp(std::uint32_t flag) noexcept;

    spdlog::log_clock::time_point time;
    std::size_t thread;
    spdlog::level::level_enum severity;
};

/// Lays lines out and writes them to standard error, each in one call where the system takes it in one. Used
/// by one thread at a time. Once it is made it needs no memory.
class ZAVLogOutput {
public:
    ZAVLogOutput();

    /// Writes a line; if it cannot be laid out, its text alone. What standard error does not take is lost.
    void write(const ZAVLogStamp& stamp, std::string_view text) noexcept;

    /// Writes a text as a line, as it is.
    static void writeTextAlone(std::string_view text) noexcept;

private:
    spdlog::pattern_formatter formatter_;
    spdlog::memory_buf_t line_;
};

}  // namespace zav
