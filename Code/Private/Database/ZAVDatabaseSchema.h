#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// The tables and indexes of the event store, in numbered versions (`PRAGMA user_version`).
class ZAV_EXPORT ZAVDatabaseSchema {
public:
    /// The version that this library makes and works on.
    [[nodiscard]] static std::int32_t currentVersion() noexcept;

    /// Opens a database file, makes it if there is none, and brings its schema up to date.
    ///
    /// A database made by a newer version of the library is refused and left untouched. So is one of the
    /// library's own that lacks one of its tables, or has a trigger or a view: the error names it. Tables of
    /// other names, virtual ones too, and further indexes belong to the application and may stand beside.
    ///
    /// `options.newestUserVersion` is set to `currentVersion`, whatever it was. With read-only access a file
    /// must have the current version already: an empty or older one fails, because it cannot be brought up
    /// to date.
    /// @return the open handle; null on failure, with the reason in `error`.
    [[nodiscard]] static std::shared_ptr<FMDatabase> openDatabase(const std::string& path,
                                                                  FMDatabaseOptions options = {},
                                                                  ZAVError* error = nullptr);

    /// Opens an existing file whose schema is up to date already, for a program that must not change it.
    ///
    /// What `openDatabase` refuses is refused here too, and so is an older or empty database
    /// (`ZAVDatabaseErrorOlderSchema`) and a file that is not there. Nothing is made, and what is refused is
    /// left untouched. `options.access` counts as `readWrite` where it would make a file.
    /// @return the open handle; null on failure, with the reason in `error`.
    [[nodiscard]] static std::shared_ptr<FMDatabase> openCurrentDatabase(const std::string& path,
                                                                         FMDatabaseOptions options = {},
                                                                         ZAVError* error = nullptr);

    /// Looks whether `openDatabase` would take the file of an open handle: it is empty, or a database of the
    /// library's own, of no newer version, with the tables of its version and without a trigger or a view.
    /// Nothing is written, and nothing but the schema is read.
    /// @return the schema version, 0 for an empty database; none when it would be refused or cannot be read,
    /// with the reason in `error`.
    [[nodiscard]] static std::optional<std::int32_t> verifyDatabase(FMDatabase& database,
                                                                    ZAVError* error = nullptr);

    /// The schema version of an open database; 0 for an empty one. None when it cannot be read.
    [[nodiscard]] static std::optional<std::int32_t> versionOfDatabase(FMDatabase& database,
                                                                       ZAVError* error = nullptr);

    /// Applies the migrations that the database lacks, all of them in one transaction: on failure the schema
    /// is what it was. A database that has tables but no version is not one of the library's and is refused.
    /// Unlike `openDatabase` this does not look for a missing table, a trigger or a view.
    static bool migrateDatabase(FMDatabase& database, ZAVError* error = nullptr);

private:
    /// Opens a file that `verifyDatabase` takes, of `oldestVersion` or later; any other is left untouched.
    [[nodiscard]] static std::shared_ptr<FMDatabase> openVerified(const std::string& path,
                                                                  FMDatabaseOptions options,
                                                                  std::int32_t oldestVersion,
                                                                  ZAVError* error);
};

}  // namespace zav
