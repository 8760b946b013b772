#include "Store/Internal/ZAVPartialFile.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "Store/Internal/ZAVContentFailure.h"
#include "Store/Internal/ZAVContentNames.h"

namespace zav {
namespace {

// Others make and remove the same names meanwhile.
constexpr int attemptsAtNames = 100;

[[noreturn]] void throwLastError() {
    throw std::system_error(errno, std::generic_category());
}

ZAVContentDirectory::Names parentsOf(const ZAVContentPath& path) {
    return ZAVContentDirectory::Names(path.names()).first(path.names().size() - 1);
}

}  // namespace

ZAVPartialFile::ZAVPartialFile(const ZAVContentDirectory& root, const ZAVContentPath& path)
    : name_(path.names().back()), partialName_(ZAVMakePartialName(name_)) {
    make(root, parentsOf(path));
}

ZAVPartialFile::ZAVPartialFile(const ZAVContentDirectory& root, const ZAVContentPath& path,
                               const ZAVPartialToResume& earlier)
    : name_(path.names().back()), partialName_(ZAVPartialNameOfPart(name_, earlier.part)), isLeft_(true) {
    for (int attempt = 0; attempt < attemptsAtNames; ++attempt) {
        if (resume(root, parentsOf(path), earlier)) {
            return;
        }
    }
    throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
}

void ZAVPartialFile::make(const ZAVContentDirectory& root, ZAVContentDirectory::Names parents) {
    for (int attempt = 1;; ++attempt) {
        directory_.emplace(root.openOrMake(parents));
        try {
            file_.emplace(directory_->make(partialName_));
            return;
        } catch (const std::system_error& failure) {
            // An empty directory may be removed by somebody before there is a file in it.
            if (failure.code() != std::errc::no_such_file_or_directory || attempt == attemptsAtNames) {
                throw;
            }
        }
    }
}

/// Whether it has come to have the file that has the name, alone.
bool ZAVPartialFile::resume(const ZAVContentDirectory& root, ZAVContentDirectory::Names parents,
                            const ZAVPartialToResume& earlier) {
    directory_.emplace(root.openOrMake(parents));
    try {
        if (!openWhatIsThere(earlier)) {
            return false;
        }
    } catch (const std::system_error& failure) {
        if (failure.code() == std::errc::no_such_file_or_directory ||
            failure.code() == std::errc::file_exists) {
            return false;  // somebody was faster
        }
        throw;
    }
    lock();
    if (!hasName()) {
        return false;  // who had it has given it its place, or removed it
    }
    struct stat status {};
    // What is gone on with is not old any more, and no repair takes it for left over.
    if (::futimens(file_->number(), nullptr) != 0 || ::fstat(file_->number(), &status) != 0) {
        throwLastError();
    }
    size_ = static_cast<std::uint64_t>(status.st_size);
    if (size_ > earlier.atMost) {
        startOver();
    }
    if (::lseek(file_->number(), 0, SEEK_END) < 0) {
        throwLastError();
    }
    return true;
}

bool ZAVPartialFile::openWhatIsThere(const ZAVPartialToResume& earlier) {
    const auto status = directory_->status(partialName_);
    if (!status) {
        file_.emplace(directory_->make(partialName_));
        return true;
    }
    if (ZAVIsFileOfDatabase(status->identity, earlier.database)) {
        throw ZAVContentFailure(ZAVErrorOfContent(partialName_, "belongs to the database"));
    }
    if (!status->isRegular || status->names != 1) {
        directory_->remove(partialName_);  // what was written to it would go elsewhere
        return false;
    }
    auto opened = directory_->openForWriting(partialName_, status->identity);
    if (!opened) {
        return false;
    }
    file_.emplace(*std::move(opened));
    return true;
}

/// The lock is the open file's, and so goes with this object, and with its process.
void ZAVPartialFile::lock() {
    if (::flock(file_->number(), LOCK_EX | LOCK_NB) == 0) {
        return;
    }
    if (errno != EWOULDBLOCK) {
        throwLastError();
    }
    throw ZAVContentFailure(
        ZAVErrorOfStore(ZAVEventStoreErrorInUse, partialName_ + ": is being written by another download"));
}

bool ZAVPartialFile::hasName() const {
    struct stat status {};
    if (::fstat(file_->number(), &status) != 0) {
        throwLastError();
    }
    const auto named = directory_->status(partialName_);
    return named && named->identity == ZAVFileIdentity{status.st_dev, status.st_ino};
}

ZAVPartialFile::~ZAVPartialFile() {
    if (isLeft_) {
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
            throwLastError();
        }
        if (written > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(written));
            size_ += static_cast<std::uint64_t>(written);
        }
    }
}

void ZAVPartialFile::startOver() {
    if (::ftruncate(file_->number(), 0) != 0 || ::lseek(file_->number(), 0, SEEK_SET) < 0) {
        throwLastError();
    }
    size_ = 0;
}

void ZAVPartialFile::sync() {
    if (::fsync(file_->number()) != 0) {
        throwLastError();
    }
}

void ZAVPartialFile::moveIntoPlace() {
    if (!directory_->rename(partialName_, name_)) {
        throw std::system_error(std::make_error_code(std::errc::no_such_file_or_directory));
    }
    isLeft_ = true;  // nothing has the name any more, or something that is not this one's
    directory_->sync();
}

}  // namespace zav
