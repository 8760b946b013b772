#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <optional>
#include <string>

#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVURL.h>

#include "Arguments.h"

namespace zavevents {

/// Whether a command does all that a client does, and where the files of content are.
struct WholeOption {
    bool isWanted = false;
    std::string cache{};
};

/// Where the files of content are, as the command line names the directory.
[[nodiscard]] inline zav::ZAVURL contentDirectoryFrom(const std::string& cache) {
    return zav::ZAVURL::fileURLWithDirectoryPath(std::filesystem::absolute(cache).string());
}

[[nodiscard]] inline zav::ZAVEventStoreOptions storeOptionsOf(const WholeOption& whole) {
    zav::ZAVEventStoreOptions options;
    options.contentDirectory = contentDirectoryFrom(whole.cache);
    return options;
}

/// @param description what it does beside the one operation.
inline void addWholeOption(CLI::App& parser, WholeOption& whole, const std::string& description) {
    auto* const wanted = parser.add_flag("--whole", whole.isWanted, description);
    auto* const cache = addOption(parser, "--cache", whole.cache, fileName(),
                                  "With --whole: the cache directory, where the files of content are");
    wanted->needs(cache);
    cache->needs(wanted);
}

}  // namespace zavevents
