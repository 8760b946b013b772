#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>
#include <ZAVEventRepository/ZAVTransaction.h>

#include "Arguments.h"
#include "Commands.h"
#include "Help.h"

#include "Store.h"
#include "StoredPath.h"
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

/// What the options assign to which columns.
struct Assignments {
    std::string text;
    std::vector<ZAVValue> values;

    template <class Value>
    void add(const char* column, const std::optional<Value>& value) {
        if (value) {
            text += (text.empty() ? "" : ", ") + std::string(column) + " = ?";
            values.emplace_back(*value);
        }
    }
};

Assignments assignments(const TransferOptions& options) {
    const auto date = [](const std::optional<double>& seconds) {
        return seconds ? std::optional(ZAVDateFromSecondsSince1970(*seconds)) : std::nullopt;
    };
    Assignments result;
    result.add("access_expiration", date(options.expires));
    result.add("url", options.url ? std::optional(options.url->text()) : std::nullopt);
    result.add("size", options.size);
    result.add("transfer_status", options.status);
    result.add("file_path", options.file);
    result.add("last_accessed", date(options.accessed));
    result.add("purged", options.purged);
    return result;
}

/// Whether writing the part back as it was read would leave each column of its row as it is. What is stored
/// may be more than a record can say: an expiration with a fraction, a purge mark that is NULL, a URL that is
/// none.
bool isAllOfItsRow(FMDatabase& database, const ZAVEventContent& part, ZAVDatabaseIdentifier row) {
    auto rows = database.executeBoundedQuery(
        "SELECT access_expiration IS ? AND url IS ? AND size IS ? AND transfer_status IS ? AND file_path IS ?"
        " AND last_accessed IS ? AND purged IS ? FROM event_content_parts WHERE database_identifier = ?",
        part.externalContentURLExpiration(), part.external_url(), part.size(), part.transferStatus(),
        part.fileURL() ? std::optional(part.fileURL()->relativePath()) : std::nullopt, part.lastAccessed(),
        part.isPurged(), row);
    return rows && rows->next() && rows->boolForColumnIndex(0);
}

void apply(const TransferOptions& options, ZAVEventContent& part) {
    if (options.expires) {
        part.setExternalContentURLExpiration(ZAVDateFromSecondsSince1970(*options.expires));
    }
    if (options.url) {
        part.set_external_url(options.url->text());
    }
    if (options.size) {
        part.set_size(*options.size);
    }
    if (options.status) {
        part.setTransferStatus(static_cast<ZAVContentTransferStatus>(*options.status));
    }
    if (options.file) {
        part.setFileURL(ZAVURL::URLWithString(*options.file, ZAVMessageRepositoryCacheBaseDirectoryURL()));
    }
    if (options.accessed) {
        part.setLastAccessed(ZAVDateFromSecondsSince1970(*options.accessed));
    }
    if (options.purged) {
        part.setIsPurged(*options.purged != 0);
    }
}

/// The row of the part; none when there is no such part.
std::optional<ZAVDatabaseIdentifier> rowOf(const TransferOptions& options, FMDatabase& database) {
    auto rows = database.executeBoundedQuery(
        "SELECT database_identifier FROM event_content_parts"
        " WHERE event_database_identifier = ? AND event_content_part_id = ?",
        options.event, options.index);
    ZAVError error;
    const bool found = rows && rows->nextWithError(&error);
    if (!rows || error) {
        throw ToolError("cannot read the content part", database.lastError());
    }
    return found ? std::optional(rows->longLongIntForColumnIndex(0)) : std::nullopt;
}

/// Runs the repository's update, which writes all columns of a part, where that changes those only that are
/// given, and an update of these columns alone where it would not.
bool update(const TransferOptions& options, const ZAVEventRepository& repository, ZAVDatabaseIdentifier row,
            const Assignments& given) {
    FMDatabase& database = repository.database();
    const auto part = repository.eventContentForEventDatabaseIdentifier(options.event, options.index);
    if (part && isAllOfItsRow(database, *part, row)) {
        apply(options, *part);
        return repository.persistEventContentUpdate(*part);
    }
    std::vector<ZAVValue> values = given.values;
    values.emplace_back(row);
    return database.executeBoundedUpdateWithArgumentsInArray(
        "UPDATE event_content_parts SET " + given.text + " WHERE database_identifier = ?", values);
}

void transfer(const TransferOptions& options) {
    const ZAVEventRepository repository(openStore(options.database));
    FMDatabase& database = repository.database();
    ZAVError error;
    auto transaction = ZAVTransaction::begin(database, &error);
    if (!transaction) {
        throw ToolError("cannot update the content part", error);
    }
    const auto row = rowOf(options, database);
    if (!row) {
        throw ToolError("event " + std::to_string(options.event) + " has no part " +
                        std::to_string(options.index));
    }
    int changed = 0;
    if (const Assignments given = assignments(options); !given.values.empty()) {
        if (!update(options, repository, *row, given)) {
            throw ToolError("cannot update the content part", database.lastError());
        }
        changed = database.changes();
    }
    if (!transaction->commit(&error)) {
        throw ToolError("cannot update the content part", error);
    }
    std::cout << changed << (changed == 1 ? " part updated\n" : " parts updated\n");
}

/// The path of a file that `reclaim` will be able to remove.
Kind<std::string> storedPath() {
    return {"TEXT", "the relative path of a file below the cache directory", [](const std::string& text) {
                return StoredPath::parse(text) ? std::optional(text) : std::nullopt;
            }};
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
    addOption(*command, "--file", options->file, storedPath(),
              "Path of the file, relative to the cache directory");
    addOption(*command, "--accessed", options->accessed, seconds(), "Last access, in seconds since 1970");
    addOption(*command, "--purged", options->purged, wholeNumber<int>(0, 1),
              "Whether the file was removed to reclaim space, 0 or 1");
    setExample(*command, "chat.db --event 7 --index 1 --status 4 --accessed 1760090000");
    command->callback([options, &action] { action = [options] { transfer(*options); }; });
}

}  // namespace zavevents
