#pragma once

#include <ZAVEventRepository/ZAVError.h>

#include <stdexcept>

namespace zav::bench {

/// Throws the reason of what did not succeed.
inline void require(bool succeeded, const ZAVError& error) {
    if (!succeeded) {
        throw std::runtime_error(error.description());
    }
}

}  // namespace zav::bench
