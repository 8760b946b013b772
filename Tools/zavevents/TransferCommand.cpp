#include <optional>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>
#include <ZAVEventRepository/ZAVTransaction.h>

#include "Command.h"
#include "StoredPath.h"
#include "StoredRows.h"

namespace zavevents {
namespace {

using namespace zav;

struct TransferOptions {
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

/// Runs the repository's update, which writes all columns of a part, where that changes those only that are
/// given, and an update of these columns alone where it would not.
void update(const TransferOptions& options, const ZAVEventRepository& repository, ZAVDatabaseIdentifier row,
            const Assignments& given) {
    FMDatabase& database = repository.database();
    const auto part = repository.eventContentForEventDatabaseIdentifier(options.event, options.index);
    if (part == nullptr || !isAllOfItsRow(database, *part, row)) {
        updatePart(database, row, given.text, given.values);
        return;
    }
    apply(options, *part);
    if (!repository.persistEventContentUpdate(*part)) {
        throw ToolError("cannot update the content part", database.lastError());
    }
}

void transfer(const DatabaseFile& file, const TransferOptions& options) {
    const ZAVEventRepository repository(openStore(file));
    FMDatabase& database = repository.database();
    ZAVError error;
    auto transaction = ZAVTransaction::begin(database, &error);
    if (!transaction) {
        throw ToolError("cannot update the content part", error);
    }
    const auto row = rowOfPart(database, options.event, options.index);
    if (!row) {
        throw ToolError("event " + std::to_string(options.event) + " has no part " +
                        std::to_string(options.index));
    }
    int changed = 0;
    if (const Assignments given = assignments(options); !given.values.empty()) {
        update(options, repository, *row, given);
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
    command.does(transfer);
}

}  // namespace zavevents
