#include "Compaction/FakeFileSystem.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace {

std::function<std::optional<fsblkcnt_t>(const std::string&)> answer;

}  // namespace

/// In the place of the system's own: what is defined in a program comes first.
extern "C" int statvfs(const char* path, struct statvfs* fileSystem) noexcept {
    const int directory = ::open(path, O_RDONLY | O_CLOEXEC);
    const int status = ::fstatvfs(directory, fileSystem);
    ::close(directory);
    if (const auto bytes = status == 0 && answer ? answer(path) : std::nullopt) {
        fileSystem->f_frsize = 1;
        fileSystem->f_bsize = 1;
        fileSystem->f_bavail = *bytes;
        fileSystem->f_bfree = *bytes;
    }
    return status;
}

namespace zav::test {

FakeFileSystem::FakeFileSystem(std::function<std::optional<fsblkcnt_t>(const std::string&)> freeBytes) {
    answer = std::move(freeBytes);
}

FakeFileSystem::~FakeFileSystem() {
    answer = nullptr;
}

}  // namespace zav::test
