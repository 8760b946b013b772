#pragma once

#include <sys/statvfs.h>

#include <functional>
#include <optional>
#include <string>

namespace zav::test {

/// While it lives, it answers in this process how many bytes are free in a directory.
class FakeFileSystem {
public:
    /// @param freeBytes none where the real answer is to be given.
    explicit FakeFileSystem(std::function<std::optional<fsblkcnt_t>(const std::string&)> freeBytes);
    ~FakeFileSystem();
    FakeFileSystem(const FakeFileSystem&) = delete;
    FakeFileSystem& operator=(const FakeFileSystem&) = delete;
};

}  // namespace zav::test
