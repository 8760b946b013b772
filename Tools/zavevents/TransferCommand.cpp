#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "Arguments.h"
#include "Commands.h"
#include "Private/Model/Repositories/ZAVEventRepository.h"
#include "Private/Model/Repositories/ZAVMessageRepositoryCache.h"
#include "Store.h"
#include "ToolError.h"

namespace zavevents {
namespace {

using namespace zav;

struct TransferOptions {
    std::string database;
    std::int64_t event = 0;
    std::int64_t index = 0;
    std::optional<int> status;
    std::optional<std::string> url;
    std::optional<double> expires;
    std::optional<std::int64_t> size;
    std::optional<std::string> file;
    std::optional<double> accessed;
    std::optional<bool> purged;
};

/// What a part's row holds that a record does not carry over as it stands.
struct StoredTexts {
    bool url;
    bool filePath;
    std::optional<ZAVDate> expiration;
};

StoredTexts storedTexts(FMDatabase& database, const TransferOptions& options) {
    auto rows = database.executeQuery(
        "SELECT url IS NOT NULL, file_path IS NOT NULL, access_expiration FROM event_content_parts"
        " WHERE event_database_identifier = ? AND event_content_part_id = ?",
        options.event, options.index);
    if (!rows || !rows->next()) {
        throw ToolError("cannot read the content part", database.lastError());
    }
    return {rows->boolForColumnIndex(0), rows->boolForColumnIndex(1), rows->dateForColumnIndex(2)};
}

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
    // What is not given stays, also where reading it into the record has lost it.
    const StoredTexts stored = storedTexts(repository.database(), options);
    if (stored.url && !part->external_url() && !options.url) {
        throw ToolError("the stored url is no URL and would be lost: give --url");
    }
    if (stored.filePath && !part->fileURL() && !options.file) {
        throw ToolError("the stored file_path is no relative path and would be lost: give --file");
    }
    part->setExternalContentURLExpiration(options.expires ? ZAVDateFromSecondsSince1970(*options.expires)
                                                          : stored.expiration);
    if (options.status) {
        part->setTransferStatus(static_cast<ZAVContentTransferStatus>(*options.status));
    }
    if (options.url) {
        part->set_external_url(*options.url);
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
        part->setIsPurged(*options.purged);
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
    command->add_option("DATABASE", options->database, "The database file")->required();
    command->add_option("--event", options->event, "Row of the event")->required();
    command->add_option("--index", options->index, "Position of the part")->required();
    command->add_option("--status", options->status, "Transfer status, 0 to 4")
        ->check(CLI::Range(0, static_cast<int>(ZAVContentTransferComplete)));
    command->add_option("--url", options->url, "Where the service keeps the content")->check(isURL());
    command->add_option("--expires", options->expires, "When the URL ceases to work, in seconds since 1970");
    command->add_option("--size", options->size, "Size in bytes");
    command->add_option("--file", options->file, "Path of the file, relative to the cache directory");
    command->add_option("--accessed", options->accessed, "Last access, in seconds since 1970");
    command->add_option("--purged", options->purged, "Whether the file was removed to reclaim space, 0 or 1");
    command->footer(
        "Example: zavevents transfer chat.db --event 7 --index 1 --status 4 --accessed 1760090000");
    command->callback([options, &action] { action = [options] { transfer(*options); }; });
}

}  // namespace zavevents
