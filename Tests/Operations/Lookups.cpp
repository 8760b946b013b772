#include <ZAVEventRepository/ZAVMessagePartObjectIdentifier.h>

#include "Operations/Answers.h"
#include "Operations/Catalogue.h"
#include "Operations/Texts.h"
#include "Support/TestStore.h"

namespace zav::test {

// All of them find the part at index 1 of the event in row 14.
std::vector<Operation> contentLookups() {
    return {
        {.name = "eventContentDatabaseIdentifier",
         .call = [](auto& r, auto* error) { return answer(r.eventContentDatabaseIdentifier(28, error)); },
         .log = lines("eventContentDatabaseIdentifier:error:",
                      "fetching event content part for databaseIdentifier=%lld",
                      "failed to fetch event for databaseIdentifier=%lld %@", {"28"}),
         .statements = {{.text = partQuery("WHERE event_content_parts.database_identifier = ?"),
                         .values = {"28"},
                         .plan = {"SEARCH event_content_parts USING INTEGER PRIMARY KEY (rowid=?)"}}},
         .needs = {"event_content_parts", "events", "streams"},
         .answers = {"part", "null", "null"}},
        {.name = "eventContentForEventDatabaseIdentifier",
         .call = [](auto& r,
                    auto* error) { return answer(r.eventContentForEventDatabaseIdentifier(14, 1, error)); },
         .log = lines("eventContentForEventDatabaseIdentifier:eventContentIndex:error:",
                      "fetching event content part for eventDatabaseIdentifier=%lld index=%ld",
                      "failed to fetch event for eventDatabaseIdentifier=%lld index=%ld %@", {"14", "1"}),
         .statements =
             {{.text = partQuery("WHERE event_database_identifier = ? AND event_content_part_id = ?"),
               .values = {"14", "1"},
               .plan = {"SEARCH event_content_parts USING INDEX event_content_parts_by_event_and_index "
                        "(event_database_identifier=? AND event_content_part_id=?)"}}},
         .needs = {"event_content_parts", "events", "streams"},
         .answers = {"part", "null", "null"}},
        {.name = "eventContentForMessagePart",
         .call =
             [](auto& r, auto* error) {
                 return answer(r.eventContentForMessagePart(
                     ZAVMessagePart(std::make_shared<ZAVMessage>(14), 1), error));
             },
         .log = lines("eventContentForMessagePart:error:", "fetching event content part for messagePart=%@",
                      "failed to fetch event for messagePart=%@ %@",
                      {"<ZAVMessagePart message=<ZAVMessage databaseIdentifier=14> index=1>"}),
         .statements = {{.text = partQuery(
                             "LEFT JOIN messages ON (event_content_parts.event_database_identifier = "
                             "messages.event_database_identifier) WHERE messages.database_identifier = ? "
                             "AND event_content_part_id = ?"),
                         .values = {"14", "1"},
                         .plan = {"SEARCH messages USING INTEGER PRIMARY KEY (rowid=?)"}}},
         .needs = {"event_content_parts", "events", "streams", "messages"},
         .answers = {"part", "null", "null"}},
        {.name = "eventContentForMessagePartObjectIdentifier",
         .call =
             [](auto& r, auto* error) {
                 return answer(r.eventContentForMessagePartObjectIdentifier(
                     ZAVMakeMessagePartObjectIdentifier(uuidNumber(14), 1), error));
             },
         .log = lines("eventContentForMessagePartObjectIdentifier:error:",
                      "fetching event content part for messagePart->objectIdentifier=%@",
                      "failed event content part for messagePart->objectIdentifier=%@ %@",
                      {"zav:///messages/11111111-1111-1111-1111-11111111110e/parts/1"}),
         .statements = {{.text = partQuery(
                             "WHERE events.client_id = ? AND event_content_parts.event_content_part_id = ?"),
                         .values = {"x'1111111111111111111111111111110e'", "1"},
                         .plan = {"SEARCH events USING INDEX events_by_client_id (client_id=?)"}}},
         .needs = {"event_content_parts", "events", "streams"},
         .answers = {"part", "null", "null"}},
        {.name = "eventContentForExternalContentURL",
         .call =
             [](auto& r, auto* error) {
                 return answer(r.eventContentForExternalContentURL(
                     *ZAVURL::URLWithString("https://content.example.com/up%2Fload/14"), error));
             },
         .log = lines("eventContentForExternalContentURL:error:",
                      "fetching event content part for externalContentURL=%@",
                      "failed event content part for externalContentURL=%@ %@",
                      {"https://content.example.com/up%2Fload/14"}),
         .statements =
             {{.text = partQuery("WHERE event_content_parts.url = ?"),
               .values = {"'https://content.example.com/up%2Fload/14'"},
               .plan = {"SEARCH event_content_parts USING INDEX event_content_parts_by_url (url=?)"}}},
         .needs = {"event_content_parts", "events", "streams"},
         .answers = {"part", "null", "null"}},
    };
}

}  // namespace zav::test
