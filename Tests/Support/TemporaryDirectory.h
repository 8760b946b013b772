#pragma once

#include <filesystem>
#include <string>

namespace zav::test {

/// A directory of its own for one test, removed with all it holds when the test ends.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    [[nodiscard]] std::string file(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

/// The bytes of a file; throws when it cannot be read.
[[nodiscard]] std::string bytesOfFile(const std::string& path);

}  // namespace zav::test
