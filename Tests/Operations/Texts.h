#pragma once

#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "Operations/Operation.h"

namespace zav::test {

/// The log texts of an operation of the event repository. `values` fill the directives of both formats as
/// they read for the call of the entry; the last directive of the failure's is that of the error.
[[nodiscard]] inline LogTexts lines(const std::string& selector, const std::string& verboseFormat,
                                    const std::string& failureFormat,
                                    const std::vector<std::string>& values = {}) {
    static const std::regex directive("%(lld|llu|ld|lu|d|u|@)");
    const auto filled = [&](std::string format) {
        std::string text;
        std::smatch match;
        for (auto value = values.begin();
             value != values.end() && std::regex_search(format, match, directive); ++value) {
            text += match.prefix().str() + *value;
            format = match.suffix().str();
        }
        return text + format;
    };
    return {.function = "-[ZAVEventRepository " + selector + "]",
            .verboseFormat = verboseFormat,
            .verboseMessage = filled(verboseFormat),
            .failureFormat = failureFormat,
            .failureMessage = filled(failureFormat.substr(0, failureFormat.rfind('%')))};
}

/// The statement of an event query: the columns of an event and of its stream, and `furtherColumns`, from
/// `rest` on.
[[nodiscard]] inline std::string eventQuery(const std::string& rest, const std::string& furtherColumns = "") {
    return "SELECT events.client_id, events.client_seq, events.creator_id, events.member_id, events.preceding_seq, "
           "events.stream_database_identifier, events.subtype, events.target_seq, events.timestamp, events.type, "
           "events.seq AS event_seq, events.database_identifier AS event_database_identifier, "
           "streams.stream_id AS event_stream_id, streams.seq AS streams_seq, events.creator_name" +
           furtherColumns +
           " FROM events LEFT JOIN streams ON (events.stream_database_identifier = streams.database_identifier)" +
           rest;
}

/// The statement of a lookup or a queue: the columns of a part and of what it belongs to, and
/// `furtherColumn`, where `condition` holds.
[[nodiscard]] inline std::string partQuery(const std::string& condition,
                                           const std::string& furtherColumn = "") {
    return "SELECT event_content_parts.event_content_part_id, event_content_parts.event_database_identifier, "
           "event_content_parts.type, event_content_parts.value, event_content_parts.access_expiration, "
           "event_content_parts.url, event_content_parts.size, event_content_parts.transfer_status, "
           "event_content_parts.file_path, event_content_parts.last_accessed, event_content_parts.purged, "
           "events.client_id, events.seq, streams.stream_id" +
           furtherColumn +
           " FROM event_content_parts LEFT JOIN events ON (events.database_identifier = "
           "event_content_parts.event_database_identifier) LEFT JOIN streams ON (streams.database_identifier = "
           "events.stream_database_identifier) " +
           condition;
}

/// The statements of an operation that reads `count` events, beginning with the one in row `first`: the
/// query, and what the mapper runs for each event.
[[nodiscard]] inline std::vector<ExpectedStatement> readingEvents(ExpectedStatement query, int first,
                                                                  int count) {
    return {
        std::move(query),
        {.text = "SELECT key, value, typeof(value) = 'blob' FROM keyed_values_remote WHERE "
                 "object_database_identifier = ? AND object_type = ? AND key_type = ?",
         .values = {std::to_string(first), "'event'", "0"},
         .plan = {"SEARCH keyed_values_remote USING PRIMARY KEY (object_database_identifier=? AND "
                  "object_type=? AND key_type=?)"},
         .times = count},
        {.text = partQuery(
             "WHERE event_database_identifier = ? ORDER BY event_content_parts.event_content_part_id ASC"),
         .values = {std::to_string(first)},
         .plan = {"SEARCH event_content_parts USING INDEX event_content_parts_by_event_and_index "
                  "(event_database_identifier=?)"},
         .times = count}};
}

/// What setting the keyed values of an object runs: reading what is stored, one statement for each value that
/// is to be stored, and one for each that is to go.

[[nodiscard]] inline ExpectedStatement comparingValues(const std::string& table,
                                                       std::vector<std::string> values, int times = 1) {
    return {
        .text =
            "SELECT key, value, typeof(value) = 'blob', timestamp, typeof(key) = 'text' AND typeof(value) IN "
            "('text', 'blob') AND typeof(timestamp) IN ('real', 'null') FROM " +
            table + " WHERE object_database_identifier = ? AND object_type = ? AND key_type = ?",
        .values = std::move(values),
        .plan = {"SEARCH " + table +
                 " USING PRIMARY KEY (object_database_identifier=? AND object_type=? AND key_type=?)"},
        .times = times};
}

[[nodiscard]] inline ExpectedStatement settingAValue(const std::string& table,
                                                     std::vector<std::string> values, int times = 1) {
    return {
        .text =
            "INSERT OR REPLACE INTO " + table +
            " (object_database_identifier, object_type, key_type, key, value, timestamp) VALUES (?, ?, ?, ?, ?, ?)",
        .values = std::move(values),
        .times = times};
}

[[nodiscard]] inline ExpectedStatement removingAValue(const std::string& table,
                                                      std::vector<std::string> values, int times = 1) {
    return {.text = "DELETE FROM " + table +
                    " WHERE object_database_identifier = ? AND object_type = ? AND key_type = ? AND key = ?",
            .values = std::move(values),
            .plan = {"SEARCH " + table +
                     " USING PRIMARY KEY (object_database_identifier=? AND object_type=? AND key_type=? AND "
                     "key=?)"},
            .times = times};
}

}  // namespace zav::test
