#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVContentPath.h>

#include "Store/Internal/ZAVContentDirectory.h"

namespace zav {

/// A file that is written beside its place, in its directory, and removed unless it comes there.
///
/// What fails throws `std::system_error`.
class ZAVPartialFile {
public:
    /// Makes the directories on the way, if need be.
    ZAVPartialFile(const ZAVContentDirectory& root, const ZAVContentPath& path);
    ZAVPartialFile(const ZAVPartialFile&) = delete;
    ZAVPartialFile& operator=(const ZAVPartialFile&) = delete;
    ~ZAVPartialFile();

    void append(std::span<const std::uint8_t> bytes);

    /// Has the device keep what was written.
    void sync();

    /// Gives it its name, over whatever has it.
    void moveIntoPlace();

    [[nodiscard]] std::uint64_t size() const noexcept { return size_; }

private:
    void make(const ZAVContentDirectory& root, ZAVContentDirectory::Names parents);

    std::string name_;
    std::string partialName_;
    std::optional<ZAVOpenDirectory> directory_;
    std::optional<ZAVFileDescriptor> file_;
    std::uint64_t size_ = 0;
    bool isInPlace_ = false;
};

}  // namespace zav
