#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include <ZAVEventRepository/ZAVData.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

class ZAVDownload;
struct ZAVOpenedContent;

/// The file of a content part, open for reading. It can be read to its end also when it is purged meanwhile.
///
/// It serves one thread at a time, and may outlive the store.
class ZAV_EXPORT ZAVContentFile {
public:
    /// Takes a file over from `other`, which can only be destroyed or assigned to then.
    ZAVContentFile(ZAVContentFile&& other) noexcept;

    /// Closes the file and takes another over.
    ZAVContentFile& operator=(ZAVContentFile&& other) noexcept;
    ZAVContentFile(const ZAVContentFile&) = delete;
    ZAVContentFile& operator=(const ZAVContentFile&) = delete;
    ~ZAVContentFile();

    /// Its size in bytes when it was opened.
    [[nodiscard]] std::uint64_t size() const noexcept;

    /// Its descriptor, which stays this object's: for what reads or maps files by themselves.
    [[nodiscard]] int descriptor() const noexcept;

    /// Reads from a position on.
    /// @return how many bytes were read: fewer than `bytes` has at the end of the file alone. None on
    /// failure, with the reason in `error`.
    std::optional<std::size_t> read(std::uint64_t position, std::span<std::uint8_t> bytes,
                                    ZAVError* error = nullptr) const;

    /// Reads all of it.
    /// @return none on failure, with the reason in `error`.
    [[nodiscard]] std::optional<ZAVData> readAll(ZAVError* error = nullptr) const;

private:
    friend class ZAVContentCache;

    explicit ZAVContentFile(std::unique_ptr<ZAVOpenedContent> opened) noexcept;

    std::unique_ptr<ZAVOpenedContent> opened_;
};

/// The file of a content part, being written beside its place. It comes there when it is finished; one that
/// is destroyed before is removed, but left to the next when it is of `ZAVContentCache::resumeDownload`.
///
/// It serves one thread at a time, and may not outlive its store.
class ZAV_EXPORT ZAVContentWriter {
public:
    /// Takes a file over from `other`, which can only be destroyed or assigned to then.
    ZAVContentWriter(ZAVContentWriter&& other) noexcept;

    /// Gives the file up, unless it was finished, and takes another over.
    ZAVContentWriter& operator=(ZAVContentWriter&& other) noexcept;
    ZAVContentWriter(const ZAVContentWriter&) = delete;
    ZAVContentWriter& operator=(const ZAVContentWriter&) = delete;
    ~ZAVContentWriter();

    /// How many bytes are there: what an earlier writer has left, and what was written since.
    [[nodiscard]] std::uint64_t size() const noexcept;

    /// Writes behind what is there.
    /// @return false on failure, with the reason in `error`; it cannot be finished then.
    bool append(std::span<const std::uint8_t> bytes, ZAVError* error = nullptr);

    /// Takes back what is there, such as when the service sends the content from its beginning.
    /// @return false on failure, with the reason in `error`; it cannot be finished then.
    bool startOver(ZAVError* error = nullptr);

    /// Has the device keep the file, gives it its name, and then records that the part is complete, how large
    /// it is, and that it was accessed now.
    /// Whether all of the content has come is the caller's to know: a service may have told another size.
    /// @return false on failure, with the reason in `error`, such as that no part waits for it any more: the
    /// file is removed then. One that is left to the next is after any other failure. It stays when the store
    /// is suspended, and may be finished when it is resumed.
    bool finish(ZAVError* error = nullptr);

private:
    friend class ZAVContentCache;

    explicit ZAVContentWriter(std::unique_ptr<ZAVDownload> download) noexcept;

    std::unique_ptr<ZAVDownload> download_;
};

}  // namespace zav
