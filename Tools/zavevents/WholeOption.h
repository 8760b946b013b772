#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "ClientOptions.h"

namespace zavevents {

/// Whether a command does all that a client does, and whose client.
struct WholeOption {
    bool isWanted = false;
    ClientOptions client{};
};

/// Adds `--whole` to a command.
/// @param description what it does beside the one operation.
inline CLI::Option* addWholeOption(CLI::App& parser, WholeOption& whole, const std::string& description) {
    return parser.add_flag("--whole", whole.isWanted, description);
}

/// Adds `--whole`, and with it `--cache`, to a command that may then remove files.
inline void addWholeOptionWithCache(CLI::App& parser, WholeOption& whole, const std::string& description) {
    auto* const wanted = addWholeOption(parser, whole, description);
    auto* const cache = addOption(parser, "--cache", whole.client.cache, fileName(),
                                  "With --whole: the cache directory, where the files of content are");
    wanted->needs(cache);
    cache->needs(wanted);
}

}  // namespace zavevents
