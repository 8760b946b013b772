#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace zav {

/// How a database is opened. The defaults are what a client wants. An invalid value, such as a
/// negative size, is refused with `ZAVDatabaseErrorBadOption` before anything is opened or made.
struct FMDatabaseOptions {
    /// What the handle may do with the file.
    enum class Access {
        readOnly,         ///< an existing file, which is not written
        readWrite,        ///< an existing file
        readWriteCreate,  ///< a file that is made when there is none
    };

    /// What the engine makes sure of before it says that something is stored.
    enum class Synchronous {
        full,    ///< what was acknowledged survives a power cut
        normal,  ///< a power cut may cost the last transactions, never the file
    };

    /// By default a file is made when there is none.
    Access access = Access::readWriteCreate;

    /// By default what was acknowledged survives a power cut.
    Synchronous synchronous = Synchronous::full;

    /// The permissions of a file that is made, and of the journal, the log and the shared memory beside it;
    /// the process's umask may only take from the file's. By default they are the owner's alone, who must be
    /// let read and write. A file that is there keeps its own. Only the engine's own file systems of Unix
    /// take it.
    std::uint32_t newFileMode = 0600;

    /// A write-ahead log lets one connection read while another writes. Without it the file keeps the mode it
    /// has.
    bool writeAheadLog = true;

    /// Memory for pages of the file, in KiB, taken as pages are read. Indexes that fit are searched without
    /// touching the file system; 2048 suits a small phone. 0 leaves the engine the least that it needs. While
    /// a transaction changes more pages than that, up to four times as much.
    std::int32_t pageCacheKiB = 16384;

    /// How many pages the write-ahead log grows by before it is folded into the file. A page that changes
    /// again and again in between is folded once. 0 leaves folding it to the application, and to closing.
    std::int32_t writeAheadLogPages = 4000;

    /// How many pages of the write-ahead log have a commit wait for those who read from it. Readers who take
    /// turns without a pause keep the log from being begun anew, and it grows although all of it is in the
    /// file. The commit that leaves so many pages in it is followed by a wait, in which no lock is held, so
    /// that nothing of anybody fails for it; the next commit then begins the log anew. As long as no reader
    /// takes longer than `writeAheadLogWait`, the log is larger than this by one transaction at most.
    ///
    /// When one does, and when the wait would have no end, since a cursor of this handle reads from the log,
    /// the log grows on, and commits wait again when it has grown by a quarter of this. Each time an error
    /// line of `ZAVLogComponentSQLite` says so, with the text and the age of the oldest such cursor. The line
    /// is written in the call that commits, before it returns.
    ///
    /// 0 has no commit wait. So has 0 for `writeAheadLogPages`; fewer pages than that are taken for as many.
    /// Attached files have no ceiling. The handle is the hook of the log of its connection for it;
    /// `PRAGMA wal_autocheckpoint=N`, on an engine where it is not refused, takes its place.
    std::int32_t writeAheadLogCeiling = 8000;

    /// How long a commit waits then at most; 0 does not wait. More than 2^31 - 1 ms are taken for that. It is
    /// not part of `busyTimeout`, and nothing ends it early.
    std::chrono::milliseconds writeAheadLogWait{1000};

    /// Whether what is deleted is overwritten with zeros in the file, so that it cannot be read there any
    /// more. Without it a deleted text stays in a free page until something else takes its place, and the
    /// file is written less.
    bool secureDelete = true;

    /// How long a call waits for a lock that another connection holds before it fails; 0 does not wait. More
    /// than 2^31 - 1 ms, some 24 days, are taken for that. The handle is the busy handler of its connection
    /// for it: `PRAGMA busy_timeout` reads 0, and setting it takes the handle's place.
    std::chrono::milliseconds busyTimeout{5000};

    /// How many prepared statements are kept for reuse while they are idle. 0 keeps none; 2^31 - 1
    /// are the most that may be asked for.
    std::size_t statementCacheCapacity = 64;

    /// The newest `PRAGMA user_version` that is acceptable. A file with a greater one is refused before
    /// anything is written to it.
    std::optional<std::int32_t> newestUserVersion;

    /// The key of an encrypted file: a pass phrase, at least one byte, from which the engine derives what it
    /// encrypts with. A file that is made by opening it with a key is encrypted from its first byte, as are
    /// its journal and its write-ahead log. The key is given before anything is read; one that is not the
    /// file's is refused and leaves the file as it is, and so is any key where the build's engine cannot
    /// encrypt.
    ///
    /// The engine keeps a copy while the handle is open, and so does the handle, which wipes its own when it
    /// is closed. Nobody wipes these options.
    std::optional<std::string> key;

    /// Gives the key when it is needed, in place of `key`: at each opening, on the thread that opens, and
    /// when the handle opens its file once more for itself, as compacting does. The answer is wiped after its
    /// use, and the handle keeps none. No answer, since the device is locked, say, has the opening fail with
    /// `ZAVDatabaseErrorNoKey` before anything is opened or made. It may throw; the exception goes on.
    std::function<std::optional<std::string>()> keyProvider;

    /// Name of the engine's virtual file system; empty for the engine's default.
    std::string vfs;
};

}  // namespace zav
