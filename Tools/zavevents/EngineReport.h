#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace zavevents {

/// The versions of the tool and of the engine that it runs on, as `--version` prints them.
[[nodiscard]] std::string versionText();

/// The engine in one line: its version, and whether its checkpoints are safe by themselves.
[[nodiscard]] std::string engineText();

/// The same as JSON, with what the engine was made from and the options that concern a store.
[[nodiscard]] nlohmann::ordered_json engineReport();

}  // namespace zavevents
