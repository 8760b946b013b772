#pragma once

#include <cstdio>
#include <exception>

namespace zav::bench {

/// What `main` answers of a program that fails by throwing: a reason on standard error, and 2.
inline int runMain(int (*run)(int count, char** arguments), int count, char** arguments) {
    try {
        return run(count, arguments);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
        return 2;
    }
}

}  // namespace zav::bench
