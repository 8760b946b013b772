#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace zavevents {

/// Lists commands and options by name, in whatever order they were added.
class HelpFormatter : public CLI::Formatter {
public:
    [[nodiscard]] std::string make_group(std::string group, bool isPositional,
                                         std::vector<const CLI::Option*> options) const override;
    [[nodiscard]] std::string make_subcommands(const CLI::App* app, CLI::AppFormatMode mode) const override;
};

/// Ends the help of a command, or of the tool itself, with a line that can be typed in.
void setExample(CLI::App& command, const std::string& arguments);

}  // namespace zavevents
