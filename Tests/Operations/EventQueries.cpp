#include "Operations/Answers.h"
#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Operations/Texts.h"

namespace zav::test {

std::vector<Operation> eventQueries() {
    const std::string waitingEvents = "SCAN events USING INDEX events_without_seq";
    return {
        {.name = "allEvents",
         .call = [](auto& r, auto* error) { return answer(r.allEvents(error)); },
         .log =
             lines("allEvents:", "fetching publishable events", "failed to fetch publishable events with %@"),
         .statements = readingEvents({.text = eventQuery(""), .plan = {"SCAN events"}}, 1, 24),
         .needs = {"events", "streams"},
         .answers = {"set of 24", "set of 0", "none"}},
        {.name = "countOfEvents",
         .call = [](auto& r, auto* error) { return answer(ZAVSize{r.countOfEvents(error)}); },
         .log = lines("countOfEvents:", "fetching syncable change count", "failed to fetch events with %@"),
         .statements = {{.text = "SELECT COUNT(*) FROM events",
                         .plan = {"SCAN events USING COVERING INDEX events_by_stream_and_seq"}}},
         .needs = {"events"},
         .answers = {"24", "0", "0"}},
        {.name = "publishableEvents",
         .call = [](auto& r, auto* error) { return answer(r.publishableEvents(error)); },
         .log = lines("publishableEvents:", "fetching publishable events",
                      "failed to fetch publishable events with %@"),
         .statements =
             readingEvents({.text = eventQuery(" WHERE events.seq IS NULL AND event_stream_id IS NOT NULL"),
                            .plan = {waitingEvents}},
                           21, 2),
         .needs = {"events", "streams"},
         .answers = {"set of 2", "set of 0", "none"},
         .leavesOutIncomplete = true},
        {.name = "unpublishableEvents",
         .call = [](auto& r, auto* error) { return answer(r.unpublishableEvents(error)); },
         .log = lines("unpublishableEvents:", "fetching unpublishable events",
                      "failed to fetch unpublishable events with %@"),
         .statements =
             readingEvents({.text = eventQuery(" WHERE events.seq IS NULL AND event_stream_id IS NULL"),
                            .plan = {waitingEvents}},
                           23, 2),
         .needs = {"events", "streams"},
         .answers = {"set of 2", "set of 0", "none"}},
        {.name = "unprocessedEvents",
         .call = [](auto& r, auto* error) { return answer(r.unprocessedEvents(error)); },
         .log = lines("unprocessedEvents:", "fetching unprocessed events",
                      "failed to fetch unprocessed events with %@"),
         .statements = readingEvents(
             {.text = eventQuery(" LEFT JOIN synced_changes ON (events.database_identifier = "
                                 "row_identifier) WHERE synced_changes.table_name = ? AND change_type = ?",
                                 ", synced_changes.*"),
              .values = {"'events'", "0"},
              .plan = {"SEARCH synced_changes USING INDEX synced_changes_by_row (table_name=?)"}},
             1, 8),
         .needs = {"events", "streams", "synced_changes"},
         .answers = {"set of 8", "set of 0", "none"}},
        {.name = "eventsFromRevivedStreamWithStreamDatabaseIdentifier",
         .call =
             [](auto& r, auto* error) {
                 return answer(r.eventsFromRevivedStreamWithStreamDatabaseIdentifier(publishedStream, error));
             },
         .log = lines("eventsFromRevivedStreamWithStreamDatabaseIdentifier:error:",
                      "fetching events for revived stream (streamDatabaseIdentifier=%lld)",
                      "failed to fetch events for revived stream (streamDatabaseIdentifier=%lld) with %@",
                      {"1"}),
         .statements = readingEvents(
             {.text = eventQuery(" WHERE events.seq IS NOT NULL AND streams.database_identifier = ? ORDER "
                                 "BY events.preceding_seq, events.creator_id, events.client_seq"),
              .values = {"1"},
              .plan = {"SEARCH streams USING INTEGER PRIMARY KEY (rowid=?)"},
              .sorts = true},
             1, 20),
         .needs = {"events", "streams"},
         .answers = {"set of 20", "set of 0", "none"}},
        {.name = "postedAndProcessedEvents",
         .call = [](auto& r, auto* error) { return answer(r.postedAndProcessedEvents(error)); },
         .log = lines("postedAndProcessedEvents:", "fetching posted and processed events",
                      "failed to fetch posted and processed events with %@"),
         .statements = readingEvents(
             {.text = eventQuery(" WHERE events.seq IS NOT NULL"), .plan = {"SCAN events"}}, 1, 20),
         .needs = {"events", "streams"},
         .answers = {"set of 20", "set of 0", "none"}},
        {.name = "eventWithSeq",
         .call = [](auto& r, auto* error) { return answer(r.eventWithSeq(3, publishedStreamUUID(), error)); },
         .log = lines(
             "eventWithSeq:streamIdentifier:error:", "fetching event by seq:%d and stream identifier:%@",
             "failed to fetch event by seq:%d and stream identifier:%@ with %@",
             {"3", "11111111-1111-1111-1111-1111111111aa"}),
         .statements =
             readingEvents({.text = eventQuery(" WHERE events.seq = ? AND event_stream_id = ?"),
                            .values = {"3", "x'111111111111111111111111111111aa'"},
                            .plan = {"SEARCH streams USING INDEX streams_by_stream_id (stream_id=?)"}},
                           3, 1),
         .needs = {"events", "streams"},
         .answers = {"event", "null", "null"}},
        {.name = "eventForDatabaseIdentifier",
         .call = [](auto& r, auto* error) { return answer(r.eventForDatabaseIdentifier(3, error)); },
         .log = lines("eventForDatabaseIdentifier:error:", "fetching event for database identifier:%lld",
                      "failed to fetch event for database identifier:%lld with %@", {"3"}),
         .statements = readingEvents({.text = eventQuery(" WHERE events.database_identifier = ?"),
                                      .values = {"3"},
                                      .plan = {"SEARCH events USING INTEGER PRIMARY KEY (rowid=?)"}},
                                     3, 1),
         .needs = {"events", "streams"},
         .answers = {"event", "null", "null"}},
    };
}

}  // namespace zav::test
