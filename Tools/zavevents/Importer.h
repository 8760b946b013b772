#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <unordered_map>

#include "EventReader.h"
#include "Private/Database/FMDatabase.h"
#include "Private/Database/ZAVTransaction.h"
#include "Private/Model/Repositories/ZAVEventRepository.h"
#include "Private/Model/Repositories/ZAVStreamRepository.h"

namespace zavevents {

/// Stores events in batches, each of them whole or not at all, and makes the streams that they need.
///
/// An event that the service has sequenced is recognised by its stream and sequence. One that it has not is
/// recognised by its `client_id`, and so is the first appearance of its sequence: the stored event then gets
/// it.
class Importer {
public:
    struct Counts {
        std::uint64_t added = 0;
        std::uint64_t updated = 0;
    };

    /// @param recordChanges whether each new event is recorded in `synced_changes`.
    Importer(std::shared_ptr<zav::FMDatabase> database, std::size_t batchSize, bool recordChanges);

    /// Takes an event in; stores the batch when it is full. What was not stored yet is dropped with the
    /// importer.
    /// @throws ToolError and zav::NSInternalInconsistencyException; the batch is then rolled back.
    void add(const ReadEvent& read);

    /// Stores what is left.
    void finish();

    /// What has been stored for good.
    [[nodiscard]] const Counts& counts() const { return committed_; }

    /// How many streams the events belong to.
    [[nodiscard]] std::size_t streamCount() const { return streams_.size() + unnamedStreams_.size(); }

private:
    void begin();
    void adoptStoredEvent(zav::ZAVEvent& event);
    void placeInStream(const ReadEvent& read);
    void persistPending();
    void storeBinaryMetadata(const zav::ZAVEvent& event);
    void commit();

    std::shared_ptr<zav::FMDatabase> database_;
    zav::ZAVEventRepository events_;
    zav::ZAVStreamRepository streamRepository_;
    std::size_t batchSize_;
    bool recordChanges_;

    std::optional<zav::ZAVTransaction> transaction_;
    zav::ZAVSet<zav::ZAVEvent> pending_;
    std::set<zav::ZAVData> pendingUnsequenced_;  ///< the client_ids of pending events without a sequence
    std::set<zav::ZAVData> pendingClients_;      ///< the client_ids of all pending events
    std::size_t inBatch_ = 0;
    zav::ZAVDatabaseIdentifier newestRow_ = 0;
    bool storeHasUnsequenced_ = false;

    std::map<zav::ZAVData, zav::ZAVDatabaseIdentifier> streams_;
    std::map<std::optional<std::int64_t>, zav::ZAVDatabaseIdentifier> unnamedStreams_;
    Counts batch_;
    Counts committed_;
};

}  // namespace zavevents
