#pragma once

#include <ZAVEventRepository/DDLog.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace zav::test {

/// One captured log line: every field but the source line.
struct LogRecord {
    bool asynchronous;
    std::uint32_t level;
    std::uint32_t flag;
    int context;
    std::string file;
    std::string function;
    const void* tag;
    std::string format;
    std::string message;

    friend bool operator==(const LogRecord&, const LogRecord&) = default;
};

std::ostream& operator<<(std::ostream& stream, const LogRecord& record);

/// The verbose line, and the error line, that an operation of the event repository is expected to write while
/// `LogCapture` is in place.
LogRecord verboseLine(const std::string& function, const std::string& format, const std::string& message);
LogRecord errorLine(const std::string& function, const std::string& format, const std::string& message);

/// Takes every log line, with all guards open, for as long as it lives; then puts the default sink and the
/// guards back.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    [[nodiscard]] std::vector<LogRecord> records() const;
    void clear();

private:
    class Sink;
    std::shared_ptr<Sink> sink_;
    std::int32_t preference_;
    std::uint32_t level_;
};

}  // namespace zav::test
