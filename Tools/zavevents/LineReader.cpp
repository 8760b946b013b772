#include "LineReader.h"

#include <cerrno>
#include <cstring>

#include "ToolError.h"

namespace zavevents {
namespace {

constexpr std::size_t blockSize = std::size_t{1} << 18;

}  // namespace

LineReader::LineReader(const std::string& path)
    : name_(path == "-" ? "standard input" : path),
      file_(path == "-" ? stdin : std::fopen(path.c_str(), "rb")) {
    if (file_ == nullptr) {
        throw ToolError(path + ": " + std::strerror(errno));
    }
}

LineReader::~LineReader() {
    if (file_ != stdin) {
        static_cast<void>(std::fclose(file_));  // a file that was only read cannot lose anything
    }
}

std::optional<std::string_view> LineReader::next() {
    std::size_t searchFrom = position_;
    std::size_t end = buffer_.find('\n', searchFrom);
    while (end == std::string::npos) {
        searchFrom = buffer_.size() - position_;
        if (!fill()) {
            if (position_ == buffer_.size()) {
                return std::nullopt;
            }
            end = buffer_.size();
            break;
        }
        end = buffer_.find('\n', searchFrom);
    }
    const std::string_view line = std::string_view(buffer_).substr(position_, end - position_);
    position_ = end == buffer_.size() ? end : end + 1;
    ++lineNumber_;
    return line;
}

/// Drops what has been returned and reads a further block; false at the end of the file.
bool LineReader::fill() {
    buffer_.erase(0, position_);
    position_ = 0;
    const std::size_t kept = buffer_.size();
    buffer_.resize(kept + blockSize);
    const std::size_t count = std::fread(buffer_.data() + kept, 1, blockSize, file_);
    buffer_.resize(kept + count);
    if (count == 0 && std::ferror(file_) != 0) {
        throw ToolError(name_ + ": " + std::strerror(errno));
    }
    return count != 0;
}

}  // namespace zavevents
