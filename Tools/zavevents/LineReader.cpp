#include "LineReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include <ZAVEventRepository/ZAVPrintable.h>

#include "BadLine.h"
#include "ToolError.h"

namespace zavevents {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t blockSize = std::size_t{1} << 18;

/// The encoding of text that is not in UTF-8, by how it begins: with a mark, or with a bracket and the zero
/// bytes around it. Of two that begin alike the longer comes first.
struct Encoding {
    std::string_view beginning;
    const char* name;
};
constexpr std::array<Encoding, 8> otherEncodings{{
    {"\xFF\xFE\0\0"sv, "UTF-32"},
    {"\0\0\xFE\xFF"sv, "UTF-32"},
    {"{\0\0\0"sv, "UTF-32"},
    {"\0\0\0{"sv, "UTF-32"},
    {"\xFF\xFE"sv, "UTF-16"},
    {"\xFE\xFF"sv, "UTF-16"},
    {"{\0"sv, "UTF-16"},
    {"\0{"sv, "UTF-16"},
}};

}  // namespace

LineReader::LineReader(const std::string& path, const StopSignals* signals)
    : name_(path == "-" ? "standard input" : zav::ZAVPrintable(path)),
      signals_(signals),
      descriptor_(path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    struct stat status {};
    if (descriptor_ < 0 || ::fstat(descriptor_, &status) != 0) {
        throw ToolError(name_ + ": " + std::strerror(errno));
    }
    if (S_ISDIR(status.st_mode)) {
        if (descriptor_ != STDIN_FILENO) {
            ::close(descriptor_);
        }
        throw ToolError(name_ + ": " + std::strerror(EISDIR));
    }
}

LineReader::~LineReader() {
    if (descriptor_ != STDIN_FILENO) {
        ::close(descriptor_);  // a file that was only read cannot lose anything
    }
}

std::optional<std::string_view> LineReader::next() {
    std::size_t end = buffer_.find('\n', position_);
    while (end == std::string::npos) {
        const std::size_t searchFrom = buffer_.size() - position_;
        const auto count = fill();
        if (!count || (*count == 0 && position_ == buffer_.size())) {
            return std::nullopt;
        }
        end = *count == 0 ? buffer_.size() : buffer_.find('\n', searchFrom);
    }
    if (++lineNumber_ == 1) {
        checkEncoding();
    }
    const std::string_view line = std::string_view(buffer_).substr(position_, end - position_);
    position_ = end == buffer_.size() ? end : end + 1;
    return line;
}

std::optional<std::string_view> LineReader::nextWithText() {
    auto line = next();
    while (line && line->find_first_not_of(" \t\r") == std::string_view::npos) {
        line = next();
    }
    return line;
}

std::string LineReader::place() const {
    return name_ + ":" + std::to_string(lineNumber_) + ": ";
}

/// Drops what has been returned and reads a further block.
/// @return how many bytes that has; 0 at the end, none after a signal.
std::optional<std::size_t> LineReader::fill() {
    buffer_.erase(0, position_);
    position_ = 0;
    const std::size_t kept = buffer_.size();
    buffer_.resize(kept + blockSize);
    ssize_t count = -1;
    do {
        pollfd input{descriptor_, POLLIN, 0};
        if (signals_ != nullptr && !signals_->waitFor({&input, 1})) {
            buffer_.resize(kept);
            return std::nullopt;
        }
        count = ::read(descriptor_, buffer_.data() + kept, blockSize);
    } while (count < 0 && (errno == EINTR || errno == EAGAIN));
    buffer_.resize(kept + static_cast<std::size_t>(count < 0 ? 0 : count));
    if (count < 0) {
        throw ToolError(name_ + ": " + std::strerror(errno));
    }
    return buffer_.size() - kept;
}

/// Looks at how the input begins, passing over a mark of UTF-8.
void LineReader::checkEncoding() {
    const std::string_view text(buffer_);
    for (const auto& [beginning, name] : otherEncodings) {
        if (text.starts_with(beginning)) {
            throw BadLine(std::string("is ") + name + ", events are read as UTF-8");
        }
    }
    if (text.starts_with("\xEF\xBB\xBF")) {
        position_ += 3;
    }
}

}  // namespace zavevents
