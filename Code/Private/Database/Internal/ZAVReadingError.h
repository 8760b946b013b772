#pragma once

#include <ZAVEventRepository/ZAVError.h>

struct sqlite3;

namespace zav {

/// The error with which a handle that only reads could not look into a file: with what is missing, when the
/// reason is that its process may not write beside a file with a write-ahead log; otherwise as it is.
[[nodiscard]] ZAVError ZAVErrorOfReading(const ZAVError& error, sqlite3* engine);

}  // namespace zav
