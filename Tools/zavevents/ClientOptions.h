#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <optional>
#include <string>

#include <ZAVEventRepository/ZAVEventStoreOptions.h>
#include <ZAVEventRepository/ZAVURL.h>
#include <ZAVEventRepository/ZAVUUID.h>

#include "Arguments.h"
#include "EventReader.h"

namespace zavevents {

/// Whose client a command works as, as far as it matters to the command.
struct ClientOptions {
    std::optional<std::string> user{};
    std::optional<zav::ZAVUUID> appID{};
    std::optional<std::string>
        cache{};  ///< where the files of content are, unless where the library keeps them
};

/// How such a client opens its store.
[[nodiscard]] inline zav::ZAVEventStoreOptions storeOptionsOf(const ClientOptions& client) {
    zav::ZAVEventStoreOptions options;
    options.userID = client.user;
    options.appID = client.appID;
    if (client.cache) {
        options.contentDirectory =
            zav::ZAVURL::fileURLWithDirectoryPath(std::filesystem::absolute(*client.cache).string());
    }
    return options;
}

/// For whom such a client downloads content, if it does, which takes a user.
[[nodiscard]] inline std::optional<DownloadOwner> ownerOf(const ClientOptions& client) {
    return client.appID ? std::optional(DownloadOwner{*client.appID, *client.user}) : std::nullopt;
}

/// Adds `--cache` to a command that removes files, which names the directory each time.
inline void addCacheOption(CLI::App& parser, ClientOptions& client) {
    addOption(parser, "--cache", client.cache, fileName(),
              "The cache directory; nothing outside it is touched")
        ->required();
}

}  // namespace zavevents
