#pragma once

#include <string>

namespace zav::test {

/// The version of the schema, which a new migration raises.
inline constexpr int schemaVersion = 4;

/// The same as text.
inline const std::string schemaVersionText = std::to_string(schemaVersion);

}  // namespace zav::test
