#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ZAVEventRepository/FMDatabase.h>

#include "Store/Internal/ZAVContentDirectory.h"
#include "Store/Internal/ZAVContentRows.h"
#include "Store/Internal/ZAVStoreHandle.h"
#include "Store/Internal/ZAVStoreOwner.h"

namespace zav {

/// Removes a file of content, under the write lock, if no row names it; an empty directory of an event goes
/// with it.
/// @param names lead to it from the directory.
/// @param unchangedSince leaves one alone that was changed later.
/// @return its size; none when it stays.
/// @throws ZAVContentFailure and std::system_error
std::optional<std::uint64_t> ZAVRemoveFileWithoutRow(const ZAVContentRows& rows,
                                                     const ZAVContentDirectory& directory,
                                                     ZAVContentDirectory::Names names,
                                                     std::optional<std::time_t> unchangedSince);

/// The files of rows that are gone, and what was downloaded of them so far, until it is known whether other
/// rows name them.
///
/// All of it throws `ZAVContentFailure` and `std::system_error`.
class ZAVFilesWithoutRow {
public:
    /// Looks which of them are there, in a directory that has to be there.
    ZAVFilesWithoutRow(const ZAVStoreOwner& owner, const std::vector<ZAVFileWithoutRow>& files);

    [[nodiscard]] bool areThere() const noexcept { return !present_.empty(); }

    /// Asks which of them no row names any more, in one state of the database. All rows are looked at.
    void ask(FMDatabase& database);

    /// Removes these, under the write lock; no row may have changed since it was asked.
    void remove() const;

private:
    struct File {
        std::string place;               ///< of the part's file
        std::vector<std::string> names;  ///< that lead to what is there
    };

    ZAVContentDirectory directory_;
    std::vector<File> present_;
    std::vector<std::pair<const File*, ZAVFileIdentity>> unnamed_;
};

}  // namespace zav
