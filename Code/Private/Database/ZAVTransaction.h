#pragma once

#include <cstdint>
#include <optional>
#include <utility>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// A transaction for as long as this object lives: unless it was committed, everything is rolled back when it
/// ends.
///
/// The repositories never open one. A caller who wants several operations stored together, or not at all,
/// puts one around them; the write lock is taken when it begins.
///
/// The engine undoes the whole transaction by itself when it runs out of space or memory on the way. The call
/// that met this fails; a caller who goes on after a failure stores each further row on its own, and what it
/// stores is out of this object's reach, also in another transaction.
class ZAV_EXPORT ZAVTransaction {
public:
    /// @param database must outlive the transaction and have none open.
    /// @return none when the write lock cannot be had, with the reason in `error`.
    [[nodiscard]] static std::optional<ZAVTransaction> begin(FMDatabase& database, ZAVError* error = nullptr);

    /// Takes the transaction over; `other` ends without effect.
    ZAVTransaction(ZAVTransaction&& other) noexcept
        : connection_(std::exchange(other.connection_, nullptr)), number_(other.number_) {}
    ZAVTransaction(const ZAVTransaction&) = delete;
    ZAVTransaction& operator=(const ZAVTransaction&) = delete;
    ZAVTransaction& operator=(ZAVTransaction&&) = delete;
    ~ZAVTransaction() { rollback(); }

    /// Makes everything since `begin` permanent. When this fails the transaction is rolled back.
    /// @return false also when there is nothing to commit any more: after `commit`, `rollback`, or a failure
    /// that made the engine undo everything.
    bool commit(ZAVError* error = nullptr);

    /// Undoes everything since `begin`. Nothing happens after `commit`.
    void rollback() noexcept;

private:
    ZAVTransaction(ZAVConnection& connection, std::uint64_t number) noexcept
        : connection_(&connection), number_(number) {}

    [[nodiscard]] bool isOpen() const noexcept;

    ZAVConnection* connection_;  ///< null once ended
    std::uint64_t number_;       ///< what the connection calls the transaction
};

}  // namespace zav
