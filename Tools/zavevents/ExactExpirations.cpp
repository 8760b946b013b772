#include "ExactExpirations.h"

#include "Rows.h"

namespace zavevents {

using namespace zav;

namespace {

constexpr std::string_view exactExpirations =
    "SELECT event_database_identifier, event_content_part_id, access_expiration FROM event_content_parts"
    " WHERE (access_expiration <> CAST(access_expiration AS INTEGER) OR access_expiration < 0"
    " OR access_expiration >= 9.2e18) AND typeof(access_expiration) IN ('real', 'integer')";

}  // namespace

ExactExpirations::ExactExpirations(FMDatabase& database, bool ofAll) : database_(database), ofAll_(ofAll) {
    if (ofAll_) {
        forEachRow(database_, "cannot read the database", exactExpirations,
                   [this](const FMResultSet& row) { take(row); });
    }
}

void ExactExpirations::restore(ZAVEvent& event) {
    if (!event.content()) {
        return;
    }
    if (!ofAll_) {
        expirations_.clear();
        forEachRow(
            database_, "cannot read the database",
            std::string(exactExpirations) + " AND event_database_identifier = ?",
            [this](const FMResultSet& row) { take(row); }, event.databaseIdentifier());
    }
    for (const auto& part : event.contentParts()) {
        const auto exact = expirations_.find({event.databaseIdentifier(), part->index()});
        if (exact != expirations_.end()) {
            part->setExternalContentURLExpiration(exact->second);
        }
    }
}

void ExactExpirations::take(const FMResultSet& row) {
    expirations_.insert_or_assign({row.longLongIntForColumnIndex(0), row.longLongIntForColumnIndex(1)},
                                  row.dateForColumnIndex(2).value_or(ZAVDate()));
}

}  // namespace zavevents
