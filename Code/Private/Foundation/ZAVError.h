#pragma once

#include <string>
#include <string_view>
#include <utility>

#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// Why an operation failed, or nothing: a default-constructed error is empty and converts to false.
///
/// Operations take a pointer to one (or null) as their last argument and write it only when they fail.
class ZAV_EXPORT ZAVError {
public:
    /// No error.
    ZAVError() = default;

    /// @param domain who reports.
    /// @param code what, in the domain's own numbers.
    /// @param message for a reader; copied, as the domain is.
    ZAVError(std::string_view domain, int code, std::string_view message)
        : domain_(domain), message_(message), code_(code), set_(true) {}

    /// Copies domain, code and message.
    ZAVError(const ZAVError&) = default;

    /// Takes domain, code and message over and leaves `other` empty.
    ZAVError(ZAVError&& other) noexcept
        : domain_(std::exchange(other.domain_, {})),
          message_(std::exchange(other.message_, {})),
          code_(std::exchange(other.code_, 0)),
          set_(std::exchange(other.set_, false)) {}

    /// Replaces the error by a copy of another.
    ZAVError& operator=(const ZAVError&) = default;

    /// Replaces the error by another, taken over from `other`, which is left empty.
    ZAVError& operator=(ZAVError&& other) noexcept {
        if (this != &other) {
            domain_ = std::exchange(other.domain_, {});
            message_ = std::exchange(other.message_, {});
            code_ = std::exchange(other.code_, 0);
            set_ = std::exchange(other.set_, false);
        }
        return *this;
    }
    ~ZAVError() = default;

    /// Whether there is an error.
    explicit operator bool() const noexcept { return set_; }

    /// Who reports: `ZAVErrorDomainSQLite` for the engine, `ZAVErrorDomainDatabase` for the handle around it.
    [[nodiscard]] const std::string& domain() const noexcept { return domain_; }

    /// The engine's extended result code, or a code of the domain's own.
    [[nodiscard]] int code() const noexcept { return code_; }

    /// What happened, for a reader; empty when there is no error.
    [[nodiscard]] const std::string& message() const noexcept { return message_; }

    /// One line with domain, code and message.
    [[nodiscard]] std::string description() const;

    /// Whether domain, code and message are the same.
    friend bool operator==(const ZAVError&, const ZAVError&) = default;

private:
    std::string domain_;
    std::string message_;
    int code_ = 0;
    bool set_ = false;
};

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
    ZAVDatabaseErrorWrongKey = 8,       ///< the key is not the file's: another, one too many, or one missing
    ZAVDatabaseErrorNoEncryption = 9,   ///< a key was given, but the build's engine cannot encrypt
    ZAVDatabaseErrorUnusablePath = 10,  ///< at the path, or in it, is something no database can be kept in
    ZAVDatabaseErrorBadOption = 11,     ///< an option to open with has a value that means nothing
    ZAVDatabaseErrorNulInText = 12,     ///< the text of a statement or a script holds a NUL
    ZAVDatabaseErrorOlderSchema = 13,  ///< the schema is an older one, or none yet, and was not to be changed
    ZAVDatabaseErrorUnusableRow = 14,  ///< a row has the identifier that means "not set"
};

/// Stores `error` where the caller asked for it, if the caller did.
inline void ZAVStoreError(ZAVError* destination, const ZAVError& error) {
    if (destination != nullptr) {
        *destination = error;
    }
}

}  // namespace zav
