#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>

#include <ZAVEventRepository/ZAVContent.h>
#include <ZAVEventRepository/ZAVContentFile.h>
#include <ZAVEventRepository/ZAVData.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVURL.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

class ZAVRepositories;
class ZAVStoreCore;

/// The files of a store's content parts, and the rows that tell of them: `ZAVEventStore::content`. Every
/// member may be called from any thread.
///
/// Files stand below the store's directory, each where the path of its part says, and nothing else is read,
/// made or removed: no path leads out of it, by its text or by a link. The files of the database are never
/// content, whatever a path says.
///
/// What fails answers false or nothing, with the reason in `error`: `ZAVEventStoreErrorContent` names the
/// file, `ZAVEventStoreErrorNoContent` says why there is none to read.
class ZAV_EXPORT ZAVContentCache {
public:
    ~ZAVContentCache();
    ZAVContentCache(const ZAVContentCache&) = delete;
    ZAVContentCache& operator=(const ZAVContentCache&) = delete;

    /// Puts the content of a part that is to be sent where its file belongs: before the event is given to
    /// `ZAVEventStore::send`. The store must have been opened with a user and an application. Content that
    /// was put there before is replaced; until the event is sent nothing but `repair` removes it.
    /// @param clientID of the event, and `index` the position of the part in its content.
    /// @return the file, for `ZAVEventContent::setFileURL`.
    std::optional<ZAVURL> put(const ZAVUUID& clientID, std::size_t index, std::span<const std::uint8_t> bytes,
                              ZAVError* error = nullptr);

    /// Begins to write the file of a part that is to be downloaded, or that was purged; the part counts as
    /// being downloaded from now on. A part without a path gets one, for which the store must have been
    /// opened with a user and an application.
    /// @param event the row of the event, and `index` the position of the part.
    std::optional<ZAVContentWriter> beginDownload(ZAVDatabaseIdentifier event, std::int64_t index,
                                                  ZAVError* error = nullptr);

    /// As `beginDownload`, going on with what an earlier call of this for the part has left: `size` of the
    /// writer says how much that is, which the process that wrote it may have been killed after. One that is
    /// destroyed before it is finished leaves what it has to the next, or to `repair` when it grows old.
    ///
    /// What is there is longer than the part as its row says, or was left for another part: then it is not
    /// used. That the service still has the same content is not seen here. What was not finished was not
    /// synced either: after a power cut its end may be another, where that can happen, compare the whole.
    /// @return nothing as well while another writer of this kind goes on with the part, in any process
    /// (`ZAVEventStoreErrorInUse`).
    std::optional<ZAVContentWriter> resumeDownload(ZAVDatabaseIdentifier event, std::int64_t index,
                                                   ZAVError* error = nullptr);

    /// Opens the file of a part for reading. That it was accessed is recorded within a minute, when content
    /// is purged, and when the store is closed; a crash in between may forget it.
    /// @param event the row of the event, and `index` the position of the part.
    std::optional<ZAVContentFile> open(ZAVDatabaseIdentifier event, std::int64_t index,
                                       ZAVError* error = nullptr);

    /// Records now when parts were accessed that were opened.
    bool recordAccesses(ZAVError* error = nullptr);

    /// How much content there is, as the rows say.
    [[nodiscard]] std::optional<ZAVContentUsage> bytesOnDisk(ZAVError* error = nullptr);

    /// Frees space: removes the files of parts and marks the parts purged, so that no part that counts on its
    /// file is without it, whenever the process ends. First it ends what a killed one began.
    ///
    /// Each file goes in this order. Under the write lock it is decided on the rows as they are then; the
    /// file gets a trash name in its directory; all rows that name it are marked; the transaction is
    /// committed; the file is removed. A file goes only if every part that names it is complete: what is
    /// still to be uploaded is the only copy, and a download that was begun is gone on with.
    ///
    /// Trash names carry a mark of their store: what another one in the same directory is about to remove is
    /// left to it. That of a store that is no more stays, and may be removed by hand.
    ///
    /// Parts whose files are not there are marked purged: the directory has to be the right one. That it is
    /// missing is an error as soon as a part should have its file in it.
    /// @param observer is called on this thread; may be empty.
    /// @return what it came to; nothing on failure, and within a work (`ZAVEventStoreErrorInWork`). What the
    /// observer was called for is done.
    std::optional<ZAVPurgeResult> purge(const ZAVPurgePolicy& policy, const ZAVPurgeObserver& observer = {},
                                        ZAVError* error = nullptr);

    /// Looks for files that no part names, and for parts without their file. Only files that the library
    /// itself places are looked at, of the store's user and application, which it must have been opened with:
    /// other accounts may keep theirs in the same directory.
    /// @param age how long a file must have been left unchanged: a younger one may belong to what is about to
    /// be stored.
    [[nodiscard]] std::optional<ZAVContentOrphans> findOrphans(
        std::chrono::seconds age = std::chrono::hours(24), ZAVError* error = nullptr);

    /// Makes files and rows agree: ends what killed processes of this store began, removes the files that
    /// `findOrphans` finds, each decided under the write lock, and marks complete parts purged whose file is
    /// not there, so that they can be fetched again.
    /// @return what was removed and marked; `uploadsWithoutFile` are left as they are. Nothing on failure,
    /// and within a work (`ZAVEventStoreErrorInWork`).
    std::optional<ZAVContentOrphans> repair(std::chrono::seconds age = std::chrono::hours(24),
                                            ZAVError* error = nullptr);

private:
    friend class ZAVEventStore;
    class Accesses;

    explicit ZAVContentCache(ZAVStoreCore& core);

    /// The work that records accesses; empty when there is nothing to record.
    [[nodiscard]] std::function<bool(const ZAVRepositories&)> recordingOfAccesses();
    void recordAccessesLater() noexcept;

    ZAVStoreCore& core_;
    std::shared_ptr<Accesses> accesses_;
};

}  // namespace zav
