#pragma once

namespace zav::test {

/// The engine's allocator, made to fail. Installed for the whole process before the engine is first used;
/// until it is told to fail, it passes every call on.
class FaultyAllocator {
public:
    /// @throws std::runtime_error when the engine has been used already.
    static void install();

    /// Makes the `number`th request for memory from now on fail, counted from 1, or all from that one on.
    static void fail(int number, bool fromThenOn);

    /// Lets every request pass again.
    static void heal();

    /// How many requests have failed since `fail`.
    [[nodiscard]] static int failures();
};

}  // namespace zav::test
