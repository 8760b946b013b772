#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVEventRecognition.h>
#include <ZAVEventRepository/ZAVRepositories.h>
#include <ZAVEventRepository/ZAVTransaction.h>

#include "EventReader.h"
#include "UnnamedStreams.h"

namespace zavevents {

/// Stores events in batches, each of them whole or not at all, and makes the streams that they need.
///
/// Which stored event an incoming one is, if any, is decided by `ZAVEventRecognition`. One that is stored
/// already is updated; its content parts stay as they are stored.
class Importer {
public:
    struct Options {
        std::size_t batchSize = 1000;
        bool recordChanges = false;           ///< whether each new event is recorded in `synced_changes`
        std::optional<std::string> userID{};  ///< whose the events without an author are
    };

    struct Counts {
        std::uint64_t added = 0;
        std::uint64_t updated = 0;
        std::uint64_t differing = 0;  ///< of the updated ones, those with other content than was stored

        [[nodiscard]] std::uint64_t stored() const { return added + updated; }
    };

    /// Called with what the user should know of the event that is being added.
    using Remark = std::function<void(const std::string&)>;

    Importer(std::shared_ptr<zav::FMDatabase> database, Options options, Remark remark);

    /// Takes an event in; stores the batch when it is full. What was not stored yet is dropped with the
    /// importer.
    /// @throws BadLine when another event is stored at the event's sequence; the others of the batch are as
    /// they were.
    /// @throws ToolError and zav::NSInternalInconsistencyException; the batch is then rolled back.
    void add(const ReadEvent& read);

    /// Stores what is left.
    void finish();

    /// What has been stored for good.
    [[nodiscard]] const Counts& counts() const { return committed_; }

    /// How many streams the events belong to.
    [[nodiscard]] std::size_t streamCount() const { return streams_.size() + unnamedStreams_.count(); }

private:
    void begin();
    [[nodiscard]] zav::ZAVDatabaseIdentifier streamOf(const ReadEvent& read);
    [[nodiscard]] bool mayBePending(const zav::ZAVEvent& event) const;
    void adoptStoredEvent(zav::ZAVEvent& event);
    void keepWhatTheServiceAssigned(zav::ZAVEvent& event);
    void compareContent(const zav::ZAVEvent& event);
    void addToPending(const std::shared_ptr<zav::ZAVEvent>& event);
    void persistPending();
    void storeBinaryMetadata();
    void commit();

    std::shared_ptr<zav::FMDatabase> database_;
    zav::ZAVRepositories repositories_;
    Options options_;
    Remark remark_;
    zav::ZAVEventRecognition recognition_;
    bool hasTold_ = false;  ///< that the user is not known

    std::optional<zav::ZAVTransaction> transaction_;
    zav::ZAVSet<zav::ZAVEvent> pending_;
    std::set<zav::ZAVData> pendingClients_;            ///< the client_ids of all pending events
    std::set<zav::ZAVData> pendingUnsequenced_;        ///< those of pending events without a sequence
    std::unordered_set<std::uint64_t> pendingPlaces_;  ///< streams and sequences, mixed into one number
    std::vector<std::pair<std::shared_ptr<zav::ZAVEvent>, zav::ZAVDictionary>>
        binaryMetadata_;  ///< of pending events
    std::size_t inBatch_ = 0;
    zav::ZAVDatabaseIdentifier newestRow_ = 0;

    std::map<zav::ZAVData, zav::ZAVDatabaseIdentifier> streams_;
    UnnamedStreams unnamedStreams_;
    Counts batch_;
    Counts committed_;
};

}  // namespace zavevents
