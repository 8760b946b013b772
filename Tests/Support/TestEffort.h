#pragma once

#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

namespace zav::test {

/// What the environment says of how far the tests should go: nothing, for a developer's ordinary run; "long"
/// (`make test-long`); or "brief", where they are many times as slow or run once more (`make valgrind`).
[[nodiscard]] inline std::string_view effort() {
    const char* const effort = std::getenv("ZAV_TEST_EFFORT");
    return effort != nullptr ? effort : std::string_view();
}

[[nodiscard]] inline bool runsAtLength() {
    return effort() == "long";
}

/// How many rounds a sweep makes.
[[nodiscard]] inline int rounds(int ordinarily, int atLength) {
    return runsAtLength() ? atLength : ordinarily;
}

/// How far a sweep goes from one fault to the next; in a brief run it takes one of seven.
[[nodiscard]] inline int stride(int ordinarily, int atLength) {
    return effort() == "brief" ? 7 * ordinarily : rounds(ordinarily, atLength);
}

/// What a sweep has to say of itself; `make test` repeats these lines at its end.
inline void reportSweep(const std::string& sentence) {
    std::cout << "sweep: " << sentence << std::endl;
}

}  // namespace zav::test
