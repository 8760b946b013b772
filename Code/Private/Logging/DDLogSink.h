#pragma once

#include <cstdint>
#include <string_view>

#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// The severities, as bits of `ddLogLevel`.
enum DDLogFlag : std::uint32_t {
    DDLogFlagError = 1,     ///< after a failure
    DDLogFlagVerbose = 16,  ///< before the work
};

/// One log line as it reaches a sink. The texts are valid during the call that passes the line on.
struct DDLogMessage {
    bool asynchronous;      ///< true for a verbose line, false for an error line
    std::uint32_t level;    ///< the global mask `ddLogLevel` as it was
    std::uint32_t flag;     ///< the line's severity, a `DDLogFlag`
    int context;            ///< always 0
    std::string_view file;  ///< the source file, without its extension
    std::string_view
        function;     ///< class and selector of the operation, such as "-[ZAVEventRepository allEvents:]"
    unsigned line;    ///< informational
    const void* tag;  ///< always null
    std::string_view format;  ///< the message before its arguments were filled in
    std::string_view
        message;  ///< the message; texts, URLs and errors in it stand as they are, and need not be trusted
};

/// Where log lines go. `write` and `flush` are called on whichever thread logs, by several threads at once.
///
/// No operation fails because of its log: what `write` throws is swallowed, and its line is lost.
class ZAV_EXPORT DDLogSink {
public:
    virtual ~DDLogSink() = default;

    /// Takes one line. A sink may write an asynchronous line later; a line that is not asynchronous, and all
    /// that came before it, has been written when this returns.
    virtual void write(const DDLogMessage& message) = 0;

    /// Returns when every line taken so far has been written.
    virtual void flush() {}
};

}  // namespace zav
