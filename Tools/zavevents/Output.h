#pragma once

#include <string>

namespace zavevents {

/// Standard output, written in large blocks. A full disk or a closed pipe is an error, not a short file.
class Output {
public:
    /// The text to append to. Call `flushIfLarge` now and then.
    [[nodiscard]] std::string& text() { return text_; }

    /// @throws ToolError when writing fails.
    void flushIfLarge();
    void flush();

    /// Whether standard output is a pipe, or the like, which nobody reads any more.
    [[nodiscard]] static bool isClosed();

private:
    std::string text_;
};

}  // namespace zavevents
