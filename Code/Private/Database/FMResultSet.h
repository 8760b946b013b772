#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <ZAVEventRepository/ZAVData.h>
#include <ZAVEventRepository/ZAVDate.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVExport.h>

struct sqlite3_stmt;

namespace zav {

class ZAVConnection;
class ZAVStatement;

/// A cursor over the rows of one query, first positioned before the first row.
///
/// Closing it, destroying it or reaching its end resets the statement behind it at once, so that no read
/// transaction and no bound value outlives it. A cursor whose database handle has gone is closed. It belongs
/// to the thread of its handle; it can be moved, not copied.
///
/// Columns are addressed by their zero-based position in the select list. The getters convert as the engine
/// does; before the first row, after the last and for a position that does not exist they answer as for NULL.
class ZAV_EXPORT FMResultSet {
public:
    /// For the library's own use: a cursor over a statement that is lent to it and ready for its first step.
    FMResultSet(ZAVConnection& connection, ZAVStatement& statement) noexcept;

    /// Takes the cursor over; `other` is closed.
    FMResultSet(FMResultSet&& other) noexcept;

    /// Closes this cursor and takes the other one over.
    FMResultSet& operator=(FMResultSet&& other) noexcept;
    FMResultSet(const FMResultSet&) = delete;
    FMResultSet& operator=(const FMResultSet&) = delete;
    ~FMResultSet() { close(); }

    /// Advances to the next row. False at the end, which leaves `error` as it was, and on failure, which
    /// stores the reason in `error`, if given, and as the handle's last error.
    bool nextWithError(ZAVError* error);

    /// As `nextWithError`, for a caller who does not ask why.
    bool next() { return nextWithError(nullptr); }

    /// Gives the statement back. Doing so twice does no harm.
    void close() noexcept;

    /// For the library's own use: closes the cursor and takes the handle from it, which may be another
    /// thread's from now on. Whoever goes on using the cursor is told so.
    void expire() noexcept;

    /// As `close`, for a caller who leaves before the end: false when memory ran out while a value of the
    /// current row was being converted. What was read from that row is then not what is stored; the reason
    /// is in `error`, if given, and the handle's last error. At the end, `nextWithError` tells the same.
    bool closeWithError(ZAVError* error);

    /// Whether all that was read from the current row is what is stored: false when memory ran out while a
    /// value was being converted. The cursor then yields no further row.
    [[nodiscard]] bool rowIsSound() const noexcept;

    /// NULL reads as 0; a number that does not fit is cut to its low 32 bits.
    [[nodiscard]] std::int32_t intForColumnIndex(int index) const noexcept;

    /// NULL reads as 0.
    [[nodiscard]] std::int64_t longLongIntForColumnIndex(int index) const noexcept;

    /// NULL reads as 0; a negative number reads as its 64 bits.
    [[nodiscard]] std::uint64_t unsignedLongLongIntForColumnIndex(int index) const noexcept;

    /// NULL reads as no text.
    [[nodiscard]] std::optional<std::string> stringForColumnIndex(int index) const;

    /// NULL reads as no bytes; a zero-length blob as an empty byte string.
    [[nodiscard]] std::optional<ZAVData> dataForColumnIndex(int index) const;

    /// The column as seconds since 1970; NULL reads as no date.
    [[nodiscard]] std::optional<ZAVDate> dateForColumnIndex(int index) const noexcept;

    /// True when the column is a number other than 0; NULL reads as false.
    [[nodiscard]] bool boolForColumnIndex(int index) const noexcept;

    /// Whether the column is NULL.
    [[nodiscard]] bool columnIndexIsNull(int index) const noexcept;

    /// The same by column name or alias, compared without regard to case.
    /// @throws NSInternalInconsistencyException when the query selects no such column.
    [[nodiscard]] std::int64_t longLongIntForColumn(std::string_view name) const;

    /// `dataForColumnIndex` by column name or alias.
    /// @throws NSInternalInconsistencyException when the query selects no such column.
    [[nodiscard]] std::optional<ZAVData> dataForColumn(std::string_view name) const;

private:
    void adopt(FMResultSet& other) noexcept;
    [[nodiscard]] int giveBack() noexcept;
    static bool failAsExpired(ZAVError* error);
    [[nodiscard]] int indexForColumn(std::string_view name) const;

    ZAVConnection* connection_ = nullptr;  ///< null once expired
    ZAVStatement* statement_ = nullptr;    ///< null once closed
    sqlite3_stmt* row_ = nullptr;          ///< the statement while it stands on a row
};

}  // namespace zav
