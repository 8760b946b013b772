#pragma once

#include <string>

#include <ZAVEventRepository/ZAVEvent.h>

namespace zav {

/// All that a record says that was read from the database, its parts and its metadata included: the same
/// bytes if, and only if, it says the same. Records are shared with those who may change them, so what one
/// said can be compared with later only so.
[[nodiscard]] std::string ZAVBytesOfEvent(const ZAVEvent& event);

}  // namespace zav
