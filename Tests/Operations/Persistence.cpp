#include <utility>

#include "Operations/Answers.h"
#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Operations/Texts.h"

namespace zav::test {
namespace {

/// The lines of a call that stores `count` events. That of a failure names the events before the error.
LogTexts persisting(const std::string& count) {
    LogTexts texts = lines("persistEvents:error:", "persisting %lu event(s)",
                           "failed to persist events:%@ with %@", {count});
    texts.failureMessage = "failed to persist events:";
    texts.printsMoreBeforeError = true;
    return texts;
}

/// The statements of what becomes of an event, the first of those that a call stores.

ExpectedStatement insertion(std::vector<std::string> values, int times) {
    return {
        .text =
            "INSERT OR IGNORE INTO events (database_identifier, type, creator_id, seq, timestamp, "
            "preceding_seq, client_seq, subtype, member_id, target_seq, stream_database_identifier, client_id, "
            "creator_name) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
        .values = std::move(values),
        .times = times};
}

ExpectedStatement collidingEvent(const std::string& seq) {
    return {.text = "SELECT * FROM events WHERE stream_database_identifier = ? AND seq = ? LIMIT 1",
            .values = {"1", seq},
            .plan = {"SEARCH events USING INDEX events_by_stream_and_seq (stream_database_identifier=? AND "
                     "seq=?)"}};
}

ExpectedStatement update(std::vector<std::string> values) {
    return {
        .text =
            "UPDATE events SET type = ?, creator_id = ?, seq = ?, timestamp = ?, preceding_seq = ?, client_seq "
            "= ?, subtype = ?, member_id = ?, target_seq = ?, stream_database_identifier = ?, client_id = ?, "
            "creator_name = ? WHERE database_identifier = ?",
        .values = std::move(values),
        .plan = {"SEARCH events USING INTEGER PRIMARY KEY (rowid=?)"}};
}

/// One that is stored already, one at a new sequence and one without.
ZAVSet<ZAVTEvent> threeEvents() {
    return {fullEvent(3, 3), fullEvent(90, 90), draft(91)};
}

/// An event that is stored already, named by its stream's row, with other metadata.
ZAVSet<ZAVTEvent> eventWithOtherMetadata() {
    auto event = std::make_shared<ZAVEvent>(ZAVDatabaseIdentifierNotSet, publishedStream);
    event->set_type(EventType_MESSAGE);
    event->set_seq(1);
    event->set_client_id(ZAVDataFromUUID(publishedStreamUUID()));
    event->set_transient_metadata(ZAVDictionary{{"other", std::string("value")}});
    return {event};
}

}  // namespace

std::vector<Operation> eventPersistence() {
    return {
        {.name = "persistEvents",
         .call = [](auto& r, auto* error) { return answer(r.persistEvents(threeEvents(), error)); },
         .log = persisting("3"),
         .statements =
             {{.text = "SELECT * FROM streams WHERE stream_id = ? LIMIT 1",
               .values = {"x'111111111111111111111111111111aa'"},
               .plan = {"SEARCH streams USING INDEX streams_by_stream_id (stream_id=?)"},
               .times = 3},
              insertion({"NULL", "4", "'member-0'", "3", "1700000000003", "2", "3", "0", "NULL", "NULL", "1",
                         "x'11111111111111111111111111111103'", "'Member 0'"},
                        3),
              collidingEvent("3"),
              update({"4", "'member-0'", "3", "1700000000003", "2", "3", "0", "NULL", "NULL", "1",
                      "x'11111111111111111111111111111103'", "'Member 0'", "3"}),
              comparingValues("keyed_values_remote", {"3", "'event'", "0"}, 2),
              {.text =
                   "INSERT OR IGNORE INTO event_content_parts (event_content_part_id, event_database_identifier, "
                   "type, value, access_expiration, url, size, transfer_status, file_path, last_accessed, purged) "
                   "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
               .values = {"0", "3", "'text/plain'", "x'6d6573736167652033'", "NULL", "NULL", "9", "4", "NULL",
                          "NULL", "0"},
               .times = 5},
              settingAValue("keyed_values_remote", {"26", "'event'", "0", "'locale'", "'de'", "NULL"}, 2)},
         .needs = {"events", "streams", "event_content_parts", "keyed_values_remote"},
         .answers = {"true", "raises", "false"},
         .isAtomic = false,
         // An insertion that is ignored uses up a row identifier: the second time, events get later rows.
         .isRepeatable = false},
        {.name = "persistEvents",
         .variant = "WithOtherMetadata",
         .call = [](auto& r,
                    auto* error) { return answer(r.persistEvents(eventWithOtherMetadata(), error)); },
         .log = persisting("1"),
         .statements = {{.text = "SELECT * FROM streams WHERE database_identifier = ? LIMIT 1",
                         .values = {"1"},
                         .plan = {"SEARCH streams USING INTEGER PRIMARY KEY (rowid=?)"}},
                        insertion({"NULL", "4", "NULL", "1", "0", "0", "0", "0", "NULL", "NULL", "1",
                                   "x'111111111111111111111111111111aa'", "NULL"},
                                  1),
                        collidingEvent("1"),
                        update({"4", "NULL", "1", "0", "0", "0", "0", "NULL", "NULL", "1",
                                "x'111111111111111111111111111111aa'", "NULL", "1"}),
                        comparingValues("keyed_values_remote", {"1", "'event'", "0"}, 1),
                        settingAValue("keyed_values_remote",
                                      {"1", "'event'", "0", "'other'", "'value'", "NULL"}, 1),
                        removingAValue("keyed_values_remote", {"1", "'event'", "0", "'locale'"}, 2)},
         .needs = {"events", "streams", "keyed_values_remote"},
         .answers = {"true", "raises", "false"},
         .isAtomic = false},
    };
}

}  // namespace zav::test
