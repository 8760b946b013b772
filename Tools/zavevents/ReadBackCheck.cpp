#include "ReadBackCheck.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <span>
#include <tuple>

#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>
#include <ZAVEventRepository/ZAVURL.h>
#include <ZAVEventRepository/ZAVUTF8.h>

#include "Rows.h"

namespace zavevents {

using namespace zav;

namespace {

constexpr const char* cannotRead = "cannot read the database";

/// A column, and the condition under which a stored value is not what a line can say.
struct OddColumn {
    const char* name;
    const char* condition;
};

constexpr auto oddEventColumns = std::to_array<OddColumn>({
    {"type", "typeof(type) <> 'integer' OR type NOT BETWEEN -2147483648 AND 2147483647"},
    {"creator_id", "typeof(creator_id) NOT IN ('text', 'null')"},
    {"creator_name", "typeof(creator_name) NOT IN ('text', 'null')"},
    {"member_id", "typeof(member_id) NOT IN ('text', 'null')"},
    {"seq",
     "typeof(seq) NOT IN ('integer', 'null') OR seq NOT BETWEEN -2147483648 AND 2147483646"
     " OR (seq IS NOT NULL AND stream_database_identifier IS NULL)"},
    {"timestamp", "typeof(timestamp) NOT IN ('integer', 'null')"},
    {"preceding_seq",
     "typeof(preceding_seq) NOT IN ('integer', 'null')"
     " OR preceding_seq NOT BETWEEN -2147483648 AND 2147483647"},
    {"client_seq",
     "typeof(client_seq) NOT IN ('integer', 'null')"
     " OR client_seq NOT BETWEEN -2147483648 AND 2147483647"},
    {"target_seq",
     "typeof(target_seq) NOT IN ('integer', 'null')"
     " OR target_seq NOT BETWEEN -2147483648 AND 2147483647"},
    {"subtype", "typeof(subtype) NOT IN ('integer', 'null') OR subtype NOT BETWEEN 0 AND 255"},
    {"client_id", "typeof(client_id) <> 'blob'"},
});

constexpr auto oddPartColumns = std::to_array<OddColumn>({
    {"type", "typeof(type) NOT IN ('text', 'null')"},
    {"value", "typeof(value) NOT IN ('blob', 'null')"},
    {"value, which stands beside a url", "url IS NOT NULL AND length(value) > 0"},
    {"access_expiration",
     "typeof(access_expiration) NOT IN ('real', 'integer', 'null')"
     " OR abs(access_expiration) > 1.7976931348623157e308"},
    {"url", "typeof(url) NOT IN ('text', 'null')"},
    {"size", "typeof(size) NOT IN ('integer', 'null')"},
    {"transfer_status",
     "typeof(transfer_status) NOT IN ('integer', 'null')"
     " OR transfer_status NOT BETWEEN -2147483648 AND 2147483647"},
    {"file_path", "typeof(file_path) NOT IN ('text', 'null')"},
    {"last_accessed",
     "typeof(last_accessed) NOT IN ('real', 'integer', 'null')"
     " OR abs(last_accessed) > 1.7976931348623157e308"},
    {"purged", "typeof(purged) NOT IN ('integer', 'null')"},
});

/// The query of the rows in which any of the columns is odd: the row of the event, and the columns' names.
std::string queryOfOdd(std::span<const OddColumn> columns, const std::string& row, const std::string& table) {
    std::string names;
    std::string anyOdd;
    for (const auto& [name, condition] : columns) {
        names.append(names.empty() ? "" : " || ").append("CASE WHEN ").append(condition);
        names.append(" THEN '; the stored ").append(name).append("' ELSE '' END");
        anyOdd.append(anyOdd.empty() ? "" : " OR ").append(condition);
    }
    return "SELECT " + row + ", substr(" + names + ", 3) FROM " + table + " WHERE " + anyOdd;
}

void append(std::string& reasons, const std::string& reason) {
    reasons += (reasons.empty() ? "" : "; ") + reason;
}

void appendUnlessUTF8(std::string& reasons, const std::string& name, const std::optional<std::string>& text) {
    if (text && !ZAVIsUTF8(*text)) {
        append(reasons, name + " is not UTF-8");
    }
}

/// What the line of an event's record loses.
std::string lossesOf(const ZAVEvent& event) {
    std::string reasons;
    if (event.stream_id() && !event.streamUUID()) {
        append(reasons, "stream_id is not a UUID");
    }
    appendUnlessUTF8(reasons, "creator_id", event.creator_id());
    appendUnlessUTF8(reasons, "creator_name", event.creator_name());
    appendUnlessUTF8(reasons, "member_id", event.member_id());
    if (event.transient_metadata()) {
        for (const auto& entry : *event.transient_metadata()) {
            appendUnlessUTF8(reasons, "a key of transient_metadata", entry.first);
        }
    }
    std::int64_t index = 0;
    for (const auto& part : event.contentParts()) {
        const std::string name = "content[" + std::to_string(index) + "]";
        appendUnlessUTF8(reasons, name + ".media_type", part->media_type());
        if (part->index() != index) {
            append(reasons, name + " is stored at the index " + std::to_string(part->index()));
        }
        if (!part->body() && !part->external_url()) {
            append(reasons, name + " has a url that is not a URL");
        }
        ++index;
    }
    return reasons;
}

/// Whether reading the line of an event could fail; of most it cannot, and they are spared it.
bool mayBeRefused(const ZAVEvent& event) {
    const auto isPlain = [](const std::shared_ptr<ZAVEventContent>& part) {
        return part->transferStatus() <= ZAVContentTransferComplete && part->size() >= 0 &&
               !part->fileURL() && !part->external_url() && !part->lastAccessed() &&
               !part->externalContentURLExpiration();
    };
    const auto parts = event.contentParts();
    return event.type() == 0 || !ZAVUUIDFromData(event.client_id()) ||
           !std::all_of(parts.begin(), parts.end(), isPlain);
}

}  // namespace

ReadBackCheck::ReadBackCheck(FMDatabase& database) : reader_(std::nullopt) {
    forEachRow(database, cannotRead, queryOfOdd(oddEventColumns, "database_identifier", "events"),
               [this](const FMResultSet& row) {
                   note(row.longLongIntForColumnIndex(0), row.stringForColumnIndex(1).value_or(""));
               });
    forEachRow(
        database, cannotRead, queryOfOdd(oddPartColumns, "event_database_identifier", "event_content_parts"),
        [this](const FMResultSet& row) {
            note(row.longLongIntForColumnIndex(0), row.stringForColumnIndex(1).value_or("") + " of a part");
        });
    // A path that no URL can be made of is absent from the record.
    const ZAVURL directory = ZAVMessageRepositoryCacheBaseDirectoryURL();
    forEachRow(database, cannotRead,
               "SELECT event_database_identifier, file_path FROM event_content_parts"
               " WHERE file_path GLOB '*[^-A-Za-z0-9._/~]*'",
               [&](const FMResultSet& row) {
                   const auto path = row.stringForColumnIndex(1);
                   if (path && !ZAVURL::URLWithString(*path, directory)) {
                       note(row.longLongIntForColumnIndex(0), "the stored file_path of a part");
                   }
               });
}

void ReadBackCheck::findTwins(const std::vector<std::shared_ptr<ZAVEvent>>& events,
                              const std::vector<bool>& isSequenced) {
    struct Seen {
        std::optional<ZAVDatabaseIdentifier> waiting;
        std::optional<ZAVDatabaseIdentifier> sequenced;
    };
    std::map<std::tuple<ZAVDatabaseIdentifier, std::optional<ZAVData>, std::optional<std::string>>, Seen>
        seen;
    const auto key = [](const ZAVEvent& event) {
        return std::tuple(event.streamDatabaseIdentifier(), event.client_id(), event.creator_id());
    };
    for (std::size_t index = 0; index < events.size(); ++index) {
        if (!isSequenced[index]) {
            seen.try_emplace(key(*events[index]));
        }
    }
    for (std::size_t index = 0; index < events.size() && !seen.empty(); ++index) {
        const ZAVEvent& event = *events[index];
        const auto found = seen.find(key(event));
        if (found == seen.end()) {
            continue;
        }
        auto& [waiting, sequenced] = found->second;
        const bool takesWaiting = waiting && (!isSequenced[index] || event.creator_id());
        const auto twin = takesWaiting ? waiting : isSequenced[index] ? std::nullopt : sequenced;
        if (twin) {
            note(event.databaseIdentifier(), "it has stream, author and client_id of the event in row " +
                                                 std::to_string(*twin) + " and is taken for it");
        }
        if (isSequenced[index]) {
            waiting = takesWaiting ? std::nullopt : waiting;
            sequenced = event.databaseIdentifier();
        } else if (!twin) {
            waiting = event.databaseIdentifier();
        }
    }
}

std::string ReadBackCheck::reasonsFor(const ZAVEvent& event, std::string_view line) {
    std::string reasons = lossesOf(event);
    if (const auto known = reasons_.find(event.databaseIdentifier()); known != reasons_.end()) {
        append(reasons, known->second);
    }
    if (mayBeRefused(event)) {
        try {
            static_cast<void>(reader_.read(line));
        } catch (const BadLine& bad) {
            append(reasons, bad.what());
        }
    }
    return reasons;
}

void ReadBackCheck::note(ZAVDatabaseIdentifier event, const std::string& reason) {
    append(reasons_[event], reason);
}

}  // namespace zavevents
