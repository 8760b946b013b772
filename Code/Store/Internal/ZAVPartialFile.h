#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <ZAVEventRepository/ZAVContentPath.h>

#include "Store/Internal/ZAVContentDirectory.h"

namespace zav {

/// Which file an earlier one has left is gone on with.
struct ZAVPartialToResume {
    std::uint64_t part;    ///< a number of the part: what was written for another is another's
    std::uint64_t atMost;  ///< how many bytes the content has; what is longer is not its beginning
    std::string database;  ///< whose files are never opened
};

/// A file that is written beside its place, in its directory, and removed unless it comes there. One that
/// goes on with what an earlier one has left is left to the next in its turn.
///
/// What fails throws `std::system_error`.
class ZAVPartialFile {
public:
    /// Makes the directories on the way, if need be.
    ZAVPartialFile(const ZAVContentDirectory& root, const ZAVContentPath& path);

    /// Goes on with what is there, and is alone in doing so, of all threads and processes.
    /// @throws ZAVContentFailure when another one does so now.
    ZAVPartialFile(const ZAVContentDirectory& root, const ZAVContentPath& path,
                   const ZAVPartialToResume& earlier);
    ZAVPartialFile(const ZAVPartialFile&) = delete;
    ZAVPartialFile& operator=(const ZAVPartialFile&) = delete;
    ~ZAVPartialFile();

    void append(std::span<const std::uint8_t> bytes);

    /// Takes back all that was written.
    void startOver();

    /// Has the device keep what was written.
    void sync();

    /// Gives it its name, over whatever has it.
    void moveIntoPlace();

    /// Has it removed, and not left to the next.
    void discard() noexcept { isLeft_ = false; }

    [[nodiscard]] std::uint64_t size() const noexcept { return size_; }

private:
    void make(const ZAVContentDirectory& root, ZAVContentDirectory::Names parents);
    [[nodiscard]] bool resume(const ZAVContentDirectory& root, ZAVContentDirectory::Names parents,
                              const ZAVPartialToResume& earlier);
    [[nodiscard]] bool openWhatIsThere(const ZAVPartialToResume& earlier);
    [[nodiscard]] bool hasName() const;
    void lock();

    std::string name_;
    std::string partialName_;
    std::optional<ZAVOpenDirectory> directory_;
    std::optional<ZAVFileDescriptor> file_;
    std::uint64_t size_ = 0;
    bool isLeft_ = false;  ///< to the next, when it does not come to its place
};

}  // namespace zav
