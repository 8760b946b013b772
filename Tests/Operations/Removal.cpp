#include "Operations/Answers.h"
#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Operations/Texts.h"

namespace zav::test {

std::vector<Operation> eventRemoval() {
    return {
        {.name = "deleteUnprocessedEvents",
         .call = [](auto& r,
                    auto* error) { return answer(r.deleteUnprocessedEvents(storedEvents(), error)); },
         .log = lines(
             "deleteUnprocessedEvents:error:", "deleting unprocessed events with database identifiers: %@",
             "failed to delete unprocessed events with %@", {"{(2, 4, 6)}"}),
         .statements =
             {{.text =
                   "DELETE FROM synced_changes WHERE table_name = 'events' AND row_identifier IN (?, ?, ?)",
               .values = {"2", "4", "6"},
               .plan = {"SEARCH synced_changes USING INDEX synced_changes_by_row (table_name=? AND "
                        "row_identifier=?)"}}},
         .needs = {"synced_changes"},
         .answers = {"true", "true", "false"}},
        {.name = "deleteEvents",
         .call = [](auto& r, auto* error) { return answer(r.deleteEvents(storedEvents(), error)); },
         .log = lines("deleteEvents:error:", "deleting events", "failed to delete events with %@"),
         .statements = {{.text = "DELETE FROM events WHERE database_identifier = ?",
                         .values = {"2"},
                         .plan = {"SEARCH events USING INTEGER PRIMARY KEY (rowid=?)"},
                         .times = 3}},
         .needs = {"events"},
         .answers = {"true", "true", "false"},
         .isAtomic = false},
        {.name = "persistTombstoneEventWithTargetSeq",
         .call =
             [](auto& r, auto* error) {
                 return answer(r.persistTombstoneEventWithTargetSeq(7, publishedStream, error));
             },
         .log = lines("persistTombstoneEventWithTargetSeq:streamDatabaseIdentifier:error:",
                      "tombstoning event with seq:%d and streamDBID:%llu",
                      "failed to tombstone the event with seq:%d and streamDBID:%llu with %@", {"7", "1"}),
         .statements =
             {{.text = "UPDATE events SET type = ? WHERE seq = ? AND stream_database_identifier = ?",
               .values = {"10", "7", "1"},
               .plan =
                   {"SEARCH events USING INDEX events_by_stream_and_seq (stream_database_identifier=? AND "
                    "seq=?)"}}},
         .needs = {"events"},
         .answers = {"true", "true", "false"}},
    };
}

}  // namespace zav::test
