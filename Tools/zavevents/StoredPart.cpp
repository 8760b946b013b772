#include "StoredPart.h"

#include <string>

#include "ToolError.h"

namespace zavevents {

using namespace zav;

void keepStoredFields(FMDatabase& database, ZAVEventContent& part, bool replacesURL, bool replacesFile) {
    auto rows = database.executeQuery(
        "SELECT url IS NOT NULL, file_path IS NOT NULL, access_expiration FROM event_content_parts"
        " WHERE event_database_identifier = ? AND event_content_part_id = ?",
        part.eventDatabaseIdentifier(), part.index());
    if (!rows || !rows->next()) {
        throw ToolError("cannot read the content part", database.lastError());
    }
    const std::string place = "event " + std::to_string(part.eventDatabaseIdentifier()) + " part " +
                              std::to_string(part.index()) + ": ";
    if (rows->boolForColumnIndex(0) && !part.external_url() && !replacesURL) {
        throw ToolError(place + "the stored url is no URL and would be lost");
    }
    if (rows->boolForColumnIndex(1) && (!part.fileURL() || !part.fileURL()->baseURL()) && !replacesFile) {
        throw ToolError(place + "the stored file_path is no relative path and would be lost");
    }
    part.setExternalContentURLExpiration(rows->dateForColumnIndex(2));
}

}  // namespace zavevents
