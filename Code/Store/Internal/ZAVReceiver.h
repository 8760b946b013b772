#pragma once

#include <optional>

#include <ZAVEventRepository/ZAVEventRecognition.h>
#include <ZAVEventRepository/ZAVReceiving.h>
#include <ZAVEventRepository/ZAVRepositories.h>
#include <ZAVEventRepository/ZAVUUID.h>

#include "Store/Internal/ZAVEventRemover.h"
#include "Store/Internal/ZAVStoreHandle.h"
#include "Store/Internal/ZAVStoreOwner.h"

namespace zav {

class ZAVFieldsNotSaid;

/// Stores what the service sends of one stream, in a transaction that holds the write lock.
class ZAVReceiver {
public:
    ZAVReceiver(ZAVStoreHandle& handle, const ZAVStoreOwner& owner, const ZAVReceiveOptions& options);

    /// Registers the stream if need be. To be called first.
    /// @return false on failure, with the reason in `error`, as all that follows.
    bool begin(const ZAVUUID& stream, ZAVError* error);

    /// Stores one event, or says why it is refused.
    bool receive(ZAVEvent& event, ZAVReceivedEvent& answer, ZAVError* error);

    /// Records how far the stream has come.
    bool finish(ZAVError* error);

    /// Records the sequence of an event that was sent from here.
    bool recordPosted(ZAVEvent& event, ZAVReceivedEvent& answer, ZAVError* error);

private:
    using Outcome = ZAVReceivedEvent::Outcome;

    [[nodiscard]] ZAVError objectionTo(const ZAVEvent& event) const;
    bool store(ZAVEvent& event, ZAVReceivedEvent& answer, ZAVError* error);
    bool giveRow(ZAVEvent& event, ZAVDatabaseIdentifier row, bool isOwn, const ZAVFieldsNotSaid& notSaid,
                 ZAVReceivedEvent& answer, ZAVError* error);
    bool storeNew(ZAVEvent& event, ZAVReceivedEvent& answer, ZAVError* error);
    bool storeTombstone(ZAVEvent& event, ZAVError* error);
    bool bringUpToDate(ZAVEvent& event, bool& isChanged, ZAVError* error);
    bool renewURLs(const ZAVEvent& event, bool& isChanged, ZAVError* error);
    bool assignSequence(ZAVEvent& event, ZAVDatabaseIdentifier row, ZAVError* error);
    bool mergeTwin(ZAVDatabaseIdentifier sequenced, ZAVEvent& event, ZAVDatabaseIdentifier waiting,
                   ZAVError* error);
    bool recordTimestamp(const ZAVEvent& event, ZAVDatabaseIdentifier row, ZAVError* error);
    bool answerOfAbsent(const ZAVEvent& event, ZAVReceivedEvent& answer, ZAVError* error) const;
    bool applyDeletion(const ZAVEvent& deletion, ZAVError* error);
    bool recordChange(ZAVDatabaseIdentifier row, ZAVSyncedChangeType type, ZAVError* error);
    void prepareParts(ZAVEvent& event) const;
    [[nodiscard]] std::optional<bool> isDeletedAlready(ZAVSequence seq, ZAVError* error) const;
    [[nodiscard]] std::optional<bool> isTombstone(ZAVDatabaseIdentifier row, ZAVError* error) const;
    [[nodiscard]] std::optional<bool> isStoredAsItIs(const ZAVEvent& event, ZAVError* error) const;

    ZAVStoreHandle& handle_;
    FMDatabase& database_;
    const ZAVRepositories& repositories_;
    const ZAVStoreOwner& owner_;
    const ZAVReceiveOptions& options_;
    ZAVEventRecognition recognition_;
    ZAVEventRemover remover_;
    ZAVUUID streamUUID_;
    ZAVDatabaseIdentifier stream_ = ZAVDatabaseIdentifierNotSet;
    std::optional<ZAVSequence> greatestSeq_;
    bool changesStored_ = false;  ///< whether an event of an older row was changed
};

}  // namespace zav
