#pragma once

namespace zav::test {

/// For whom the program's own requests for memory fail: a program that uses this has an `operator new` of its
/// own. To be changed in processes that end soon after.
enum class MemoryScarcity { nobody, otherThreads, everybody };

/// From now on; `otherThreads` are all but the caller.
void makeMemoryScarceFor(MemoryScarcity scarcity);

}  // namespace zav::test
