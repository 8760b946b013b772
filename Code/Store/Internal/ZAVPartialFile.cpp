#include "Store/Internal/ZAVPartialFile.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "Store/Internal/ZAVContentNames.h"

namespace zav {

ZAVPartialFile::ZAVPartialFile(const ZAVContentDirectory& root, const ZAVContentPath& path)
    : name_(path.names().back()), partialName_(ZAVMakePartialName(name_)) {
    make(root, ZAVContentDirectory::Names(path.names()).first(path.names().size() - 1));
}

void ZAVPartialFile::make(const ZAVContentDirectory& root, ZAVContentDirectory::Names parents) {
    constexpr int attempts = 100;
    for (int attempt = 1;; ++attempt) {
        directory_.emplace(root.openOrMake(parents));
        try {
            file_.emplace(directory_->make(partialName_));
            return;
        } catch (const std::system_error& failure) {
            // An empty directory may be removed by somebody before there is a file in it.
            if (failure.code() != std::errc::no_such_file_or_directory || attempt == attempts) {
                throw;
            }
        }
    }
}

ZAVPartialFile::~ZAVPartialFile() {
    if (isInPlace_) {
        return;
    }
    try {
        directory_->remove(partialName_);
    } catch (const std::system_error&) {
        return;  // a repair removes it
    }
}

void ZAVPartialFile::append(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file_->number(), bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category());
        }
        if (written > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(written));
            size_ += static_cast<std::uint64_t>(written);
        }
    }
}

void ZAVPartialFile::sync() {
    if (::fsync(file_->number()) != 0) {
        throw std::system_error(errno, std::generic_category());
    }
    file_.reset();
}

void ZAVPartialFile::moveIntoPlace() {
    if (!directory_->rename(partialName_, name_)) {
        throw std::system_error(std::make_error_code(std::errc::no_such_file_or_directory));
    }
    isInPlace_ = true;
    directory_->sync();
}

}  // namespace zav
