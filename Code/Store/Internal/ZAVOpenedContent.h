#pragma once

#include <cstdint>
#include <string>

#include "Store/Internal/ZAVContentDirectory.h"

namespace zav {

/// A file of content that is open for reading.
struct ZAVOpenedContent {
    ZAVFileDescriptor file;
    std::uint64_t size;
    std::string place;
};

}  // namespace zav
