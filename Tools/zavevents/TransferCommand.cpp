#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "Arguments.h"
#include "Commands.h"
#include "Help.h"
#include "Private/Model/Repositories/ZAVEventRepository.h"
#include "Private/Model/Repositories/ZAVMessageRepositoryCache.h"
#include "Store.h"
#include "StoredPart.h"
#include "ToolError.h"

namespace zavevents {
namespace {

using namespace zav;

struct TransferOptions {
    std::string database;
    std::int64_t event = 0;
    std::int64_t index = 0;
    std::optional<int> status;
    std::optional<ZAVURL> url;
    std::optional<double> expires;
    std::optional<std::int64_t> size;
    std::optional<std::string> file;
    std::optional<double> accessed;
    std::optional<int> purged;
};

void transfer(const TransferOptions& options) {
    const ZAVEventRepository repository(openStore(options.database));
    ZAVError error;
    const auto part = repository.eventContentForEventDatabaseIdentifier(options.event, options.index, &error);
    if (error) {
        throw ToolError("cannot read the content part", error);
    }
    if (part == nullptr) {
        throw ToolError("event " + std::to_string(options.event) + " has no part " +
                        std::to_string(options.index));
    }
    keepStoredFields(repository.database(), *part, options.url.has_value(), options.file.has_value());
    if (options.expires) {
        part->setExternalContentURLExpiration(ZAVDateFromSecondsSince1970(*options.expires));
    }
    if (options.status) {
        part->setTransferStatus(static_cast<ZAVContentTransferStatus>(*options.status));
    }
    if (options.url) {
        part->set_external_url(options.url->text());
    }
    if (options.size) {
        part->set_size(*options.size);
    }
    if (options.file) {
        const auto file = ZAVURL::URLWithString(*options.file, ZAVMessageRepositoryCacheBaseDirectoryURL());
        if (!file || !file->baseURL()) {
            throw ToolError("--file is no relative path: " + *options.file);
        }
        part->setFileURL(file);
    }
    if (options.accessed) {
        part->setLastAccessed(ZAVDateFromSecondsSince1970(*options.accessed));
    }
    if (options.purged) {
        part->setIsPurged(*options.purged != 0);
    }
    if (!repository.persistEventContentUpdate(*part, &error)) {
        throw ToolError("cannot update the content part", error);
    }
    std::cout << repository.database().changes() << " part updated\n";
}

}  // namespace

void addTransferCommand(CLI::App& app, Action& action) {
    auto* const command =
        app.add_subcommand("transfer", "Update one part's transfer state; what is not given stays");
    const auto options = std::make_shared<TransferOptions>();
    addDatabaseOption(*command, options->database);
    addOption(*command, "--event", options->event, row(), "Row of the event")->required();
    addOption(*command, "--index", options->index, position(), "Position of the part")->required();
    addOption(*command, "--status", options->status, wholeNumber<int>(0, ZAVContentTransferComplete),
              "Transfer status, 0 to 4");
    addOption(*command, "--url", options->url, url(), "Where the service keeps the content");
    addOption(*command, "--expires", options->expires, seconds(),
              "When the URL ceases to work, in seconds since 1970");
    addOption(*command, "--size", options->size, wholeNumber<std::int64_t>(0), "Size in bytes");
    addOption(*command, "--file", options->file, text(), "Path of the file, relative to the cache directory");
    addOption(*command, "--accessed", options->accessed, seconds(), "Last access, in seconds since 1970");
    addOption(*command, "--purged", options->purged, wholeNumber<int>(0, 1),
              "Whether the file was removed to reclaim space, 0 or 1");
    setExample(*command, "chat.db --event 7 --index 1 --status 4 --accessed 1760090000");
    command->callback([options, &action] { action = [options] { transfer(*options); }; });
}

}  // namespace zavevents
