#include "Importer.h"

#include <algorithm>
#include <string>
#include <utility>

#include "Private/Foundation/ZAVUTF8.h"
#include "Private/Model/Repositories/ZAVKeyedValueRepository.h"
#include "Private/Model/Repositories/ZAVSyncedChangeRepository.h"
#include "Store.h"
#include "ToolError.h"

namespace zavevents {

using namespace zav;

Importer::Importer(std::shared_ptr<FMDatabase> database, std::size_t batchSize, bool recordChanges)
    : database_(std::move(database)),
      events_(database_),
      streamRepository_(database_),
      batchSize_(batchSize),
      recordChanges_(recordChanges) {}

void Importer::add(const ReadEvent& read) {
    if (!transaction_) {
        begin();
    }
    ZAVEvent& event = *read.event;
    // The same event again: its first appearance must be in the database to be recognised.
    if (event.seqIsSet() && event.stream_id() ? pendingUnsequenced_.contains(*event.client_id())
                                              : pendingClients_.contains(*event.client_id())) {
        persistPending();
    }
    adoptStoredEvent(event);
    placeInStream(read);
    if (!event.seqIsSet()) {
        pendingUnsequenced_.insert(*event.client_id());
    }
    pendingClients_.insert(*event.client_id());
    pending_.insert(read.event);
    if (++inBatch_ == batchSize_) {
        commit();
    }
}

void Importer::finish() {
    if (transaction_) {
        commit();
    }
}

void Importer::begin() {
    ZAVError error;
    if (auto transaction = ZAVTransaction::begin(*database_, &error)) {
        transaction_.emplace(*std::move(transaction));
    } else {
        throw ToolError("cannot begin a batch", error);
    }
    newestRow_ = queryNumber(*database_, "SELECT IFNULL(MAX(database_identifier), 0) FROM events");
    storeHasUnsequenced_ =
        queryNumber(*database_, "SELECT EXISTS (SELECT 1 FROM events WHERE seq IS NULL)") != 0;
}

/// Gives the event the row of the stored one that it is, where the repository cannot tell by itself.
void Importer::adoptStoredEvent(ZAVEvent& event) {
    if (event.seqIsSet() && event.stream_id() && !storeHasUnsequenced_ && pendingUnsequenced_.empty()) {
        return;
    }
    auto rows =
        event.seqIsSet()
            ? database_->executeQuery(
                  "SELECT database_identifier, stream_database_identifier, seq FROM events AS stored"
                  " WHERE client_id = ? AND (seq IS NULL OR (seq = ? AND ?)) AND NOT EXISTS (SELECT 1 FROM events AS taken WHERE"
                  " taken.stream_database_identifier = stored.stream_database_identifier AND taken.seq = ? AND"
                  " taken.database_identifier != stored.database_identifier)"
                  " ORDER BY seq IS NULL, database_identifier LIMIT 1",
                  event.client_id(), event.seq(), !event.stream_id().has_value(), event.seq())
            : database_->executeQuery(
                  "SELECT database_identifier, stream_database_identifier, seq FROM events"
                  " WHERE client_id = ? ORDER BY database_identifier LIMIT 1",
                  event.client_id());
    ZAVError error;
    if (!rows || (!rows->nextWithError(&error) && error)) {
        throw ToolError("cannot look for a stored event", database_->lastError());
    }
    if (rows->columnIndexIsNull(0)) {
        return;
    }
    event.setDatabaseIdentifier(rows->longLongIntForColumnIndex(0));
    if (!event.stream_id()) {
        event.setStreamDatabaseIdentifier(rows->longLongIntForColumnIndex(1));
    }
    // The service has sequenced the event since the line was written: that is not to be forgotten.
    if (!event.seqIsSet() && !rows->columnIndexIsNull(2)) {
        event.set_seq(rows->intForColumnIndex(2));
    }
}

void Importer::placeInStream(const ReadEvent& read) {
    ZAVEvent& event = *read.event;
    ZAVError error;
    if (event.stream_id()) {
        const auto [entry, isNew] = streams_.try_emplace(*event.stream_id(), ZAVDatabaseIdentifierNotSet);
        if (isNew) {
            entry->second = streamRepository_.findOrCreateStreamWithUUID(*event.streamUUID(), &error);
        }
    } else {
        const auto [entry, isNew] =
            unnamedStreams_.try_emplace(read.unnamedStream, event.streamDatabaseIdentifier());
        if (isNew && entry->second == ZAVDatabaseIdentifierNotSet) {
            entry->second = streamRepository_.createStreamWithoutUUID(&error);
        }
        if (event.streamDatabaseIdentifier() == ZAVDatabaseIdentifierNotSet) {
            event.setStreamDatabaseIdentifier(entry->second);
        }
    }
    if (error) {
        throw ToolError("cannot register a stream", error);
    }
}

void Importer::persistPending() {
    ZAVError error;
    if (!events_.persistEvents(pending_, &error)) {
        throw ToolError("cannot store events", error);
    }
    for (const auto& event : pending_) {
        storeBinaryMetadata(*event);
    }
    const ZAVSyncedChangeRepository changes(database_);
    for (const auto& event : pending_) {
        if (event->databaseIdentifier() <= newestRow_) {
            ++batch_.updated;
            continue;
        }
        newestRow_ = event->databaseIdentifier();
        ++batch_.added;
        if (recordChanges_ &&
            !changes.recordChange(ZAVSyncedChangeTableNameEvents, event->databaseIdentifier(),
                                  ZAVSyncedChangeTypeInsert, &error)) {
            throw ToolError("cannot record a change", error);
        }
    }
    storeHasUnsequenced_ = storeHasUnsequenced_ || !pendingUnsequenced_.empty();
    pendingUnsequenced_.clear();
    pendingClients_.clear();
    pending_.clear();
}

/// Stores metadata that holds bytes beside its text: the repository keeps only what is text.
void Importer::storeBinaryMetadata(const ZAVEvent& event) {
    const auto& metadata = event.transient_metadata();
    const auto isBinary = [](const auto& entry) {
        const auto* bytes = std::get_if<ZAVData>(&entry.second);
        return bytes != nullptr && !ZAVIsUTF8(bytes->asText());
    };
    if (!metadata || std::none_of(metadata->begin(), metadata->end(), isBinary)) {
        return;
    }
    ZAVDictionary kept;
    for (const auto& [key, value] : *metadata) {
        const auto* bytes = std::get_if<ZAVData>(&value);
        if (bytes != nullptr && ZAVIsUTF8(bytes->asText())) {
            kept.set(key, std::string(bytes->asText()));
        } else {
            kept.set(key, value);
        }
    }
    ZAVError error;
    const auto context = ZAVKeyedValuesContext::contextWithTable(
        ZAVKeyedValuesTableRemote, "event", event.databaseIdentifier(), ZAVKeyedValuesKeyTypeTransient);
    if (!ZAVKeyedValueRepository(database_).setKeyedValuesWithDictionary(kept, std::nullopt, context,
                                                                         &error)) {
        throw ToolError("cannot store metadata", error);
    }
}

void Importer::commit() {
    persistPending();
    ZAVError error;
    if (!transaction_->commit(&error)) {
        throw ToolError("cannot commit a batch", error);
    }
    transaction_.reset();
    committed_.added += std::exchange(batch_.added, 0);
    committed_.updated += std::exchange(batch_.updated, 0);
    inBatch_ = 0;
}

}  // namespace zavevents
