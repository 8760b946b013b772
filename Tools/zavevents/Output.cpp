#include "Output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ToolError.h"

namespace zavevents {

void Output::flushIfLarge() {
    constexpr std::size_t blockSize = std::size_t{1} << 18;
    if (text_.size() >= blockSize) {
        flush();
    }
}

void Output::flush() {
    if (std::fwrite(text_.data(), 1, text_.size(), stdout) != text_.size() || std::fflush(stdout) != 0) {
        throw ToolError(std::string("standard output: ") + std::strerror(errno));
    }
    text_.clear();
}

bool Output::isClosed() {
    pollfd output{STDOUT_FILENO, 0, 0};
    return ::poll(&output, 1, 0) > 0;
}

}  // namespace zavevents
