#pragma once

#include <cstdint>
#include <string>

#include <ZAVEventRepository/ZAVError.h>

namespace zav {

/// The file that a database is to be opened in, as the engine's file system sees it.
class ZAVDatabaseFile {
public:
    /// Finds the file. What is then looked at, made and opened is one and the same, whatever the engine reads
    /// out of paths: a full path is not a URI.
    /// @param path the file; ":memory:" for none.
    /// @param vfs name of the engine's file system; empty for its default.
    /// @return what speaks against opening it; empty when nothing does.
    [[nodiscard]] ZAVError find(const std::string& path, const std::string& vfs);

    /// What the engine is to be given.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

    /// Makes the file, empty, with these permissions, unless there is one. The engine gives its journal, its
    /// log and its shared memory the same.
    /// @return false where another file system than the engine's own keeps it, which makes it by itself. True
    /// also on failure: opening the file, which must not make it, then tells why.
    [[nodiscard]] bool makeIfAbsent(std::uint32_t mode) const noexcept;

private:
    [[nodiscard]] ZAVError objection() const;

    std::string path_;
    bool isOnDisk_ = false;  ///< kept by the engine's own file system
};

}  // namespace zav
