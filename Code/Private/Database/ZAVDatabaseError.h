#pragma once

#include <string_view>

namespace zav {

/// Errors of the engine; the code is its extended result code.
inline constexpr std::string_view ZAVErrorDomainSQLite = "SQLite";

/// Errors that the database handle or the schema finds by itself; the code is a `ZAVDatabaseErrorCode`.
inline constexpr std::string_view ZAVErrorDomainDatabase = "ZAVDatabase";

/// The codes of `ZAVErrorDomainDatabase`.
enum ZAVDatabaseErrorCode : int {
    ZAVDatabaseErrorWrongValueCount =
        1,  ///< a statement was given more or fewer values than it has placeholders
    ZAVDatabaseErrorTrailingText = 2,      ///< there is text after the first statement
    ZAVDatabaseErrorNoStatement = 3,       ///< the text holds no statement
    ZAVDatabaseErrorNewerSchema = 4,       ///< the database was made by a newer version of the library
    ZAVDatabaseErrorForeignSchema = 5,     ///< the tables, triggers and views are not those of the library
    ZAVDatabaseErrorUnsafeCompanion = 6,   ///< what stands beside the file as its journal must not be used
    ZAVDatabaseErrorTransactionEnded = 7,  ///< the transaction to commit is no longer open
    ZAVDatabaseErrorWrongKey = 8,          ///< the file needs another key, or a key at all, or none
    ZAVDatabaseErrorNoEncryption = 9,      ///< a key was given, but the build's engine cannot encrypt
    ZAVDatabaseErrorUnusablePath = 10,     ///< the path is invalid, or the file is not a regular one
    ZAVDatabaseErrorBadOption = 11,        ///< an option to open with has an invalid value
    ZAVDatabaseErrorNulInText = 12,        ///< the text of a statement or a script holds a NUL
    ZAVDatabaseErrorOlderSchema = 13,  ///< the schema is an older one, or none yet, and was not to be changed
    ZAVDatabaseErrorUnusableRow = 14,  ///< a row has the identifier that means "not set"
    ZAVDatabaseErrorUnsafeCheckpoint =
        15,  ///< the statement would have this engine fold the log while others commit
    ZAVDatabaseErrorCannotCompact = 16,  ///< the handle is in use, only reads, or has no file of its own
    ZAVDatabaseErrorNoSpace = 17,        ///< a file system has too little space for what was to be done
    ZAVDatabaseErrorCancelled = 18,      ///< the caller had it end
    ZAVDatabaseErrorTransactionOfAnother =
        19,  ///< a statement would begin or end a transaction that is not its caller's to end
    ZAVDatabaseErrorCursorOutlivedItsWork = 20,  ///< a cursor was used after the work that opened it
    ZAVDatabaseErrorNoKey = 21,                  ///< the function that gives the key had none
};

}  // namespace zav
