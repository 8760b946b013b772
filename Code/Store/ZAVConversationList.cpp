#include <ZAVEventRepository/ZAVConversationList.h>

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include <ZAVEventRepository/ZAVEventMapperColumns.h>
#include <ZAVEventRepository/ZAVPrintable.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Private/Model/Repositories/Internal/ZAVBareEvents.h"
#include "Store/Internal/ZAVCursorText.h"
#include "Store/Internal/ZAVStoreErrors.h"
#include "Store/Internal/ZAVStreamRecency.h"

namespace zav {
namespace {

constexpr char kindOfConversation = 'c';

/// From how many new rows on they are looked at once, and not again with each page.
constexpr ZAVDatabaseIdentifier manyNewRows = 200;

// ?1 and ?2 are the rows of the mark, ?3 and ?4 the recency and the stream behind which the page begins, ?5
// is how many streams it has.
constexpr auto streamsOfPage =
    ZAVStatementText(
        "WITH fresh(stream) AS (SELECT stream_database_identifier FROM events WHERE database_identifier > ?1"
        " AND stream_database_identifier IS NOT NULL UNION SELECT database_identifier FROM streams"
        " WHERE database_identifier > ?2), recent(stream, recency) AS (SELECT * FROM (SELECT"
        " stream_database_identifier, timestamp FROM stream_recency WHERE (timestamp, stream_database_identifier)"
        " < (?3, ?4) AND stream_database_identifier NOT IN (SELECT stream FROM fresh) ORDER BY timestamp DESC,"
        " stream_database_identifier DESC LIMIT ?5) UNION ALL SELECT * FROM (SELECT stream, ") +
    ZAVSelectRecencyOf(ZAVStatementText("fresh.stream")) +
    " AS recency FROM fresh) WHERE (recency, stream) < (?3, ?4)), page(stream, recency) AS (SELECT stream,"
    " recency FROM recent ORDER BY recency DESC, stream DESC LIMIT ?5) ";

constexpr auto rowsOfPage =
    streamsOfPage + "SELECT " + ZAVSelectLastEventOf(ZAVStatementText("page.stream")) + " FROM page";
constexpr auto eventsOfPage = projections::event + projections::eventSource +
                              " WHERE events.database_identifier IN (" + rowsOfPage + ")";
constexpr auto contentOfPage = projections::selectContentOf(rowsOfPage);
constexpr auto metadataOfPage = projections::selectMetadataOf(rowsOfPage);

// ?6 is the participant, ?7 the greatest number of unread messages to count.
constexpr auto summaries =
    streamsOfPage +
    "SELECT page.stream, page.recency, streams.database_identifier IS NOT NULL, streams.stream_id, " +
    ZAVSelectLastEventOf(ZAVStatementText("page.stream")) + ", " +
    ZAVSelectRecencyOf(ZAVStatementText("page.stream")) +
    ", (SELECT COUNT(*) FROM events WHERE stream_database_identifier = page.stream AND seq IS NULL),"
    " CASE WHEN participants.database_identifier IS NOT NULL THEN (SELECT COUNT(*) FROM (SELECT 1 FROM events"
    " WHERE stream_database_identifier = page.stream AND seq > IFNULL(participants.seq, -9223372036854775807)"
    " AND type = 4 AND creator_id IS NOT ?6 LIMIT ?7)) END FROM page"
    " LEFT JOIN streams ON streams.database_identifier = page.stream"
    " LEFT JOIN conversation_participants AS participants ON participants.member_id = ?6"
    " AND participants.conversation_database_identifier = (SELECT MIN(database_identifier) FROM conversations"
    " WHERE conversations.stream_id = streams.stream_id) ORDER BY page.recency DESC, page.stream DESC";

/// A page, and the streams in it whose recency is not what was kept.
struct ReadPage {
    ZAVConversationPage page{};
    std::vector<ZAVDatabaseIdentifier> stale{};
};

bool readSummaries(const ZAVRepositories& repositories, const ZAVStreamRecency::Mark& mark,
                   const ZAVConversationCursor& begin, std::size_t count,
                   const ZAVConversationListOptions& options, ReadPage& read,
                   std::vector<ZAVDatabaseIdentifier>& lastEvents, ZAVError* error) {
    const auto add = [&](const FMResultSet& row) {
        if (read.page.conversations.size() == count) {
            read.page.hasMore = true;
            return;
        }
        const ZAVDatabaseIdentifier stream = row.longLongIntForColumnIndex(0);
        const std::int64_t recency = row.longLongIntForColumnIndex(1);
        const bool isThere = row.boolForColumnIndex(2);
        if (!isThere || row.longLongIntForColumnIndex(5) != recency) {
            read.stale.push_back(stream);
        }
        if (!isThere) {
            return;
        }
        auto& summary = read.page.conversations.emplace_back();
        summary.stream = stream;
        summary.streamUUID = ZAVUUIDFromData(row.dataForColumnIndex(3));
        summary.waiting = static_cast<std::size_t>(row.longLongIntForColumnIndex(6));
        if (!row.columnIndexIsNull(7)) {
            summary.unread = static_cast<std::size_t>(row.longLongIntForColumnIndex(7));
        }
        summary.cursor = {recency, stream};
        lastEvents.push_back(row.columnIndexIsNull(4) ? ZAVDatabaseIdentifierNotSet
                                                      : row.longLongIntForColumnIndex(4));
    };
    return visitRows(repositories.events.database(), error, summaries, add, mark.event, mark.stream,
                     begin.recency(), begin.stream(), static_cast<std::int64_t>(count) + 1,
                     options.participant, static_cast<std::int64_t>(options.unreadCap));
}

bool readLastEvents(const ZAVRepositories& repositories, const ZAVStreamRecency::Mark& mark,
                    const ZAVConversationCursor& begin, std::size_t count,
                    const std::vector<ZAVDatabaseIdentifier>& lastEvents, ZAVConversationPage& page,
                    ZAVError* error) {
    FMDatabase& database = repositories.events.database();
    std::vector<std::shared_ptr<ZAVEvent>> events;
    ZAVBareEvents bareEvents(lastEvents.size());
    const auto limit = static_cast<std::int64_t>(count) + 1;
    const auto add = [&](const FMResultSet& row) {
        events.push_back(ZAVBareEventFromRow(row));
        bareEvents.add(*events.back(), !row.columnIndexIsNull(ZAVEventMapperColumnEventSeq));
    };
    if (!visitRows(database, error, eventsOfPage, add, mark.event, mark.stream, begin.recency(),
                   begin.stream(), limit) ||
        !bareEvents.readContent(database, contentOfPage, metadataOfPage, error, mark.event, mark.stream,
                                begin.recency(), begin.stream(), limit)) {
        return false;
    }
    for (std::size_t position = 0; position < lastEvents.size(); ++position) {
        const auto event = std::find_if(events.begin(), events.end(), [&](const auto& one) {
            return one->databaseIdentifier() == lastEvents[position];
        });
        page.conversations[position].lastEvent = event == events.end() ? nullptr : *event;
    }
    return true;
}

/// None on failure, with the reason in `error`.
std::optional<ReadPage> readPage(const ZAVRepositories& repositories, const ZAVConversationCursor& begin,
                                 std::size_t count, const ZAVConversationListOptions& options,
                                 ZAVError* error) {
    std::optional<ZAVStreamRecency::Mark> mark;
    if (!ZAVStreamRecency(repositories).readMark(mark, error)) {
        return std::nullopt;
    }
    const ZAVStreamRecency::Mark behind = mark.value_or(ZAVStreamRecency::Mark());
    ReadPage read;
    std::vector<ZAVDatabaseIdentifier> lastEvents;
    if (!readSummaries(repositories, behind, begin, count, options, read, lastEvents, error) ||
        !readLastEvents(repositories, behind, begin, count, lastEvents, read.page, error)) {
        return std::nullopt;
    }
    return read;
}

}  // namespace

std::optional<ZAVConversationCursor> ZAVConversationCursor::fromText(std::string_view text, ZAVError* error) {
    if (const auto numbers = ZAVNumbersFromCursorText(text, kindOfConversation, 2)) {
        return ZAVConversationCursor(numbers->at(0), numbers->at(1));
    }
    ZAVStoreError(error, ZAVErrorOfStore(ZAVEventStoreErrorBadCursor,
                                         "this is not the cursor of a conversation: " + ZAVPrintable(text)));
    return std::nullopt;
}

std::string ZAVConversationCursor::text() const {
    return ZAVCursorText(kindOfConversation, std::array{recency_, stream_});
}

ZAVConversationList::ZAVConversationList(ZAVEventStore& store, ZAVConversationListOptions options)
    : store_(store), options_(std::move(options)) {}

std::optional<ZAVConversationPage> ZAVConversationList::first(std::size_t count, ZAVError* error) const {
    constexpr std::int64_t newest = std::numeric_limits<std::int64_t>::max();
    return after({newest, newest}, count, error);
}

std::optional<ZAVConversationPage> ZAVConversationList::after(const ZAVConversationCursor& cursor,
                                                              std::size_t count, ZAVError* error) const {
    constexpr std::size_t most = std::numeric_limits<std::int32_t>::max();
    constexpr int attempts = 3;
    count = std::min(count, most);
    prepare();
    for (int attempt = 1;; ++attempt) {
        std::optional<ReadPage> read;
        const auto work = [&](const ZAVRepositories& repositories) {
            read = readPage(repositories, cursor, count, options_, error);
        };
        if (!store_.read(work, error) || !read) {
            return std::nullopt;
        }
        // Within a read, and where nothing can be written, the page is as good as what is kept.
        const auto refresh = [&](const ZAVRepositories& repositories) {
            const ZAVStreamRecency recency(repositories);
            return std::all_of(read->stale.begin(), read->stale.end(),
                               [&](auto stream) { return recency.refresh(stream, nullptr); });
        };
        if (read->stale.empty() || attempt == attempts || !store_.write(refresh)) {
            return std::move(read->page);
        }
    }
}

void ZAVConversationList::prepare() const {
    bool isWorthWhile = false;
    store_.read([&](const ZAVRepositories& repositories) {
        const ZAVStreamRecency recency(repositories);
        std::optional<ZAVStreamRecency::Mark> mark;
        recency.readMark(mark, nullptr);
        const auto newest = recency.newestRows(nullptr);
        isWorthWhile = !mark || (newest && (newest->event - mark->event > manyNewRows ||
                                            newest->stream - mark->stream > manyNewRows));
    });
    if (isWorthWhile) {
        store_.write([](const ZAVRepositories& repositories) {
            return ZAVStreamRecency(repositories).catchUp(nullptr);
        });
    }
}

bool ZAVConversationList::repair(ZAVError* error) const {
    return store_.write(
        [&](const ZAVRepositories& repositories) { return ZAVStreamRecency(repositories).rebuild(error); },
        error);
}

}  // namespace zav
