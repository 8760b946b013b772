#include <optional>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVContentPath.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>

#include "Command.h"
#include "Rows.h"

namespace zavevents {
namespace {

using namespace zav;

constexpr const char* cannotUpdate = "cannot update the content part";

struct TransferOptions {
    std::int64_t event = 0;
    std::int64_t index = 0;
    std::optional<int> status;
    std::optional<ZAVURL> url;
    std::optional<ZAVDate> expires;
    std::optional<std::int64_t> size;
    std::optional<std::string> file;
    std::optional<ZAVDate> accessed;
    std::optional<int> purged;
};

/// The row of a content part; none when there is no such part.
std::optional<ZAVDatabaseIdentifier> rowOfPart(FMDatabase& database, ZAVDatabaseIdentifier event,
                                               std::int64_t index) {
    std::optional<ZAVDatabaseIdentifier> row;
    forEachRow(
        database, "cannot read the content part",
        "SELECT database_identifier FROM event_content_parts"
        " WHERE event_database_identifier = ? AND event_content_part_id = ?",
        [&row](const FMResultSet& found) { row = found.longLongIntForColumnIndex(0); }, event, index);
    return row;
}

/// Whether writing a part back as it was read would leave each column of its row as it is. What is stored may
/// be more than a record can say: an expiration with a fraction, a purge mark that is NULL, an invalid URL.
bool isAllOfItsRow(FMDatabase& database, const ZAVEventContent& part, ZAVDatabaseIdentifier row) {
    return queryNumber(database, "cannot read the content part",
                       "SELECT access_expiration IS ? AND url IS ? AND size IS ? AND transfer_status IS ?"
                       " AND file_path IS ? AND last_accessed IS ? AND purged IS ? FROM event_content_parts"
                       " WHERE database_identifier = ?",
                       part.externalContentURLExpiration(), part.external_url(), part.size(),
                       part.transferStatus(),
                       part.fileURL() ? std::optional(part.fileURL()->relativePath()) : std::nullopt,
                       part.lastAccessed(), part.isPurged(), row) != 0;
}

/// What the options assign to which columns.
struct Assignments {
    explicit Assignments(const TransferOptions& options) {
        add("access_expiration", options.expires);
        add("url", options.url ? std::optional(options.url->text()) : std::nullopt);
        add("size", options.size);
        add("transfer_status", options.status);
        add("file_path", options.file);
        add("last_accessed", options.accessed);
        add("purged", options.purged);
    }

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

void apply(const TransferOptions& options, ZAVEventContent& part) {
    if (options.expires) {
        part.setExternalContentURLExpiration(options.expires);
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
        part.setLastAccessed(options.accessed);
    }
    if (options.purged) {
        part.setIsPurged(*options.purged != 0);
    }
}

/// Runs the repository's update, which writes all columns of a part, where that changes those only that are
/// given, and an update of these columns alone where it would not.
bool update(const TransferOptions& options, const ZAVEventRepository& repository, ZAVDatabaseIdentifier row,
            Assignments& given) {
    const auto part = repository.eventContentForEventDatabaseIdentifier(options.event, options.index);
    if (part != nullptr && isAllOfItsRow(repository.database(), *part, row)) {
        apply(options, *part);
        return repository.persistEventContentUpdate(*part);
    }
    given.values.emplace_back(row);
    return repository.database().executeBoundedUpdateWithArgumentsInArray(
        "UPDATE event_content_parts SET " + given.text + " WHERE database_identifier = ?", given.values);
}

std::string transfer(const std::shared_ptr<FMDatabase>& database, const TransferOptions& options) {
    const auto row = rowOfPart(*database, options.event, options.index);
    if (!row) {
        throw ToolError("event " + std::to_string(options.event) + " has no part " +
                        std::to_string(options.index));
    }
    int changed = 0;
    if (Assignments given(options); !given.values.empty()) {
        require(update(options, ZAVEventRepository(database), *row, given), cannotUpdate,
                database->lastError());
        changed = database->changes();
    }
    return std::to_string(changed) + (changed == 1 ? " part updated" : " parts updated");
}

/// The path of a file that `reclaim` will be able to remove.
Kind<std::string> storedPath() {
    return {"TEXT", "the relative path of a file below the cache directory", [](const std::string& text) {
                return ZAVContentPath::parse(text) ? std::optional(text) : std::nullopt;
            }};
}

}  // namespace

void addTransferCommand(CLI::App& app, Invocation& invocation) {
    const Command<TransferOptions> command(app, invocation, "transfer",
                                           "Update one part's transfer state; what is not given stays",
                                           "--event 7 --index 1 --status 4 --accessed 1760090000");
    CLI::App& parser = command.parser();
    auto& [event, index, status, link, expires, size, path, accessed, purged] = command.options();
    addOption(parser, "--event", event, row(), "Row of the event")->required();
    addOption(parser, "--index", index, position(), "Position of the part")->required();
    addOption(parser, "--status", status, wholeNumber<int>(0, ZAVContentTransferComplete),
              "Transfer status, 0 to 4");
    addOption(parser, "--url", link, url(), "Where the service keeps the content");
    addOption(parser, "--expires", expires, seconds(), "When the URL ceases to work, in seconds since 1970");
    addOption(parser, "--size", size, wholeNumber<std::int64_t>(0), "Size in bytes");
    addOption(parser, "--file", path, storedPath(), "Path of the file, relative to the cache directory");
    addOption(parser, "--accessed", accessed, seconds(), "Last access, in seconds since 1970");
    addOption(parser, "--purged", purged, wholeNumber<int>(0, 1),
              "Whether the file was removed to reclaim space, 0 or 1");
    command.changes(transfer, cannotUpdate, cannotUpdate);
}

}  // namespace zavevents
