#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVRepositories.h>

#include "Store/Internal/ZAVPartialFile.h"
#include "Store/Internal/ZAVStoreCore.h"

namespace zav {

/// Whether a download goes on with what an earlier one of its part has left, and leaves what it has itself.
enum class ZAVDownloadKind : std::uint8_t { whole, resumed };

/// The content of a part that is being downloaded.
class ZAVDownload {
public:
    /// Has the part count as being downloaded from now on, and opens the file to write it to.
    /// @throws ZAVContentFailure and std::system_error when the part waits for no download, or the file
    /// cannot be made.
    [[nodiscard]] static std::unique_ptr<ZAVDownload> begin(ZAVStoreCore& core, ZAVDatabaseIdentifier event,
                                                            std::int64_t index, ZAVDownloadKind kind);

    bool append(std::span<const std::uint8_t> bytes, ZAVError* error);
    bool startOver(ZAVError* error);
    bool finish(ZAVError* error);
    [[nodiscard]] std::uint64_t size() const noexcept { return size_; }

private:
    /// Which part of which event, the path of its file, and the size of its content as far as it is known.
    struct Part {
        ZAVDatabaseIdentifier event = ZAVDatabaseIdentifierNotSet;
        std::int64_t index = 0;
        std::string filePath{};
        std::uint64_t size = 0;
        std::uint64_t number = 0;  ///< by which what was written for it is known
    };

    ZAVDownload(ZAVStoreCore& core, Part part, std::string place);

    [[nodiscard]] static Part start(const ZAVRepositories& repositories, const ZAVStoreOwner& owner,
                                    ZAVDatabaseIdentifier event, std::int64_t index);
    static void takeBack(FMDatabase& database, const ZAVContentDirectory& root, const Part& part);

    bool expectUsable(ZAVError* error) const;
    template <class Work>
    bool change(ZAVError* error, const Work& work);
    bool complete(const ZAVRepositories& repositories, bool isPartOfWork, ZAVError* error);

    ZAVStoreCore& core_;
    Part part_;
    std::string place_;
    std::uint64_t size_ = 0;
    std::optional<ZAVPartialFile> file_;  ///< none when it was finished, and after a failure
    bool isWhole_ = false;                ///< nothing may be appended any more
};

}  // namespace zav
