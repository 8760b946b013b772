#include <ZAVEventRepository/FMResultSet.h>

#include <sqlite3.h>

#include <new>
#include <utility>

#include <ZAVEventRepository/NSInternalInconsistencyException.h>

#include "Private/Database/Internal/ZAVConnection.h"

namespace zav {

FMResultSet::FMResultSet(ZAVConnection& connection, ZAVStatement& statement) noexcept
    : connection_(&connection), statement_(&statement) {
    statement_->cursor = this;
    statement_->openedAt.note();
}

FMResultSet::FMResultSet(FMResultSet&& other) noexcept {
    adopt(other);
}

FMResultSet& FMResultSet::operator=(FMResultSet&& other) noexcept {
    if (this != &other) {
        close();
        adopt(other);
    }
    return *this;
}

void FMResultSet::adopt(FMResultSet& other) noexcept {
    connection_ = other.connection_;
    statement_ = std::exchange(other.statement_, nullptr);
    row_ = std::exchange(other.row_, nullptr);
    if (statement_ != nullptr) {
        statement_->cursor = this;
    }
}

bool FMResultSet::nextWithError(ZAVError* error) {
    if (statement_ == nullptr) {
        return connection_ != nullptr ? false : failAsExpired(error);
    }
    switch (connection_->step(*statement_)) {
        case SQLITE_ROW:
            row_ = statement_->handle();
            return true;
        case SQLITE_DONE:
            close();
            return false;
        default:
            row_ = nullptr;
            connection_->discardFailed(*std::exchange(statement_, nullptr));
            ZAVStoreError(error, connection_->lastError());
            return false;
    }
}

void FMResultSet::close() noexcept {
    static_cast<void>(giveBack());
}

void FMResultSet::expire() noexcept {
    close();
    connection_ = nullptr;
}

bool FMResultSet::failAsExpired(ZAVError* error) {
    ZAVStoreError(error, {ZAVErrorDomainDatabase, ZAVDatabaseErrorCursorOutlivedItsWork,
                          "the cursor was kept beyond the work that it was opened in, and is closed"});
    return false;
}

bool FMResultSet::closeWithError(ZAVError* error) {
    if (connection_ == nullptr) {
        return failAsExpired(error);
    }
    const bool isWithinBounds = statement_ == nullptr || !statement_->run.isBounded ||
                                connection_->bounds().isWithinBounds(statement_->run);
    if (giveBack() == SQLITE_OK && isWithinBounds) {
        return true;
    }
    static_cast<void>(isWithinBounds ? connection_->failWithEngineError() : connection_->failBeyondBounds());
    ZAVStoreError(error, connection_->lastError());
    return false;
}

int FMResultSet::giveBack() noexcept {
    row_ = nullptr;
    ZAVStatement* const statement = std::exchange(statement_, nullptr);
    return statement == nullptr ? SQLITE_OK : connection_->giveBack(*statement);
}

bool FMResultSet::rowIsSound() const noexcept {
    return row_ != nullptr && (sqlite3_errcode(sqlite3_db_handle(row_)) & 0xFF) != SQLITE_NOMEM;
}

std::int32_t FMResultSet::intForColumnIndex(int index) const noexcept {
    return row_ == nullptr ? 0 : sqlite3_column_int(row_, index);
}

std::int64_t FMResultSet::longLongIntForColumnIndex(int index) const noexcept {
    return row_ == nullptr ? 0 : sqlite3_column_int64(row_, index);
}

std::uint64_t FMResultSet::unsignedLongLongIntForColumnIndex(int index) const noexcept {
    return static_cast<std::uint64_t>(longLongIntForColumnIndex(index));
}

std::optional<std::string> FMResultSet::stringForColumnIndex(int index) const {
    // NULL, and nothing else that can be read, has no text: there is no need to ask for the type first.
    const auto* const text =
        row_ == nullptr ? nullptr : reinterpret_cast<const char*>(sqlite3_column_text(row_, index));
    if (text == nullptr) {
        return std::nullopt;
    }
    return std::optional<std::string>(std::in_place, text,
                                      static_cast<std::size_t>(sqlite3_column_bytes(row_, index)));
}

std::optional<ZAVData> FMResultSet::dataForColumnIndex(int index) const {
    if (row_ == nullptr) {
        return std::nullopt;
    }
    // Only NULL and a blob without bytes have none: most columns need not be asked for their type.
    const void* const bytes = sqlite3_column_blob(row_, index);
    if (bytes == nullptr) {
        return columnIndexIsNull(index) ? std::nullopt : std::optional<ZAVData>(std::in_place);
    }
    return std::optional<ZAVData>(std::in_place, bytes,
                                  static_cast<std::size_t>(sqlite3_column_bytes(row_, index)));
}

std::optional<ZAVDate> FMResultSet::dateForColumnIndex(int index) const noexcept {
    if (columnIndexIsNull(index)) {
        return std::nullopt;
    }
    return ZAVDateFromSecondsSince1970(sqlite3_column_double(row_, index));
}

bool FMResultSet::boolForColumnIndex(int index) const noexcept {
    return row_ != nullptr && sqlite3_column_double(row_, index) != 0;
}

bool FMResultSet::columnIndexIsNull(int index) const noexcept {
    return row_ == nullptr || sqlite3_column_type(row_, index) == SQLITE_NULL;
}

std::int64_t FMResultSet::longLongIntForColumn(std::string_view name) const {
    return longLongIntForColumnIndex(indexForColumn(name));
}

std::optional<ZAVData> FMResultSet::dataForColumn(std::string_view name) const {
    return dataForColumnIndex(indexForColumn(name));
}

int FMResultSet::indexForColumn(std::string_view name) const {
    if (statement_ == nullptr) {
        return -1;
    }
    sqlite3_stmt* const statement = statement_->handle();
    const int count = sqlite3_column_count(statement);
    for (int index = 0; index < count; ++index) {
        const char* const text = sqlite3_column_name(statement, index);
        if (text == nullptr) {
            throw std::bad_alloc();  // the engine had no memory to hand it out
        }
        const std::string_view candidate = text;
        if (candidate.size() == name.size() &&
            (candidate == name ||
             sqlite3_strnicmp(candidate.data(), name.data(), static_cast<int>(name.size())) == 0)) {
            return index;
        }
    }
    throw NSInternalInconsistencyException("The query selects no column named '" + std::string(name) + "'.");
}

}  // namespace zav
