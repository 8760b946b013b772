#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

namespace zavevents {

/// Reads a file, or standard input, line by line, holding no more of it than one block and one line.
class LineReader {
public:
    /// @param path the file; "-" for standard input.
    /// @throws ToolError when it cannot be opened.
    explicit LineReader(const std::string& path);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    /// The next line without its line break, valid until the next call; none at the end.
    /// @throws ToolError when reading fails.
    [[nodiscard]] std::optional<std::string_view> next();

    /// Number of the line that `next` returned last, counted from 1.
    [[nodiscard]] std::uint64_t lineNumber() const { return lineNumber_; }

    /// What to call the input in a message.
    [[nodiscard]] const std::string& name() const { return name_; }

private:
    [[nodiscard]] bool fill();

    std::string name_;
    std::FILE* file_;
    std::string buffer_;
    std::size_t position_ = 0;
    std::uint64_t lineNumber_ = 0;
};

}  // namespace zavevents
