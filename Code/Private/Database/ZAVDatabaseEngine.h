#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// The database engine that this program runs on. Its members may be called from any thread.
class ZAV_EXPORT ZAVDatabaseEngine {
public:
    /// Such as "3.40.1": that of the library loaded at run time. Of an engine that can encrypt, that of the
    /// SQLite it was made from.
    [[nodiscard]] static std::string_view version() noexcept;

    /// The same as one number: 3040001.
    [[nodiscard]] static std::int32_t versionNumber() noexcept;

    /// The version whose header the library was compiled with.
    [[nodiscard]] static std::string_view versionCompiledWith() noexcept;

    /// Date and hash of the engine's source.
    [[nodiscard]] static std::string_view source() noexcept;

    /// The options that the engine was compiled with, and its compiler, as it names them: "THREADSAFE=1",
    /// "COMPILER=gcc-12.2.0".
    [[nodiscard]] static std::vector<std::string> compileOptions();

    /// Whether it was compiled with an option: "SECURE_DELETE", or "THREADSAFE=1".
    [[nodiscard]] static bool hasCompileOption(const char* option) noexcept;

    /// Those of its options that concern a store: threads, encryption, what is wiped, memory, and how it was
    /// made.
    [[nodiscard]] static std::vector<std::string> relevantCompileOptions();

    /// Whether the engine can encrypt a database.
    [[nodiscard]] static bool canEncrypt() noexcept;

    /// Whether a checkpoint of the write-ahead log is safe beside a commit of another connection.
    ///
    /// Engines from 3.7.0 on can lose what was committed when a connection commits, and begins the log anew,
    /// between two looks of a checkpoint at it. 3.51.3 is mended, and so are 3.50.7 and 3.44.6. On the others
    /// each handle of this library copies the log only while it keeps all others from committing, and refuses
    /// `PRAGMA wal_checkpoint` and `PRAGMA wal_autocheckpoint=N`, which would not. It cannot keep connections
    /// that are not its own from it: programs that use the engine directly, and the engine's functions
    /// `sqlite3_wal_checkpoint`, `sqlite3_wal_autocheckpoint`, `sqlite3_wal_hook` and
    /// `sqlite3_set_authorizer` called on `FMDatabase::sqliteHandle`.
    [[nodiscard]] static bool hasSafeCheckpoints() noexcept;

    /// `hasSafeCheckpoints` of an engine with that version number.
    [[nodiscard]] static bool versionHasSafeCheckpoints(std::int32_t versionNumber) noexcept;

    /// Has the engine of this process no longer count the memory that it uses, which takes a tenth of the
    /// instructions of an operation where it is on. It concerns every user of the engine in the process, so
    /// the library never calls it by itself. To be called before the first database is opened.
    /// @return false when it comes too late, with the reason in `error`.
    static bool configureProcess(ZAVError* error = nullptr);
};

}  // namespace zav
