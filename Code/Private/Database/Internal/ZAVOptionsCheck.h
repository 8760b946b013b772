#pragma once

#include <ZAVEventRepository/FMDatabaseOptions.h>
#include <ZAVEventRepository/ZAVError.h>

namespace zav {

/// Whether a database may be opened with such options.
/// @return what speaks against it, with the option and its value; empty when nothing does.
[[nodiscard]] ZAVError ZAVObjectionToOptions(const FMDatabaseOptions& options);

}  // namespace zav
