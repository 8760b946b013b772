#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "Private/Foundation/ZAVURL.h"
#include "Private/Foundation/ZAVUUID.h"

namespace zavevents {

/// Adds the positional argument that every command has first.
void addDatabaseOption(CLI::App& command, std::string& path);

/// Checks for option values. What they refuse is a wrong command line.
[[nodiscard]] CLI::Validator isUUID();
[[nodiscard]] CLI::Validator isURL();

/// A signed 64-bit number, and an unsigned one. The parser alone would bend what does not fit.
[[nodiscard]] CLI::Validator isNumber();
[[nodiscard]] CLI::Validator isAmount();

/// A media type name, `type/subtype`, as RFC 6838 has them. It holds no quote, so that it is safe inside a
/// statement.
[[nodiscard]] CLI::Validator isMediaType();

/// The value of an option that was checked before.
[[nodiscard]] inline zav::ZAVUUID uuidFrom(const std::string& text) {
    return *zav::ZAVUUID::fromString(text);
}
[[nodiscard]] inline zav::ZAVURL urlFrom(const std::string& text) {
    return *zav::ZAVURL::URLWithString(text);
}

}  // namespace zavevents
