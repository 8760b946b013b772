#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include <ZAVEventRepository/DDLogSink.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVFormat.h>
#include <ZAVEventRepository/ZAVLogComponent.h>

namespace zav {

/// Log level of each component, indexed by `ZAVLogComponent`: 1 and above lets error lines pass, 5 and above
/// verbose lines too. Every component starts at 1. The application sets it; any thread may, at any time.
extern ZAV_EXPORT std::array<std::atomic<std::int32_t>, ZAVLogComponentCount> gZAVLogPreferences;

/// Mask of the severities that pass, of `DDLogFlag`. Starts with every bit set.
extern ZAV_EXPORT std::atomic<std::uint32_t> ddLogLevel;

/// The logger. Every function may be called on any thread.
class ZAV_EXPORT DDLog {
public:
    /// Formats one line and passes it to the sink. The caller tests first, with `verboseIsOpen` or
    /// `errorIsOpen`, whether the line is wanted, so that one that is not costs nothing.
    ///
    /// It does not throw, whatever a description or the sink throws. A line whose arguments cannot be
    /// printed, for want of memory say, has its format for its message. The directives of a constant format
    /// are compared with the arguments at compile time: see `ZAVFormatString`.
    template <class... Arguments>
    static void log(bool asynchronous, std::uint32_t level, std::uint32_t flag, int context,
                    std::string_view file, std::string_view function, unsigned line, const void* tag,
                    ZAVFormatString<std::type_identity_t<Arguments>...> format,
                    const Arguments&... arguments) noexcept {
        std::string message;
        std::string_view printed = format.text();
        try {
            message = ZAVStringWithFormat(format, arguments...);
            printed = message;
        } catch (...) {  // NOLINT(bugprone-empty-catch): the line is worth more than its arguments
        }
        write({asynchronous, level, flag, context, file, function, line, tag, format.text(), printed});
    }

    /// Whether verbose lines of a component are wanted. False for an invalid component.
    [[nodiscard]] static bool verboseIsOpen(ZAVLogComponent component) noexcept {
        return isOpen(component, 5, DDLogFlagVerbose);
    }

    /// Whether error lines of a component are wanted. False for an invalid component.
    [[nodiscard]] static bool errorIsOpen(ZAVLogComponent component) noexcept {
        return isOpen(component, 1, DDLogFlagError);
    }

    /// Replaces the sink, which the logger shares from then on. Null puts the default sink back,
    /// `ZAVStandardErrorSink`, which writes to standard error: error lines at once, verbose lines from a
    /// thread of its own, all in the order they came.
    static void setSink(std::shared_ptr<DDLogSink> sink);

    /// Returns when the sink has written every line that it took. Throws what the sink throws.
    static void flush();

private:
    [[nodiscard]] static bool isOpen(ZAVLogComponent component, std::int32_t threshold,
                                     std::uint32_t flag) noexcept {
        return component < ZAVLogComponentCount &&
               gZAVLogPreferences[component].load(std::memory_order_relaxed) >= threshold &&
               (ddLogLevel.load(std::memory_order_relaxed) & flag) != 0;
    }

    static void write(const DDLogMessage& message) noexcept;
};

}  // namespace zav
