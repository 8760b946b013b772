#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace zavevents {

/// Refuses `--name=` without anything after it: the parser would take the next word for the value.
/// @throws CLI::ParseError
void refuseEmptyValues(int count, const char* const* words);

/// Has no flag of the tool and its commands take a value: `--all=false` is a mistake, and not another
/// selection.
void refuseValuesOfFlags(CLI::App& app);

/// What is wrong with a command line, in one line that says where to look. What was typed stands in it as
/// `ZAVPrintable` makes it.
[[nodiscard]] std::string describeMistake(const CLI::App& app, const CLI::ParseError& error);

}  // namespace zavevents
