#pragma once

namespace zav::test {

/// The heap of the process, made to fail: `operator new` throws `std::bad_alloc`. Until it is told to fail,
/// it passes every request on. The engine's own requests are the `FaultyAllocator`'s.
class FaultyHeap {
public:
    /// Makes the `number`th request of this thread from now on fail, counted from 1, or all from that one on.
    static void fail(int number, bool fromThenOn) noexcept;

    /// Lets every request pass again.
    static void heal() noexcept;

    /// How many requests have failed since `fail`.
    [[nodiscard]] static int failures() noexcept;
};

}  // namespace zav::test
