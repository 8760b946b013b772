#include <memory>

#include "Operations/Answers.h"
#include "Operations/Catalogue.h"
#include "Operations/Texts.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

std::shared_ptr<ZAVEventContent> partToUpdate() {
    auto part = std::make_shared<ZAVEventContent>(
        ZAVDatabaseIdentifier{5}, uuidNumber(5), 0, "image/png", std::nullopt, 4096,
        ZAVURL::URLWithString("files/5/0", *ZAVURL::URLWithString("file:///cache/")),
        ZAVURL::URLWithString("https://content.example.com/5/0"), ZAVDateFromSecondsSince1970(4000000000.5));
    part->setTransferStatus(ZAVContentTransferComplete);
    part->setLastAccessed(ZAVDateFromSecondsSince1970(1700000123.25));
    part->setIsPurged(true);
    return part;
}

}  // namespace

std::vector<Operation> diskAccounting() {
    const std::string part = partToUpdate()->description();
    return {
        {.name = "persistEventContentUpdate",
         .call = [](auto& r,
                    auto* error) { return answer(r.persistEventContentUpdate(*partToUpdate(), error)); },
         .log =
             lines("persistEventContentUpdate:error:", "persisting event content update for eventContent=%@",
                   "failed persisting event content update for eventContent=%@ with %@", {part}),
         .statements =
             {{.text = "UPDATE event_content_parts SET access_expiration = ?, url = ?, size = ?, "
                       "transfer_status = ?, file_path = ?, last_accessed = ?, purged = ? WHERE "
                       "event_content_part_id = ? AND event_database_identifier = ?",
               .values = {"4000000000.5", "'https://content.example.com/5/0'", "4096", "4", "'files/5/0'",
                          "1700000123.25", "1", "0", "5"},
               .plan = {"SEARCH event_content_parts USING INDEX event_content_parts_by_event_and_index "
                        "(event_database_identifier=? AND event_content_part_id=?)"}}},
         .needs = {"event_content_parts"},
         .answers = {"true", "true", "false"}},
        {.name = "totalDiskUtilizationOfEventContentPartsWithError",
         .call =
             [](auto& r, auto* error) {
                 return answer(r.totalDiskUtilizationOfEventContentPartsWithError(error));
             },
         .log = lines("totalDiskUtilizationOfEventContentPartsWithError:",
                      "Calculating total disk utilization of all the event content parts.",
                      "Failed calculating total disk utilization of all the event content parts with %@"),
         .statements =
             {{.text =
                   "SELECT SUM(event_content_parts.size) FROM event_content_parts WHERE (transfer_status = ? "
                   "OR transfer_status = ? OR transfer_status = ?) AND file_path IS NOT NULL AND size IS NOT "
                   "NULL AND (purged = 0 OR purged IS NULL)",
               .values = {"0", "1", "4"},
               .plan = {"SEARCH event_content_parts USING INDEX event_content_parts_by_disk_use "
                        "(transfer_status=? AND size>?)"}}},
         .needs = {"event_content_parts"},
         .answers = {"1800", "0", "18446744073709551615"},
         .tellsTheCallerFirst = true,
         .breaksOffSilently = true},
        {.name = "leastRecentlyAccessedEventContentPartsForSize",
         .call =
             [](auto& r, auto* error) {
                 return answer(r.leastRecentlyAccessedEventContentPartsForSize(150, error));
             },
         .log = lines(
             "leastRecentlyAccessedEventContentPartsForSize:error:",
             "Collecting least recently accessed event content parts with external content with total size summing up to %lu byte(s).",
             "Failed collecting least recently accessed event content parts with external content with total size summing up to %lu byte(s) with %@",
             {"150"}),
         .statements =
             {{.text =
                   partQuery("WHERE file_path IS NOT NULL AND transfer_status != ? AND transfer_status != ? "
                             "AND last_accessed IS NOT NULL AND (purged = 0 OR purged IS NULL) ORDER BY "
                             "last_accessed ASC"),
               .values = {"0", "1"},
               .plan = {"SEARCH event_content_parts USING INDEX event_content_parts_by_last_accessed "
                        "(last_accessed>?)"}}},
         .needs = {"event_content_parts", "events", "streams"},
         .answers = {"set of 2", "set of 0", "none"},
         .tellsTheCallerFirst = true},
    };
}

}  // namespace zav::test
