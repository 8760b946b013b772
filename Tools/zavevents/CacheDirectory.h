#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Private/Foundation/ZAVURL.h"

namespace zavevents {

/// A content cache directory, from which files are removed, and nothing outside it.
class CacheDirectory {
public:
    /// @throws ToolError when it is no directory that can be opened.
    explicit CacheDirectory(const std::string& path);
    ~CacheDirectory();
    CacheDirectory(const CacheDirectory&) = delete;
    CacheDirectory& operator=(const CacheDirectory&) = delete;

    /// Its URL, as the base of relative paths.
    [[nodiscard]] zav::ZAVURL url() const { return zav::ZAVURL::fileURLWithDirectoryPath(path_); }

    /// Removes a file and returns its size in bytes; none when it was gone already. With `dryRun` it only
    /// looks.
    /// @throws ToolError when the URL leads out of the directory, by its path or through a symbolic link, or
    /// when the
    ///     file cannot be removed.
    std::optional<std::uint64_t> removeFile(const zav::ZAVURL& file, bool dryRun) const;

private:
    std::string path_;  ///< absolute, without links
    int descriptor_ = -1;
};

}  // namespace zavevents
