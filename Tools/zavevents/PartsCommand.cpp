#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <ZAVEventRepository/ZAVEventRepository.h>

#include "Command.h"
#include "EventWriter.h"
#include "Output.h"

namespace zavevents {
namespace {

using namespace zav;

struct PartsOptions {
    bool unassignedURLs = false;
    bool incompleteUploads = false;
    bool expiredDownloads = false;
    bool incompleteDownloads = false;
    std::optional<std::int64_t> row;
    std::optional<std::int64_t> event;
    std::optional<std::int64_t> message;
    std::optional<ZAVURL> objectID;
    std::optional<ZAVURL> url;
    std::optional<std::uint64_t> leastRecent;
    std::int64_t index = 0;
    std::vector<std::string> types;
    bool noTypes = false;
    std::uint64_t maxSize = 0;
    std::uint64_t limit = 100;
};

/// The MIME type set that the options stand for: the given types, none at all, or no set.
std::optional<std::set<std::string>> typeSet(const PartsOptions& options) {
    if (options.types.empty() && !options.noTypes) {
        return std::nullopt;
    }
    return std::set<std::string>(options.types.begin(), options.types.end());
}

using Parts = std::vector<std::shared_ptr<ZAVEventContent>>;

/// Puts parts into the order in which they are written. What to purge and the download queues have one of
/// their own; in these the parts of one event have one rank, and follow each other by position. The upload
/// queues have none.
void order(Parts& parts, const PartsOptions& options) {
    if (options.leastRecent) {
        return;
    }
    const bool isRanked = options.expiredDownloads || options.incompleteDownloads;
    for (auto first = parts.begin(); first != parts.end();) {
        const auto isOfAnother = [event = (*first)->eventDatabaseIdentifier()](const auto& part) {
            return part->eventDatabaseIdentifier() != event;
        };
        const auto last = isRanked ? std::find_if(first, parts.end(), isOfAnother) : parts.end();
        std::stable_sort(first, last, [](const auto& left, const auto& right) {
            return std::tuple(left->eventDatabaseIdentifier(), left->index()) <
                   std::tuple(right->eventDatabaseIdentifier(), right->index());
        });
        first = last;
    }
}

Parts select(const ZAVEventRepository& repository, const PartsOptions& options) {
    ZAVError error;
    std::optional<ZAVSet<ZAVEventContent>> parts;
    std::shared_ptr<ZAVEventContent> part;
    if (options.unassignedURLs) {
        parts = repository.eventContentsHavingUnassignedURLsWithError(&error);
    } else if (options.incompleteUploads) {
        parts = repository.eventContentsHavingIncompleteUploadsWithLimit(options.limit, &error);
    } else if (options.expiredDownloads) {
        parts = repository.eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
            typeSet(options), options.maxSize, options.limit, &error);
    } else if (options.incompleteDownloads) {
        parts = repository.eventContentsHavingIncompleteDownloadsWithLimit(options.limit, &error);
    } else if (options.leastRecent) {
        parts = repository.leastRecentlyAccessedEventContentPartsForSize(*options.leastRecent, &error);
    } else if (options.row) {
        part = repository.eventContentDatabaseIdentifier(*options.row, &error);
    } else if (options.event) {
        part = repository.eventContentForEventDatabaseIdentifier(*options.event, options.index, &error);
    } else if (options.message) {
        part = repository.eventContentForMessagePart(
            ZAVMessagePart(std::make_shared<ZAVMessage>(*options.message),
                           static_cast<std::uint64_t>(options.index)),
            &error);
    } else if (options.objectID) {
        part = repository.eventContentForMessagePartObjectIdentifier(*options.objectID, &error);
    } else if (options.url) {
        part = repository.eventContentForExternalContentURL(*options.url, &error);
    }
    require(!error, "cannot read the content parts", error);
    Parts selected;
    if (parts) {
        selected.assign(parts->begin(), parts->end());
    } else if (part) {
        selected.push_back(part);
    }
    order(selected, options);
    return selected;
}

void writeParts(const DatabaseFile& file, const PartsOptions& options) {
    const ZAVEventRepository repository(openStore(file));
    Output output;
    for (const auto& part : select(repository, options)) {
        appendPart(*part, output.text());
        output.flushIfLarge();
    }
    output.flush();
}

}  // namespace

void addPartsCommand(CLI::App& app, Invocation& invocation) {
    const Command<PartsOptions> command(app, invocation, "parts", "Write content parts as JSON Lines",
                                        "--expired-downloads --mime image/jpeg --max-size 65536");
    CLI::App& parser = command.parser();
    PartsOptions& options = command.options();
    auto* const selection = parser.add_option_group("Selection", "Which parts");
    selection->add_flag("--unassigned-urls", options.unassignedURLs, "Those that need a URL to upload to");
    auto* const uploads =
        selection->add_flag("--incomplete-uploads", options.incompleteUploads, "Uploads in flight");
    auto* const expired = selection->add_flag("--expired-downloads", options.expiredDownloads,
                                              "Those to download that need a new URL");
    auto* const downloads =
        selection->add_flag("--incomplete-downloads", options.incompleteDownloads, "Downloads in flight");
    addOption(*selection, "--id", options.row, row(), "The part in this row");
    auto* const event =
        addOption(*selection, "--event", options.event, row(), "Part --index of the event in this row");
    auto* const message =
        addOption(*selection, "--message", options.message, row(), "Part --index of the message in this row");
    addOption(*selection, "--object-id", options.objectID, url(), "The part that an object identifier names");
    addOption(*selection, "--url", options.url, url(), "The part whose content is kept under this URL");
    addOption(*selection, "--least-recent", options.leastRecent, amount(),
              "Those to purge to free so many bytes, oldest first");
    selection->require_option(1);

    auto* const index = addOption(parser, "--index", options.index, position(), "Position of the part");
    event->needs(index);
    message->needs(index);
    auto* const types =
        addOption(parser, "--mime", options.types, mediaType(),
                  "A type that is wanted whatever its size; all are, without --mime and --no-mime")
            ->needs(expired);
    parser.add_flag("--no-mime", options.noTypes, "No type is wanted whatever its size")
        ->needs(expired)
        ->excludes(types);
    addOption(parser, "--max-size", options.maxSize, amount(),
              "The size up to which other types than those are wanted, in bytes (default: 0)")
        ->needs(expired);
    auto* const limit =
        addOption(parser, "--limit", options.limit, amount(), "At most so many (default: 100)");
    command.does(writeParts, [=] {
        requireOneOf(index, {event, message});
        requireOneOf(limit, {uploads, expired, downloads});
    });
}

}  // namespace zavevents
