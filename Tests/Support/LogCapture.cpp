#include "Support/LogCapture.h"

#include <ostream>

namespace zav::test {
namespace {

constexpr std::uint32_t openLevel = 31;
constexpr const char* repositoryFile = "Code/Private/Model/Repositories/ZAVEventRepository";

}  // namespace

class LogCapture::Sink final : public DDLogSink {
public:
    void write(const DDLogMessage& line) override {
        const std::lock_guard lock(mutex);
        records.push_back({line.asynchronous, line.level, line.flag, line.context, std::string(line.file),
                           std::string(line.function), line.tag, std::string(line.format),
                           std::string(line.message)});
    }

    std::mutex mutex;
    std::vector<LogRecord> records;
};

std::ostream& operator<<(std::ostream& stream, const LogRecord& record) {
    return stream << "{asynchronous=" << record.asynchronous << " level=" << record.level
                  << " flag=" << record.flag << " context=" << record.context << " file=" << record.file
                  << " function=" << record.function << " tag=" << record.tag << " format=\"" << record.format
                  << "\" message=\"" << record.message << "\"}";
}

LogRecord verboseLine(const std::string& function, const std::string& format, const std::string& message) {
    return {true, openLevel, DDLogFlagVerbose, 0, repositoryFile, function, nullptr, format, message};
}

LogRecord errorLine(const std::string& function, const std::string& format, const std::string& message) {
    return {false, openLevel, DDLogFlagError, 0, repositoryFile, function, nullptr, format, message};
}

LogCapture::LogCapture()
    : sink_(std::make_shared<Sink>()),
      preference_(gZAVLogPreferences[ZAVLogComponentModel]),
      level_(ddLogLevel) {
    gZAVLogPreferences[ZAVLogComponentModel] = 5;
    ddLogLevel = openLevel;
    DDLog::setSink(sink_);
}

LogCapture::~LogCapture() {
    gZAVLogPreferences[ZAVLogComponentModel] = preference_;
    ddLogLevel = level_;
    DDLog::setSink(nullptr);
}

std::vector<LogRecord> LogCapture::records() const {
    const std::lock_guard lock(sink_->mutex);
    return sink_->records;
}

void LogCapture::clear() {
    const std::lock_guard lock(sink_->mutex);
    sink_->records.clear();
}

}  // namespace zav::test
