#pragma once

#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

namespace zav::test {

/// Whether the tests run at length (`make test-long`) or as often as a developer runs them.
[[nodiscard]] inline bool runsAtLength() {
    const char* const effort = std::getenv("ZAV_TEST_EFFORT");
    return effort != nullptr && std::string_view(effort) == "long";
}

/// How many rounds a sweep makes.
[[nodiscard]] inline int rounds(int ordinarily, int atLength) {
    return runsAtLength() ? atLength : ordinarily;
}

/// What a sweep has to say of itself; `make test` repeats these lines at its end.
inline void reportSweep(const std::string& sentence) {
    std::cout << "sweep: " << sentence << std::endl;
}

}  // namespace zav::test
