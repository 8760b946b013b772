#include "Operations/Answers.h"
#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"

namespace zav::test {

std::vector<Operation> eventRemoval() {
    using R = ZAVEventRepository;
    return {
        {.owner = "ZAVEventRepository",
         .name = "deleteUnprocessedEvents",
         .call = [](const R& r,
                    ZAVError* error) { return answer(r.deleteUnprocessedEvents(storedEvents(), error)); },
         .log =
             LogTexts{.function = "-[ZAVEventRepository deleteUnprocessedEvents:error:]",
                      .verboseFormat = "deleting unprocessed events with database identifiers: %@",
                      .verboseMessage = "deleting unprocessed events with database identifiers: {(2, 4, 6)}",
                      .failureFormat = "failed to delete unprocessed events with %@",
                      .failureMessage = "failed to delete unprocessed events with "},
         .statements =
             {{.text =
                   "DELETE FROM synced_changes WHERE table_name = 'events' AND row_identifier IN (?, ?, ?)",
               .values = {"2", "4", "6"},
               .plan = {"SEARCH synced_changes USING INDEX synced_changes_by_row (table_name=? AND "
                        "row_identifier=?)"}}},
         .needs = {"synced_changes"},
         .answer = "true",
         .answerFromEmptyTables = "true",
         .answerOnFailure = "false",
         .report = FailureReport::errorLine},
        {.owner = "ZAVEventRepository",
         .name = "deleteEvents",
         .call = [](const R& r, ZAVError* error) { return answer(r.deleteEvents(storedEvents(), error)); },
         .log = LogTexts{.function = "-[ZAVEventRepository deleteEvents:error:]",
                         .verboseFormat = "deleting events",
                         .verboseMessage = "deleting events",
                         .failureFormat = "failed to delete events with %@",
                         .failureMessage = "failed to delete events with "},
         .statements = {{.text = "DELETE FROM events WHERE database_identifier = ?",
                         .values = {"2"},
                         .plan = {"SEARCH events USING INTEGER PRIMARY KEY (rowid=?)"},
                         .times = 3}},
         .needs = {"events"},
         .answer = "true",
         .answerFromEmptyTables = "true",
         .answerOnFailure = "false",
         .report = FailureReport::errorLine,
         .isAtomic = false},
        {.owner = "ZAVEventRepository",
         .name = "persistTombstoneEventWithTargetSeq",
         .call =
             [](const R& r, ZAVError* error) {
                 return answer(r.persistTombstoneEventWithTargetSeq(7, publishedStream, error));
             },
         .log =
             LogTexts{
                 .function =
                     "-[ZAVEventRepository persistTombstoneEventWithTargetSeq:streamDatabaseIdentifier:error:]",
                 .verboseFormat = "tombstoning event with seq:%d and streamDBID:%llu",
                 .verboseMessage = "tombstoning event with seq:7 and streamDBID:1",
                 .failureFormat = "failed to tombstone the event with seq:%d and streamDBID:%llu with %@",
                 .failureMessage = "failed to tombstone the event with seq:7 and streamDBID:1 with "},
         .statements =
             {{.text = "UPDATE events SET type = ? WHERE seq = ? AND stream_database_identifier = ?",
               .values = {"10", "7", "1"},
               .plan =
                   {"SEARCH events USING INDEX events_by_stream_and_seq (stream_database_identifier=? AND "
                    "seq=?)"}}},
         .needs = {"events"},
         .answer = "true",
         .answerFromEmptyTables = "true",
         .answerOnFailure = "false",
         .report = FailureReport::errorLine},
    };
}

}  // namespace zav::test
