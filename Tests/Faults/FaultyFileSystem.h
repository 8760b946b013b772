#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace zav::test {

/// The kinds of call that the engine makes to its file system.
enum class FileCall { open, read, write, truncate, sync, fileSize, lock, remove, sharedMemory };

[[nodiscard]] std::string_view nameOf(FileCall call);

/// A file system of the engine's that passes every call on to the default one, until it is told to fail one
/// of them; but it waits for no device. There can be one at a time; it is not the default.
class FaultyFileSystem {
public:
    FaultyFileSystem();
    ~FaultyFileSystem();
    FaultyFileSystem(const FaultyFileSystem&) = delete;
    FaultyFileSystem& operator=(const FaultyFileSystem&) = delete;

    /// Its name, for `FMDatabaseOptions::vfs`.
    static constexpr const char* name = "zav-faulty";

    /// Makes the `number`th call of a kind from now on fail, counted from 1, or all of them from that one on.
    void fail(FileCall call, int number, bool fromThenOn);

    /// Lets every call pass again.
    void heal();

    /// How many calls have failed since `fail`.
    [[nodiscard]] int failures() const;

private:
    struct Engine;
    std::unique_ptr<Engine> engine_;
};

}  // namespace zav::test
