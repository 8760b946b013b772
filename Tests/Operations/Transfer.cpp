#include <set>

#include "Operations/Answers.h"
#include "Operations/Catalogue.h"
#include "Operations/Texts.h"

namespace zav::test {
namespace {

constexpr const char* rank = ", (streams.seq - events.preceding_seq) AS distance_from_eos";

const std::string byStatus =
    "SEARCH event_content_parts USING INDEX event_content_parts_by_transfer_status (transfer_status=?)";

/// All four queues write the lines of the first.
LogTexts linesOf(const std::string& selector) {
    return lines(selector, "fetching event content parts awaiting uploads",
                 "failed to fetch event content parts awaiting uploads %@");
}

/// An alternative of a condition is one step, with one below it that finds its rows.
std::vector<std::string> alternativesByStatus(int count) {
    std::vector<std::string> steps{"MULTI-INDEX OR"};
    for (int number = 1; number <= count; ++number) {
        steps.push_back("INDEX " + std::to_string(number));
        steps.push_back(byStatus);
    }
    return steps;
}

}  // namespace

std::vector<Operation> transferQueues() {
    const LogTexts expiredLines = linesOf(
        "eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes:autodownloadMaxSize:limit:error:");
    return {
        {.name = "eventContentsHavingUnassignedURLsWithError",
         .call = [](auto& r,
                    auto* error) { return answer(r.eventContentsHavingUnassignedURLsWithError(error)); },
         .log = linesOf("eventContentsHavingUnassignedURLsWithError:"),
         .statements = {{.text = partQuery(
                             "WHERE streams.stream_id IS NOT NULL AND event_content_parts.file_path IS NOT "
                             "NULL AND event_content_parts.url IS NULL AND "
                             "(event_content_parts.transfer_status = ? OR "
                             "event_content_parts.transfer_status = ?)"),
                         .values = {"0", "1"},
                         .plan = {byStatus}}},
         .needs = {"event_content_parts", "events", "streams"},
         .answers = {"set of 4", "set of 0", "none"}},
        {.name = "eventContentsHavingIncompleteUploadsWithLimit",
         .call =
             [](auto& r, auto* error) {
                 return answer(r.eventContentsHavingIncompleteUploadsWithLimit(10, error));
             },
         .log = linesOf("eventContentsHavingIncompleteUploadsWithLimit:error:"),
         .statements = {{.text = partQuery(
                             "WHERE event_content_parts.file_path IS NOT NULL AND event_content_parts.url "
                             "IS NOT NULL AND event_content_parts.transfer_status = ? LIMIT ?"),
                         .values = {"1", "10"},
                         .plan = {byStatus}}},
         .needs = {"event_content_parts", "events", "streams"},
         .answers = {"set of 4", "set of 0", "none"}},
        {.name = "eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes",
         .variant = "OfSomeTypes",
         .call =
             [](auto& r, auto* error) {
                 return answer(r.eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
                     std::set<std::string>{"image/png", "text/plain"}, 100, 10, error));
             },
         .log = expiredLines,
         .statements = {{.text = partQuery(
                             "WHERE ((url IS NULL) OR (access_expiration IS NULL) OR (access_expiration <= "
                             "?)) AND       file_path IS NOT NULL AND (purged = 0 OR purged IS NULL) AND   "
                             "    (transfer_status = ? OR (transfer_status = ? AND "
                             "event_content_parts.type IN ('image/png', 'text/plain')) OR (transfer_status "
                             "= ? AND size <= ?))       ORDER BY distance_from_eos ASC, events.client_seq "
                             "DESC, events.creator_id DESC       LIMIT ?",
                             rank),
                         .values = {"now", "3", "2", "2", "100", "10"},
                         .plan = alternativesByStatus(3),
                         .sorts = true}},
         .needs = {"event_content_parts", "events", "streams"},
         .answers = {"set of 2", "set of 0", "none"}},
        {.name = "eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes",
         .variant = "OfAnyType",
         .call =
             [](auto& r, auto* error) {
                 return answer(r.eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
                     std::nullopt, 100, 10, error));
             },
         .log = expiredLines,
         .statements = {{.text = partQuery(
                             "WHERE ((url IS NULL) OR (access_expiration IS NULL) OR (access_expiration <= "
                             "?)) AND       file_path IS NOT NULL AND (purged = 0 OR purged IS NULL) AND   "
                             "    (transfer_status = ? OR transfer_status = ? OR (transfer_status = ? AND "
                             "size <= ?))      ORDER BY distance_from_eos ASC, events.client_seq DESC, "
                             "events.creator_id DESC       LIMIT ?",
                             std::string(rank) + " "),
                         .values = {"now", "3", "2", "2", "100", "10"},
                         .plan = alternativesByStatus(3),
                         .sorts = true}},
         .needs = {"event_content_parts", "events", "streams"},
         .answers = {"set of 2", "set of 0", "none"}},
        {.name = "eventContentsHavingIncompleteDownloadsWithLimit",
         .call =
             [](auto& r, auto* error) {
                 return answer(r.eventContentsHavingIncompleteDownloadsWithLimit(10, error));
             },
         .log = linesOf("eventContentsHavingIncompleteDownloadsWithLimit:error:"),
         .statements = {{.text = partQuery(
                             "WHERE ((url IS NOT NULL) AND (access_expiration > ?)) AND file_path IS NOT "
                             "NULL AND transfer_status = ? AND (purged = 0 OR purged IS NULL) ORDER BY "
                             "distance_from_eos ASC, events.client_seq DESC, events.creator_id DESC LIMIT "
                             "?",
                             rank),
                         .values = {"now", "3", "10"},
                         .plan = {byStatus},
                         .sorts = true}},
         .needs = {"event_content_parts", "events", "streams"},
         .answers = {"set of 4", "set of 0", "none"}},
    };
}

}  // namespace zav::test
