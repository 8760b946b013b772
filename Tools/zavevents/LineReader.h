#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "StopSignals.h"

namespace zavevents {

/// Reads a file, or standard input, line by line, holding no more of it than one block and one line. A mark
/// of UTF-8 at its beginning is passed over.
class LineReader {
public:
    /// @param path the file; "-" for standard input.
    /// @param signals what ends the input, if anything does before its end; outlives the reader.
    /// @throws ToolError when it cannot be opened or is a directory.
    explicit LineReader(const std::string& path, const StopSignals* signals = nullptr);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    /// The next line without its line break, valid until the next call; none at the end, and after a signal.
    /// @throws ToolError when reading fails, BadLine when the first line is text in another encoding.
    [[nodiscard]] std::optional<std::string_view> next();

    /// The next line that is not blank.
    /// @throws like `next`.
    [[nodiscard]] std::optional<std::string_view> nextWithText();

    /// Number of the line that `next` returned last, counted from 1.
    [[nodiscard]] std::uint64_t lineNumber() const { return lineNumber_; }

    /// That line, as a message about it begins.
    [[nodiscard]] std::string place() const;

private:
    [[nodiscard]] std::optional<std::size_t> fill();
    void checkEncoding();

    std::string name_;
    const StopSignals* signals_;
    int descriptor_;
    std::string buffer_;
    std::size_t position_ = 0;
    std::uint64_t lineNumber_ = 0;
};

}  // namespace zavevents
