#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Support/TemporaryDirectory.h"

namespace zav::test {

/// Standard error points at another descriptor while this lives.
class StandardErrorInto {
public:
    explicit StandardErrorInto(int descriptor) : before_(::dup(STDERR_FILENO)) {
        if (before_ < 0 || ::dup2(descriptor, STDERR_FILENO) < 0) {
            throw std::runtime_error("cannot redirect standard error");
        }
    }
    ~StandardErrorInto() {
        ::dup2(before_, STDERR_FILENO);
        ::close(before_);
    }
    StandardErrorInto(const StandardErrorInto&) = delete;
    StandardErrorInto& operator=(const StandardErrorInto&) = delete;

private:
    int before_;
};

/// A pipe that takes nothing until somebody reads from it.
class FullPipe {
public:
    FullPipe() {
        if (::pipe2(ends_, O_CLOEXEC | O_NONBLOCK) != 0) {
            throw std::runtime_error("cannot make a pipe");
        }
        const std::string filling(1024, '.');
        while (::write(ends_[1], filling.data(), filling.size()) > 0) {
        }
    }
    ~FullPipe() {
        ::close(ends_[0]);
        ::close(ends_[1]);
    }
    FullPipe(const FullPipe&) = delete;
    FullPipe& operator=(const FullPipe&) = delete;

    /// Whoever writes waits for room.
    void makeWritersWait() const { ::fcntl(ends_[1], F_SETFL, 0); }

    [[nodiscard]] int writingEnd() const { return ends_[1]; }

    /// All that is in the pipe now.
    [[nodiscard]] std::string readAll() const {
        std::string text;
        char buffer[4096];
        for (ssize_t size; (size = ::read(ends_[0], buffer, sizeof buffer)) > 0;) {
            text.append(buffer, static_cast<std::size_t>(size));
        }
        return text;
    }

private:
    int ends_[2];
};

/// Standard error goes into a file while this lives.
class StandardErrorFile {
public:
    StandardErrorFile() : into_(descriptor_) {}
    ~StandardErrorFile() { ::close(descriptor_); }
    StandardErrorFile(const StandardErrorFile&) = delete;
    StandardErrorFile& operator=(const StandardErrorFile&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }

    [[nodiscard]] std::vector<std::string> lines() const {
        std::ifstream file(path_);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line);
        }
        return lines;
    }

private:
    TemporaryDirectory directory_;
    std::string path_ = directory_.file("stderr");
    int descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    StandardErrorInto into_;
};

}  // namespace zav::test
