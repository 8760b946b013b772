#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>

namespace zav {

/// A file system of the engine that is another one in all but this: somebody is asked before anything is
/// written, and may have it fail. The engine has no other way to end what it does in one step.
///
/// Connections that were opened with it must be closed before it goes.
class ZAVWatchedFiles {
public:
    enum class Kind {
        database,
        log,        ///< the write-ahead log, or the journal
        temporary,  ///< a file without a name
        other,
    };

    class Watcher {
    public:
        Watcher() = default;
        virtual ~Watcher() = default;
        Watcher(const Watcher&) = delete;
        Watcher& operator=(const Watcher&) = delete;

        /// Called on the thread that writes.
        /// @param size how many bytes are to be written.
        /// @param end where in the file the last of them will stand.
        /// @return false to have it fail, as if the device could not.
        virtual bool mayWrite(Kind kind, std::int64_t size, std::int64_t end) noexcept = 0;
    };

    /// @param original of the engine; must stay registered as long as this lives.
    /// @param watcher must outlive this.
    ZAVWatchedFiles(sqlite3_vfs& original, Watcher& watcher);
    ~ZAVWatchedFiles();
    ZAVWatchedFiles(const ZAVWatchedFiles&) = delete;
    ZAVWatchedFiles& operator=(const ZAVWatchedFiles&) = delete;

    /// What it is registered as; none when the engine did not take it.
    [[nodiscard]] const std::string& name() const noexcept { return name_; }

    [[nodiscard]] sqlite3_vfs& original() const noexcept { return original_; }
    [[nodiscard]] Watcher& watcher() const noexcept { return watcher_; }

private:
    sqlite3_vfs& original_;
    Watcher& watcher_;
    std::string name_;
    sqlite3_vfs files_{};
};

}  // namespace zav
