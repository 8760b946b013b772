#pragma once

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace zav::test {

/// The locks that any process holds on a database file, its log or its shared memory, as the kernel lists
/// them.
[[nodiscard]] inline std::vector<std::string> locksOn(const std::string& database) {
    std::vector<std::string> files;
    for (const char* const suffix : {"", "-wal", "-shm"}) {
        struct stat file {};
        if (::stat((database + suffix).c_str(), &file) == 0) {
            std::array<char, 64> text{};
            std::snprintf(text.data(), text.size(), " %02x:%02x:%llu ", major(file.st_dev),
                          minor(file.st_dev), static_cast<unsigned long long>(file.st_ino));
            files.emplace_back(text.data());
        }
    }
    std::vector<std::string> locks;
    std::ifstream all("/proc/locks");
    for (std::string line; std::getline(all, line);) {
        for (const std::string& file : files) {
            if (line.find(file) != std::string::npos) {
                locks.push_back(line);
            }
        }
    }
    return locks;
}

}  // namespace zav::test
