#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVContentCache.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVEventStoreError.h>
#include <ZAVEventRepository/ZAVEventStoreOptions.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVReceiving.h>
#include <ZAVEventRepository/ZAVRepositories.h>
#include <ZAVEventRepository/ZAVSending.h>
#include <ZAVEventRepository/ZAVStoreSubscription.h>
#include <ZAVEventRepository/ZAVStoreWork.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

class ZAVStoreCore;

/// An event store for all threads of a client: one handle that writes and several that read.
///
/// Every member may be called from any thread. A work is the caller's own code, which runs with repositories
/// on a handle that is its own meanwhile: of `read` and `write` on the calling thread, of `readAsync` and
/// `writeAsync` on one of the store's, which has all signals blocked. Records may be taken out of a work. A
/// cursor may not: one that is kept is closed, and says so when it is used.
///
/// Within a work nobody begins or ends a transaction by hand: `BEGIN`, `COMMIT`, `ROLLBACK`, a
/// `ZAVTransaction` and `FMDatabase::rollback` are refused with `ZAVDatabaseErrorTransactionOfAnother`.
/// Savepoints are not. What runs on `FMDatabase::sqliteHandle` is not looked at.
class ZAV_EXPORT ZAVEventStore {
public:
    /// A work that reads. It may throw; the exception goes on to who called `read`.
    using ReadingWork = std::function<void(const ZAVRepositories&)>;

    /// A work that writes. It answers whether what it wrote is to be kept.
    using WritingWork = std::function<bool(const ZAVRepositories&)>;

    /// Opens a database file, makes it if there is none, and brings its schema up to date.
    ///
    /// What `ZAVDatabaseSchema::openDatabase` refuses is refused here too. So is a database in memory
    /// (`ZAVEventStoreErrorNoFile`), and a place where there can be no write-ahead log
    /// (`ZAVEventStoreErrorNoWriteAheadLog`), without which readers and the writer would wait for each other.
    /// @return null on failure, with the reason in `error`.
    [[nodiscard]] static std::unique_ptr<ZAVEventStore> open(const std::string& path,
                                                             const ZAVEventStoreOptions& options = {},
                                                             ZAVError* error = nullptr);

    ZAVEventStore(const ZAVEventStore&) = delete;
    ZAVEventStore& operator=(const ZAVEventStore&) = delete;

    /// Closes the store as `close` does, and refuses works that wait. No other thread may be calling a
    /// member, nor may a work be running on this one.
    ~ZAVEventStore();

    /// Calls `work` with a handle that cannot write, inside one snapshot: whatever others commit meanwhile,
    /// the work sees the store as it was when the call began. It does not wait for a writer, only for another
    /// read to end when as many run as `ZAVEventStoreOptions::readers` says. What a `write` stored that has
    /// returned is seen.
    ///
    /// A `read` within a `read` is part of it, and one within a `write` sees what was written so far.
    /// @return whether the work was called, and came to its end without `suspend`. If not, the reason is in
    /// `error`.
    bool read(const ReadingWork& work, ZAVError* error = nullptr);

    /// Calls `work` inside one transaction, which has the write lock from its beginning. Writes take turns,
    /// in the order in which they were called.
    ///
    /// The transaction is committed when the work answers true. When it answers false or throws, everything
    /// is taken back; an exception goes on. When the engine has undone the transaction, for want of space or
    /// memory, nothing more runs in the work, and the call fails with that error whatever the work answers.
    /// What records were told of rows that were taken back stays in them.
    ///
    /// A `write` within a `write` is a part of it that can be taken back alone. Within a `read` of this store
    /// it would wait for itself, and is refused with `ZAVEventStoreErrorWriteInRead`.
    /// @return whether what was written is stored; within another `write`, whether it is a part of that.
    /// False without an error when the work wanted it so.
    bool write(const WritingWork& work, ZAVError* error = nullptr);

    /// As `read`, on a thread of the store. It does not wait for writes.
    /// @param completion is told the outcome, once, by the executor; may be empty.
    /// @return none when the work will not run, with the reason in `error`: the store is closed or suspended,
    /// has no executor (`ZAVEventStoreErrorNoExecutor`), or gets no thread (`ZAVEventStoreErrorNoThread`).
    /// The completion is not called then.
    std::optional<ZAVPendingWork> readAsync(ReadingWork work, ZAVWorkCompletion completion,
                                            const ZAVWorkOptions& options = {}, ZAVError* error = nullptr);

    /// As `write`, on a thread of the store, in its turn: after all writes that were asked for before, of
    /// either kind. Otherwise as `readAsync`.
    ///
    /// A work that throws, or that the engine fails, has the outcome `failed`. One that is cancelled or late
    /// is taken back, unless its commit has begun: it is `done` then.
    std::optional<ZAVPendingWork> writeAsync(WritingWork work, ZAVWorkCompletion completion,
                                             const ZAVWorkOptions& options = {}, ZAVError* error = nullptr);

    /// Has `observer` told, by the executor, of each commit of this store that comes after this call, in
    /// their order, and of a commit before the completion of the write that made it. It keeps being told
    /// until the subscription is let go of.
    ///
    /// Of a write that was running when the first observer came, the changes are not known.
    /// @return nothing when the store is closed, suspended, or has no executor, with the reason in `error`.
    [[nodiscard]] ZAVStoreSubscription subscribe(ZAVStoreObserver observer, ZAVError* error = nullptr);

    /// Looks whether others have committed since it was looked last, or since the store was opened, and has
    /// the observers told if so. Folding the log in another process may look like a commit. It takes its turn
    /// among the writes.
    /// @return none on failure, with the reason in `error`.
    std::optional<bool> lookForCommitsOfOthers(ZAVError* error = nullptr);

    /// Stores what the service sent of one stream, in one transaction and in the order given, and does what a
    /// client owes to it; each of the things can be switched off in `ZAVReceiveOptions`. The stream is
    /// registered if need be. An event of the user that was sent from here is known for the row that waits
    /// for its sequence: by stream, author and `client_id`, a waiting row without an author being the user's.
    /// The same event may come any number of times, and the same rows result.
    ///
    /// The records are told their rows. What an event that is stored already does not say (a field that is
    /// not set) stays as it is stored; `preceding_seq` and `client_seq` that it says are taken over only when
    /// something else has changed.
    /// @return what became of each event, in the order given; one that is refused costs the others nothing.
    /// None when the database fails, or when one is refused and the options want them all or none: nothing is
    /// stored then, and the records are as they were before, with the reason in `error`.
    std::optional<std::vector<ZAVReceivedEvent>> receive(const ZAVUUID& streamUUID,
                                                         std::span<const std::shared_ptr<ZAVEvent>> events,
                                                         const ZAVReceiveOptions& options = {},
                                                         ZAVError* error = nullptr);

    /// Records what the service gave to an event that was sent from here, as its answer says: the event of
    /// this author and `client_id` in the stream. `receive` may have recorded it before, or do so later.
    /// @return what became of it: `own`, `known`, `conflict` when another event stands at the sequence or the
    /// event at another one, or `refused` when there is no such event or `seq` is `ZAVSequenceNotSet`. None
    /// when the database fails, with the reason in `error`.
    std::optional<ZAVReceivedEvent> recordPosted(const ZAVUUID& streamUUID, const ZAVUUID& clientID,
                                                 ZAVSequence seq, const std::string& creatorID,
                                                 std::int64_t serverTimestamp, ZAVError* error = nullptr);

    /// Stores an event of the user's, which waits until the service has it: `outbox` answers it then. The
    /// stream is named by its row, where one has to be (`ZAVEventStoreErrorNoStream`), or by its identifier,
    /// under which it is registered if need be; the record is told the identifier too. `client_seq`
    /// becomes the next number of the stream's counter, which never goes back, and `preceding_seq` what the
    /// stream has come to, or 0; an event without an author becomes the user's. A part with a file, which has
    /// to be there, awaits its upload; others are complete.
    /// @return its row, which the record is told too; the one that is there when an event of this author and
    /// `client_id` was stored in the stream before, as which it counts. None on failure, with the reason in
    /// `error`; the record is as it was before then.
    std::optional<ZAVSentEvent> send(const std::shared_ptr<ZAVEvent>& event, ZAVError* error = nullptr);

    /// The events that wait for the service and can go there, as `ZAVEventRepository::publishableEvents`
    /// says, by the row of their stream, by `client_seq`, and by their own row.
    /// @return none on failure, with the reason in `error`.
    [[nodiscard]] std::optional<std::vector<std::shared_ptr<ZAVEvent>>> outbox(
        const ZAVOutboxOptions& options = {}, ZAVError* error = nullptr);

    /// Gives a stream that was begun offline the identifier under which the service knows it. When a stream
    /// of that identifier is registered already, the events that wait move there, behind what was sent into
    /// it. Calling it again changes nothing.
    /// @return the row of the stream that has the identifier now; none on failure, with the reason in
    /// `error`: the stream may not be there (`ZAVEventStoreErrorNoStream`), or have another identifier
    /// (`ZAVEventStoreErrorConflict`).
    std::optional<ZAVDatabaseIdentifier> streamPosted(ZAVDatabaseIdentifier stream, const ZAVUUID& uuid,
                                                      ZAVError* error = nullptr);

    /// The sequences that are missing between those that are stored, and up to the one that the stream has
    /// come to, the newest first.
    /// @param limit how many gaps are wanted at most.
    /// @return none on failure, with the reason in `error`.
    std::optional<std::vector<ZAVSequenceGap>> missingSequences(const ZAVUUID& streamUUID, std::size_t limit,
                                                                ZAVError* error = nullptr);

    /// Deletes events with all that belongs to them: parts, metadata, change records and mirrored messages,
    /// in one transaction; then the files of the parts that no other part names, for which all parts are
    /// asked once, beside other works: in a store of a million files that takes some tenths of a second,
    /// however many events are deleted together. Nothing of them is found by a queue again, and nothing keeps
    /// the service from sending them again: see `makeTombstone`.
    /// @param rows those of the events; one that is not there is no failure.
    /// @return how many events there were; none on failure, with the reason in `error`.
    std::optional<std::size_t> deleteEvents(std::span<const ZAVDatabaseIdentifier> rows,
                                            ZAVError* error = nullptr);

    /// Makes a tombstone of the event at a sequence, which stays in its place when the event comes again: its
    /// row stays, and what belongs to it goes as with `deleteEvents`.
    /// @return whether there was such an event; none on failure, with the reason in `error`.
    std::optional<bool> makeTombstone(const ZAVUUID& streamUUID, ZAVSequence seq, ZAVError* error = nullptr);

    /// The same, for a stream in a row.
    std::optional<bool> makeTombstone(ZAVDatabaseIdentifier stream, ZAVSequence seq,
                                      ZAVError* error = nullptr);

    /// Deletes a stream with its events and all that belongs to them, as `deleteEvents` does. The
    /// conversation that shows it stays, with the sequences of its participants.
    /// @param stream its row, which a stream that was begun offline has as well.
    /// @return whether there was such a stream; none on failure, with the reason in `error`.
    std::optional<bool> deleteStream(ZAVDatabaseIdentifier stream, ZAVError* error = nullptr);

    /// Which sequences may take the place of one that was recorded.
    enum class SequenceChange {
        forward,  ///< only a greater one: what comes late changes nothing
        any,      ///< a smaller one as well
    };

    /// Records how far a member of a stream's conversation has progressed.
    /// @return whether it was recorded: false when the member is not known, or has come as far before. None
    /// on failure, with the reason in `error`.
    std::optional<bool> recordParticipantSeq(const ZAVUUID& streamUUID, const std::string& memberID,
                                             ZAVSequence seq, SequenceChange change = SequenceChange::forward,
                                             ZAVError* error = nullptr);

    /// Records the sequence of the message that an event carries.
    /// @return whether it was recorded: false when the event carries none, or one of this sequence or a
    /// greater one. None on failure, with the reason in `error`.
    std::optional<bool> recordMessageSeq(ZAVDatabaseIdentifier event, ZAVSequence seq,
                                         SequenceChange change = SequenceChange::forward,
                                         ZAVError* error = nullptr);

    /// The files of the content parts. It lives as long as the store.
    [[nodiscard]] ZAVContentCache& content() noexcept { return *content_; }

    /// What becomes of works that wait for a thread or for their turn while the store is suspended.
    enum class SuspendedWorks {
        wait,     ///< those given before run when it is resumed; their deadlines come all the same
        refused,  ///< they fail with `ZAVEventStoreErrorSuspended`
    };

    /// Closes every handle, so that this process holds no lock on the files of the database: before it is
    /// stopped, say, since many systems end a process that is stopped while it holds one. What another handle
    /// or program in the process has open is not the store's. A writer of `ZAVContentCache::resumeDownload`
    /// keeps its lock on the file that it writes, until it goes.
    ///
    /// Works that run are ended: each further statement fails, the present one too, and what was written is
    /// taken back, unless its commit has begun and stands. They fail with `ZAVEventStoreErrorSuspended`, as
    /// does whatever is called from now on, at once, and a `read` or `write` that waits for its turn. When
    /// content was opened is recorded, and the write-ahead log is folded, as far as the time allows. Files of
    /// what was deleted that could not be removed any more go after the next commit of this store; those of
    /// one that is closed before are left to `ZAVContentCache::repair`.
    ///
    /// A work that is busy with something else than the store is not ended by that. One that still runs at
    /// the deadline is named in the error (`ZAVEventStoreErrorWorkRuns`): what `ZAVWorkOptions::name` called
    /// it, and its thread. The store remains as it is then: it takes no work, and each handle is closed as
    /// soon as its work ends. `suspend` may be called again, to wait on, and `resume`, to go on.
    /// @param deadline when this returns at the latest, but for the time that closing a file takes.
    /// @return whether every handle is closed; true also when it was suspended before. False within a work
    /// (`ZAVEventStoreErrorSuspendInWork`).
    bool suspend(std::chrono::steady_clock::time_point deadline,
                 SuspendedWorks waiting = SuspendedWorks::wait, ZAVError* error = nullptr);

    /// Opens the store again that was suspended, or failed to be. Those who subscribe are told once that
    /// others may have committed, since nobody looked meanwhile. A store that is not suspended stays as it
    /// is; while another thread suspends it, that is waited for.
    /// @return false when the file cannot be opened, with the reason in `error`: there may be no key, or it
    /// was replaced. It may be tried again.
    bool resume(ZAVError* error = nullptr);

    /// Gives back the memory that was taken to be faster: the pages of the file, prepared statements, handles
    /// that read. Of works that run, when they end.
    void releaseMemory();

    /// What becomes of works that wait for a thread or for their turn when the store is closed.
    enum class QueuedWorks {
        run,      ///< they run before it is closed
        refused,  ///< they fail with `ZAVEventStoreErrorClosed`
    };

    /// Closes the store: waits for the works that run, and closes all handles. Whatever is called from now on
    /// fails with `ZAVEventStoreErrorClosed`. Completions are not waited for: they run when the executor runs
    /// them, also after the store is gone. A store that is closed may be closed again. What waits in one that
    /// is suspended is refused in any case.
    /// @return whether it is closed: false within a work (`ZAVEventStoreErrorCloseInWork`).
    bool close(QueuedWorks queued, ZAVError* error = nullptr);

private:
    friend class ZAVTimelineWindow;

    explicit ZAVEventStore(std::unique_ptr<ZAVStoreCore> core);

    std::unique_ptr<ZAVContentCache> content_;
    std::unique_ptr<ZAVStoreCore> core_;  // before the content goes, whose accesses a work may record
};

}  // namespace zav
