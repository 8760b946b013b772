#include <ZAVEventRepository/ZAVContentFile.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "Store/Internal/ZAVContentFailure.h"
#include "Store/Internal/ZAVDownload.h"
#include "Store/Internal/ZAVOpenedContent.h"

namespace zav {

ZAVContentFile::ZAVContentFile(std::unique_ptr<ZAVOpenedContent> opened) noexcept
    : opened_(std::move(opened)) {}

ZAVContentFile::ZAVContentFile(ZAVContentFile&& other) noexcept = default;

ZAVContentFile& ZAVContentFile::operator=(ZAVContentFile&& other) noexcept = default;

ZAVContentFile::~ZAVContentFile() = default;

std::uint64_t ZAVContentFile::size() const noexcept {
    return opened_->size;
}

int ZAVContentFile::descriptor() const noexcept {
    return opened_->file.number();
}

std::optional<std::size_t> ZAVContentFile::read(std::uint64_t position, std::span<std::uint8_t> bytes,
                                                ZAVError* error) const {
    std::size_t count = 0;
    while (count < bytes.size()) {
        const ssize_t got = ::pread(descriptor(), bytes.data() + count, bytes.size() - count,
                                    static_cast<off_t>(position + count));
        if (got == 0) {
            break;
        }
        if (got < 0 && errno != EINTR) {
            ZAVStoreError(error, ZAVErrorOfContent(opened_->place, std::strerror(errno)));
            return std::nullopt;
        }
        count += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    }
    return count;
}

std::optional<ZAVData> ZAVContentFile::readAll(ZAVError* error) const {
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size()));
    const auto count = read(0, bytes, error);
    return count ? std::optional(ZAVData(std::span<const std::uint8_t>(bytes).first(*count))) : std::nullopt;
}

ZAVContentWriter::ZAVContentWriter(std::unique_ptr<ZAVDownload> download) noexcept
    : download_(std::move(download)) {}

ZAVContentWriter::ZAVContentWriter(ZAVContentWriter&& other) noexcept = default;

ZAVContentWriter& ZAVContentWriter::operator=(ZAVContentWriter&& other) noexcept = default;

ZAVContentWriter::~ZAVContentWriter() = default;

bool ZAVContentWriter::append(std::span<const std::uint8_t> bytes, ZAVError* error) {
    return download_->append(bytes, error);
}

std::uint64_t ZAVContentWriter::size() const noexcept {
    return download_->size();
}

bool ZAVContentWriter::startOver(ZAVError* error) {
    return download_->startOver(error);
}

bool ZAVContentWriter::finish(ZAVError* error) {
    return download_->finish(error);
}

}  // namespace zav
