#pragma once

#include <ZAVEventRepository/ZAVMessagePartObjectIdentifier.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>
#include <ZAVEventRepository/ZAVUTF8.h>

#include <algorithm>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Contender.h"
#include "Mapping.h"
#include "Statements.h"

namespace zav::bench {

/// The event store's operations written straight over an engine, as somebody would who has no use for a
/// library. The engine says how statements are kept, bound and stepped:
///
///     Engine(path)
///     connection(), changes(), lastInsertRowId()
///     query(sql, values...)       a row object with `next()` and what Mapping.h asks of a row
///     update(sql, values...)
///     updateList(sql, rows)       with a list of row identifiers for values
///     replace(sql, text)          gives a statement another text
template <class Engine>
class HandWrittenContender : public Contender {
public:
    explicit HandWrittenContender(const std::string& path) : engine_(path) {}

    sqlite3* connection() override { return engine_.connection(); }

    void persist(const ZAVSet<ZAVTEvent>& events) override {
        for (const auto& element : events) {
            auto& event = static_cast<ZAVEvent&>(*element);
            resolveStream(event);
            insertOrUpdate(event);
            if (event.transient_metadata()) {
                writeMetadata(event.databaseIdentifier(), *event.transient_metadata());
            }
            if (event.content()) {
                writeParts(event);
            }
        }
    }

    void updatePart(const ZAVEventContent& part) override {
        engine_.update(Sql::updatePart, part.externalContentURLExpiration(), part.external_url(), part.size(),
                       part.transferStatus(), pathOf(part), part.lastAccessed(), part.isPurged(),
                       part.index(), part.eventDatabaseIdentifier());
    }

    void forgetUnprocessed(const Events& events) override {
        std::vector<ZAVDatabaseIdentifier> rows;
        rows.reserve(events.size());
        for (const auto& event : events) {
            rows.push_back(event->databaseIdentifier());
        }
        std::span<const ZAVDatabaseIdentifier> rest(rows);
        for (; rest.size() >= forgottenAtOnce; rest = rest.subspan(forgottenAtOnce)) {
            engine_.updateList(Sql::forgetEvents, rest.first(forgottenAtOnce));
        }
        if (!rest.empty()) {
            engine_.replace(Sql::forgetOtherNumberOfEvents, forgetEventsText(rest.size()));
            engine_.updateList(Sql::forgetOtherNumberOfEvents, rest);
        }
    }

    void deleteEvents(const Events& events) override {
        for (const auto& event : events) {
            engine_.update(Sql::deleteEvent, event->databaseIdentifier());
        }
    }

    Events allEvents() override { return readEvents(Sql::allEvents); }
    Events publishableEvents() override {
        Events events;
        auto&& rows = engine_.query(Sql::publishableEvents);
        while (rows.next()) {
            if (auto event = readEvent(rows); isComplete(*event)) {
                events.append(std::move(event));
            }
        }
        return events;
    }
    Events unprocessedEvents() override {
        Events events;
        std::unordered_set<ZAVDatabaseIdentifier> seen;
        auto&& rows = engine_.query(Sql::unprocessedEvents, eventsTable_, 0);
        while (rows.next()) {
            if (auto event = readEvent(rows); seen.insert(event->databaseIdentifier()).second) {
                events.append(std::move(event));
            }
        }
        return events;
    }
    Events revivedStream(ZAVDatabaseIdentifier stream) override {
        return readEvents(Sql::revivedStream, stream);
    }
    Event eventInRow(ZAVDatabaseIdentifier row) override { return firstEvent(Sql::eventInRow, row); }
    Event eventWithSeq(ZAVSequence seq, const ZAVUUID& stream) override {
        return firstEvent(Sql::eventWithSeq, seq, stream);
    }

    Part partInRow(ZAVDatabaseIdentifier row) override { return firstPart(Sql::partInRow, row); }
    Part partOfEvent(ZAVDatabaseIdentifier event, std::int64_t index) override {
        return firstPart(Sql::partOfEvent, event, index);
    }
    Part partOfMessage(const ZAVMessagePart& messagePart) override {
        return firstPart(Sql::partOfMessage, messagePart.message()->databaseIdentifier(),
                         messagePart.index());
    }
    Part partForObjectIdentifier(const ZAVURL& identifier) override {
        return firstPart(Sql::partForObjectIdentifier, ZAVClientIdentifierForObjectIdentifier(identifier),
                         ZAVPartIndexForObjectIdentifier(identifier));
    }
    Part partForExternalURL(const ZAVURL& url) override {
        return firstPart(Sql::partForExternalURL, url.absoluteString());
    }

    Parts partsWithoutURL() override {
        return readParts(Sql::partsWithoutURL, ZAVContentTransferAwaitingUpload, ZAVContentTransferUploading);
    }
    Parts incompleteUploads(ZAVSize limit) override {
        return readParts(Sql::incompleteUploads, ZAVContentTransferUploading, limit);
    }
    Parts expiredDownloads(const std::set<std::string>& types, ZAVSize maxSize, ZAVSize limit) override {
        if (!expiredTypes_ || *expiredTypes_ != types) {
            engine_.replace(Sql::expiredDownloads, expiredDownloadsText(types));
            expiredTypes_ = types;
        }
        return readParts(Sql::expiredDownloads, ZAVNow(), ZAVContentTransferDownloading,
                         ZAVContentTransferReadyForDownload, ZAVContentTransferReadyForDownload,
                         static_cast<std::uint32_t>(maxSize), limit);
    }
    Parts incompleteDownloads(ZAVSize limit) override {
        return readParts(Sql::incompleteDownloads, ZAVNow(), ZAVContentTransferDownloading, limit);
    }
    ZAVSize diskUtilization() override {
        auto&& rows = engine_.query(Sql::diskUtilization, ZAVContentTransferAwaitingUpload,
                                    ZAVContentTransferUploading, ZAVContentTransferComplete);
        const ZAVSize total = rows.next() ? static_cast<ZAVSize>(std::int64_t{int32Of(rows, 0)}) : ZAVSize{0};
        return total;
    }
    Parts leastRecentlyAccessed(ZAVSize size) override {
        Parts parts;
        auto&& rows = engine_.query(Sql::leastRecentlyAccessed, ZAVContentTransferAwaitingUpload,
                                    ZAVContentTransferUploading);
        ZAVSize sum = 0;
        while (sum <= size && rows.next()) {
            auto part = mapPart(rows, cacheDirectory_);
            sum += static_cast<ZAVSize>(part->size());
            parts.append(std::move(part));
        }
        return parts;
    }

private:
    static std::optional<ZAVDatabaseIdentifier> rowOrNull(ZAVDatabaseIdentifier row) {
        return row == ZAVDatabaseIdentifierNotSet ? std::nullopt : std::optional(row);
    }

    static std::optional<std::string> pathOf(const ZAVEventContent& part) {
        return part.fileURL() ? std::optional(part.fileURL()->relativePath()) : std::nullopt;
    }

    static bool isComplete(const ZAVEvent& event) {
        return event.type() != EventType_MESSAGE ||
               (event.content() &&
                std::all_of(event.content()->begin(), event.content()->end(), [](const auto& part) {
                    return static_cast<const ZAVEventContent&>(*part).transferStatus() ==
                           ZAVContentTransferComplete;
                }));
    }

    template <class Row>
    static void requireStream(Row& row) {
        if (!row.next()) {
            throw std::runtime_error("an event's stream is not registered");
        }
    }

    void resolveStream(ZAVEvent& event) {
        if (event.streamDatabaseIdentifier() == ZAVDatabaseIdentifierNotSet) {
            auto&& rows = engine_.query(Sql::streamWithUUID, event.stream_id());
            requireStream(rows);
            event.setStreamDatabaseIdentifier(rows.int64(0));
        } else {
            auto&& rows = engine_.query(Sql::streamInRow, event.streamDatabaseIdentifier());
            requireStream(rows);
            event.set_stream_id(dataOf(rows, 1));
        }
    }

    void insertOrUpdate(ZAVEvent& event) {
        const bool hasSeq = event.seqIsSet() && event.seq() != ZAVSequenceNotSet;
        const auto targetSeq = event.target_seqIsSet() ? std::optional(event.target_seq()) : std::nullopt;
        engine_.update(Sql::insertEvent, rowOrNull(event.databaseIdentifier()), event.type(),
                       event.creator_id(), hasSeq ? std::optional(event.seq()) : std::nullopt,
                       event.server_timestamp(), event.preceding_seq(), event.client_seq(), event.subtype(),
                       event.member_id(), targetSeq, event.streamDatabaseIdentifier(), event.client_id(),
                       event.creator_name());
        if (engine_.changes() != 0) {
            if (event.databaseIdentifier() == ZAVDatabaseIdentifierNotSet) {
                event.setDatabaseIdentifier(engine_.lastInsertRowId());
            }
            return;
        }
        if (event.databaseIdentifier() == ZAVDatabaseIdentifierNotSet) {
            auto&& rows = engine_.query(Sql::eventAtSeq, event.streamDatabaseIdentifier(), event.seq());
            if (!rows.next()) {
                throw std::runtime_error("an event collides with none");
            }
            event.setDatabaseIdentifier(rows.int64(0));
        }
        engine_.update(Sql::updateEvent, event.type(), event.creator_id(),
                       event.seqIsSet() ? std::optional(event.seq()) : std::nullopt, event.server_timestamp(),
                       event.preceding_seq(), event.client_seq(), event.subtype(), event.member_id(),
                       targetSeq, event.streamDatabaseIdentifier(), event.client_id(), event.creator_name(),
                       event.databaseIdentifier());
    }

    void writeMetadata(ZAVDatabaseIdentifier row, const ZAVDictionary& metadata) {
        std::vector<std::string> obsolete;
        {
            auto&& rows = engine_.query(Sql::keysOfEvent, row, eventType_, 0);
            while (rows.next()) {
                std::string key = rows.text(0).value_or("");
                if (metadata.find(key) == nullptr) {
                    obsolete.push_back(std::move(key));
                }
            }
        }
        for (const auto& [key, value] : metadata) {
            if (const auto* text = std::get_if<std::string>(&value)) {
                writeValue(row, key, *text);
            } else if (const auto encoded = std::get<ZAVData>(value).asText(); ZAVIsUTF8(encoded)) {
                writeValue(row, key, std::string(encoded));
            }
        }
        for (const std::string& key : obsolete) {
            engine_.update(Sql::removeKey, row, eventType_, 0, key);
        }
    }

    void writeValue(ZAVDatabaseIdentifier row, const std::string& key, const std::string& value) {
        engine_.update(Sql::insertKey, row, eventType_, 0, key, value, std::optional<ZAVDate>());
    }

    void writeParts(ZAVEvent& event) {
        std::int64_t index = 0;
        for (const auto& element : *event.content()) {
            auto& part = static_cast<ZAVEventContent&>(*element);
            part.setEventDatabaseIdentifier(event.databaseIdentifier());
            part.setEventClientID(ZAVUUIDFromData(event.client_id()));
            part.setStreamUUID(event.streamUUID());
            engine_.update(Sql::insertPart, index++, event.databaseIdentifier(), part.media_type(),
                           part.body(), part.externalContentURLExpiration(), part.external_url(), part.size(),
                           part.transferStatus(), pathOf(part), part.lastAccessed(), part.isPurged());
        }
    }

    template <class Row>
    Event readEvent(Row& row) {
        auto event = mapEvent(row);
        ZAVDictionary metadata;
        {
            auto&& values = engine_.query(Sql::valuesOfEvent, event->databaseIdentifier(), eventType_, 0);
            while (values.next()) {
                metadata.set(values.text(0).value_or(""),
                             values.int64(2) != 0 ? dataOf(values, 1).value_or(ZAVData())
                                                  : ZAVData::fromText(values.text(1).value_or("")));
            }
        }
        event->set_transient_metadata(std::move(metadata));
        std::vector<std::shared_ptr<ZAVTContent>> content;
        {
            auto&& parts = engine_.query(Sql::partsOfEvent, event->databaseIdentifier());
            while (parts.next()) {
                content.push_back(mapPart(parts, cacheDirectory_));
            }
        }
        if (content.empty()) {
            event->set_content(std::nullopt);
        } else {
            event->set_content(std::move(content));
        }
        return event;
    }

    template <class... Values>
    Events readEvents(Sql sql, const Values&... values) {
        Events events;
        auto&& rows = engine_.query(sql, values...);
        while (rows.next()) {
            events.append(readEvent(rows));
        }
        return events;
    }

    template <class... Values>
    Event firstEvent(Sql sql, const Values&... values) {
        auto&& rows = engine_.query(sql, values...);
        return rows.next() ? readEvent(rows) : nullptr;
    }

    template <class... Values>
    Parts readParts(Sql sql, const Values&... values) {
        Parts parts;
        auto&& rows = engine_.query(sql, values...);
        while (rows.next()) {
            parts.append(mapPart(rows, cacheDirectory_));
        }
        return parts;
    }

    template <class... Values>
    Part firstPart(Sql sql, const Values&... values) {
        auto&& rows = engine_.query(sql, values...);
        return rows.next() ? mapPart(rows, cacheDirectory_) : nullptr;
    }

    const std::string eventsTable_ = "events";
    const std::string eventType_ = "event";
    const ZAVURL cacheDirectory_ = ZAVMessageRepositoryCacheBaseDirectoryURL();
    std::optional<std::set<std::string>> expiredTypes_;
    Engine engine_;
};

}  // namespace zav::bench
