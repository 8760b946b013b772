#pragma once

#include <cstdint>
#include <vector>

#include <ZAVEventRepository/ZAVReceiving.h>

namespace zav {

/// Adds what is missing between two sequences of which nothing between them is stored, if anything is.
inline void ZAVAddGapBetween(std::int64_t below, std::int64_t above, std::vector<ZAVSequenceGap>& gaps) {
    if (below < above && below + 1 < above) {
        gaps.push_back({static_cast<ZAVSequence>(below + 1), static_cast<ZAVSequence>(above - 1)});
    }
}

}  // namespace zav
