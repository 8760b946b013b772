#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>

namespace zav::test {

/// The engine's own file system, which watches who holds the locks of a write-ahead log: in this process and
/// in those that are forked while it lives, for one database.
class LockRecorder {
public:
    static constexpr const char* name = "zav-lock-recorder";

    struct Counts {
        std::uint64_t writes = 0;       ///< times that somebody got the writer's lock
        std::uint64_t checkpoints = 0;  ///< times that somebody got the checkpointer's lock
        std::uint64_t overlaps = 0;     ///< times that another connection held the other lock meanwhile
        std::uint64_t unguarded = 0;    ///< checkpoints without the writer's lock, nor the whole file
    };

    LockRecorder();
    ~LockRecorder();
    LockRecorder(const LockRecorder&) = delete;
    LockRecorder& operator=(const LockRecorder&) = delete;

    [[nodiscard]] Counts counts() const;

    /// Calls `action` in this process each time that somebody in it has got the writer's lock.
    void onWritersLock(std::function<void()> action);

private:
    sqlite3_vfs vfs_;
};

}  // namespace zav::test
