#include "Importer.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include <ZAVEventRepository/ZAVUTF8.h>

#include "Rows.h"
#include "ToolError.h"

namespace zavevents {

using namespace zav;

namespace {

/// The place of an event as one number. Two places may share one: events are then taken to depend on each
/// other that do not.
std::uint64_t placeOf(const ZAVEvent& event) {
    return (static_cast<std::uint64_t>(event.streamDatabaseIdentifier()) << 32) ^
           static_cast<std::uint32_t>(event.seq());
}

std::string textOf(const ZAVData& clientID) {
    const auto uuid = ZAVUUIDFromData(clientID);
    return uuid ? uuid->UUIDString() : "one that is no UUID";
}

std::string streamText(const ZAVEvent& event) {
    const auto uuid = event.streamUUID();
    return uuid ? uuid->UUIDString() : "in row " + std::to_string(event.streamDatabaseIdentifier());
}

constexpr const char* cannotRecognise = "cannot look for a stored event";

/// What a line says of a part that its row, of index, type, value and url, does not say.
std::string differenceOf(const ZAVEventContent& part, const FMResultSet& stored) {
    if (part.body() && !part.body()->empty() && stored.dataForColumnIndex(2) != part.body()) {
        return ZAVIsUTF8(part.body()->asText()) ? "text" : "body";
    }
    if (part.external_url() && stored.stringForColumnIndex(3) != part.external_url()) {
        return "external_url";
    }
    if (part.media_type() &&
        stored.stringForColumnIndex(1).value_or("application/octet-stream") != part.media_type()) {
        return "media_type";
    }
    return {};
}

}  // namespace

Importer::Importer(std::shared_ptr<FMDatabase> database, Options options, Remark remark)
    : database_(std::move(database)),
      repositories_(database_),
      options_(std::move(options)),
      remark_(std::move(remark)),
      recognition_(database_, options_.userID),
      unnamedStreams_(database_, recognition_) {}

void Importer::add(const ReadEvent& read) {
    if (!transaction_) {
        begin();
    }
    ZAVEvent& event = *read.event;
    event.setStreamDatabaseIdentifier(streamOf(read));
    if (mayBePending(event)) {
        persistPending();
    }
    adoptStoredEvent(event);
    addToPending(read.event);
    if (++inBatch_ == options_.batchSize) {
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
    transaction_.emplace(required(ZAVTransaction::begin(*database_, &error), "cannot begin a batch", error));
    newestRow_ = newestEventRow(*database_);
    const bool othersWrote = required(recognition_.begin(&error), cannotRecognise, error);
    unnamedStreams_.begin(othersWrote);
    if (othersWrote) {
        for (auto& [identifier, row] : streams_) {
            row = ZAVDatabaseIdentifierNotSet;
        }
    }
}

/// The row of an event's stream, which is registered if need be.
ZAVDatabaseIdentifier Importer::streamOf(const ReadEvent& read) {
    const ZAVEvent& event = *read.event;
    if (!event.stream_id()) {
        return unnamedStreams_.streamOf(read);
    }
    auto& row = streams_.try_emplace(*event.stream_id(), ZAVDatabaseIdentifierNotSet).first->second;
    if (row == ZAVDatabaseIdentifierNotSet) {
        ZAVError error;
        row = repositories_.streams.findOrCreateStreamWithUUID(*event.streamUUID(), &error);
        require(!error, "cannot register a stream", error);
    }
    return row;
}

/// Whether a pending event may be this one: it must then be in the database to be recognised.
bool Importer::mayBePending(const ZAVEvent& event) const {
    return event.seqIsSet()
               ? pendingPlaces_.contains(placeOf(event)) ||
                     (!pendingUnsequenced_.empty() && pendingUnsequenced_.contains(*event.client_id()))
               : pendingClients_.contains(*event.client_id());
}

/// Gives the event the row of the stored one that it is.
void Importer::adoptStoredEvent(ZAVEvent& event) {
    ZAVError error;
    const auto answer = required(recognition_.recognise(event, event.streamDatabaseIdentifier(), &error),
                                 cannotRecognise, error);
    if (answer.conflictingClientID) {
        throw BadLine("seq " + std::to_string(event.seq()) + " of stream " + streamText(event) +
                      " is taken by another event: the stored client_id is " +
                      textOf(*answer.conflictingClientID) + ", the line's " + textOf(*event.client_id()));
    }
    if (answer.passedOver && !hasTold_) {
        hasTold_ = true;
        remark_("the event in row " + std::to_string(*answer.passedOver) +
                " has the same stream and client_id, but not both name an author: without --user they are two"
                " events (further ones are not told of)");
    }
    if (!answer.row) {
        return;
    }
    event.setDatabaseIdentifier(*answer.row);
    if (!event.seqIsSet()) {
        keepWhatTheServiceAssigned(event);
    }
    if (event.content()) {
        compareContent(event);
    }
}

/// The service may have sequenced an event since its line was written: that is not to be forgotten.
void Importer::keepWhatTheServiceAssigned(ZAVEvent& event) {
    bool isFound = false;
    const auto take = [&](const FMResultSet& stored) {
        isFound = true;
        if (!event.creator_id()) {
            event.set_creator_id(stored.stringForColumnIndex(1));
        }
        if (!stored.columnIndexIsNull(0)) {
            event.set_seq(stored.intForColumnIndex(0));
            event.set_server_timestamp(stored.longLongIntForColumnIndex(2));
        }
    };
    forEachRow(*database_, "cannot read a stored event",
               "SELECT seq, creator_id, timestamp FROM events WHERE database_identifier = ?", take,
               event.databaseIdentifier());
    require(isFound, "cannot read a stored event", {});
}

/// Reports content that is not stored because other content is.
void Importer::compareContent(const ZAVEvent& event) {
    const auto parts = event.contentParts();
    std::string differences;
    const auto compare = [&](const FMResultSet& stored) {
        const std::uint64_t index = stored.unsignedLongLongIntForColumnIndex(0);
        const std::string difference =
            index < parts.size() ? differenceOf(*parts[static_cast<std::size_t>(index)], stored) : "";
        if (!difference.empty()) {
            differences +=
                (differences.empty() ? "content[" : ", content[") + std::to_string(index) + "]." + difference;
        }
    };
    forEachRow(*database_, "cannot read stored content",
               "SELECT event_content_part_id, type, value, url FROM event_content_parts"
               " WHERE event_database_identifier = ? ORDER BY event_content_part_id",
               compare, event.databaseIdentifier());
    if (!differences.empty()) {
        ++batch_.differing;
        remark_("other content is stored and stays, this is not stored: " + differences);
    }
}

void Importer::addToPending(const std::shared_ptr<ZAVEvent>& event) {
    if (event->seqIsSet()) {
        pendingPlaces_.insert(placeOf(*event));
    } else {
        pendingUnsequenced_.insert(*event->client_id());
    }
    pendingClients_.insert(*event->client_id());
    pending_.insert(event);
    const auto isBinary = [](const auto& entry) { return std::holds_alternative<ZAVData>(entry.second); };
    if (const auto& metadata = event->transient_metadata();
        metadata && std::any_of(metadata->begin(), metadata->end(), isBinary)) {
        binaryMetadata_.emplace_back(event, *metadata);
        event->set_transient_metadata(std::nullopt);
    }
}

void Importer::persistPending() {
    ZAVError error;
    require(repositories_.events.persistEvents(pending_, &error), "cannot store events", error);
    for (const auto& event : pending_) {
        recognition_.noteStored(*event);
    }
    storeBinaryMetadata();
    for (const auto& event : pending_) {
        if (event->databaseIdentifier() <= newestRow_) {
            ++batch_.updated;
            continue;
        }
        newestRow_ = event->databaseIdentifier();
        ++batch_.added;
        if (options_.recordChanges) {
            require(repositories_.changes.recordChange(ZAVSyncedChangeTableNameEvents,
                                                       event->databaseIdentifier(), ZAVSyncedChangeTypeInsert,
                                                       &error),
                    "cannot record a change", error);
        }
    }
    pendingUnsequenced_.clear();
    pendingClients_.clear();
    pendingPlaces_.clear();
    pending_.clear();
}

/// The repository would leave out metadata that are not text: an event with such metadata is stored without
/// any, and they are stored here.
void Importer::storeBinaryMetadata() {
    for (const auto& [event, metadata] : binaryMetadata_) {
        ZAVError error;
        const auto context = ZAVKeyedValuesContext::contextWithTable(
            ZAVKeyedValuesTableRemote, "event", event->databaseIdentifier(), ZAVKeyedValuesKeyTypeTransient);
        require(
            repositories_.keyedValues.setKeyedValuesWithDictionary(metadata, std::nullopt, context, &error),
            "cannot store metadata", error);
    }
    binaryMetadata_.clear();
}

void Importer::commit() {
    persistPending();
    ZAVError error;
    require(transaction_->commit(&error), "cannot commit a batch", error);
    transaction_.reset();
    committed_.added += std::exchange(batch_.added, 0);
    committed_.updated += std::exchange(batch_.updated, 0);
    committed_.differing += std::exchange(batch_.differing, 0);
    inBatch_ = 0;
}

}  // namespace zavevents
