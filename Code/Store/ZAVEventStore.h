#pragma once

#include <functional>
#include <memory>
#include <string>

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVEventStoreError.h>
#include <ZAVEventRepository/ZAVEventStoreOptions.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVRepositories.h>

namespace zav {

/// An event store for all threads of a client: one handle that writes and several that read.
///
/// Every member may be called from any thread. A work is the caller's own code, which runs on the calling
/// thread with repositories on a handle that is its own meanwhile. Records may be taken out of a work. A
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

    /// Closes all handles. No member may be running, nor be called any more.
    ~ZAVEventStore();

    /// Calls `work` with a handle that cannot write, inside one snapshot: whatever others commit meanwhile,
    /// the work sees the store as it was when the call began. It does not wait for a writer, only for another
    /// read to end when as many run as `ZAVEventStoreOptions::readers` says. What a `write` stored that has
    /// returned is seen.
    ///
    /// A `read` within a `read` is part of it, and one within a `write` sees what was written so far.
    /// @return whether the work was called. If not, the reason is in `error`.
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

private:
    class Handles;

    explicit ZAVEventStore(std::unique_ptr<Handles> handles) noexcept;

    std::unique_ptr<Handles> handles_;
};

}  // namespace zav
