#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>

namespace zav::test {

/// Files in memory, under a file system of the engine's (`FMDatabaseOptions::vfs`), that forget when the
/// power goes what had not been synced.
///
/// What is safe, and what is left to chance:
/// - The bytes and the size of a file are safe once a sync of that file has returned.
/// - What was written or cut off since then is kept, dropped or torn, each write by itself, so that the disk
///   seems to have taken the writes in any order. Of a torn write each sector holds the new bytes, the old
///   ones, or garbage; past the old end of the file it may also hold zeros.
/// - A name is safe once the directory is synced. As the engine's own file system for Unix does it, that
///   happens when a journal or log that was made is synced for the first time, right after its bytes, and
///   when a file is deleted and the engine asks for it; at no other time. It makes every name safe. Until
///   then a file that was made may be missing and a deleted one may be back, with what was safe of its bytes.
///   One name changes in the order of its changes; two names do not wait for each other.
/// - Shared memory, locks and temporary files are gone.
///
/// All names are in one directory. One thread uses the file system, and closes its connections before it
/// ends.
class VolatileFileSystem {
public:
    struct Hardware {
        /// Whether a write leaves the bytes beside it alone. Otherwise a torn one may turn every sector that
        /// it touches into garbage as a whole, with the bytes in it that were safe.
        bool powersafeOverwrite = true;

        std::size_t sectorSize = 512;
    };

    /// A call that changes what is stored, or makes it safe. It is told of when it has begun and may have had
    /// any part of its effect.
    struct Call {
        enum class Kind { create, write, truncate, sync, remove, syncDirectory };

        Kind kind;
        std::string file;
        std::size_t offset;
        std::size_t size;

        [[nodiscard]] std::string description() const;
    };

    using Random = std::mt19937_64;

    explicit VolatileFileSystem(const Hardware& hardware);
    ~VolatileFileSystem();
    VolatileFileSystem(const VolatileFileSystem&) = delete;
    VolatileFileSystem& operator=(const VolatileFileSystem&) = delete;

    /// What the engine knows it by.
    [[nodiscard]] const std::string& name() const;

    /// How many calls there were.
    [[nodiscard]] std::size_t calls() const;

    /// Has `observer` called with each call from now on; an empty one ends that. It must not use the engine.
    void observe(std::function<void(const Call&)> observer);

    /// Lets the power go in the call with this number, counted from 1: it fails, and so does whatever
    /// follows.
    void cutPowerAtCall(std::size_t number);
    [[nodiscard]] bool powerIsCut() const;

    /// What would be found after the power went now.
    [[nodiscard]] std::unique_ptr<VolatileFileSystem> afterPowerLoss(Random& random) const;

    /// Writes the files as they are now into a real directory.
    void copyTo(const std::filesystem::path& directory) const;

    struct State;

private:
    std::unique_ptr<State> state_;
};

}  // namespace zav::test
