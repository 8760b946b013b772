#pragma once

#include <cstdlib>
#include <iostream>
#include <string_view>

namespace zav::fuzzing {

/// Ends the program with `sentence`, what was expected of whom, unless `holds`.
inline void expect(bool holds, std::string_view sentence) {
    if (!holds) {
        std::cerr << "Expected: " << sentence << std::endl;
        std::abort();
    }
}

}  // namespace zav::fuzzing
