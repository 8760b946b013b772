#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVRepositories.h>

#include "Store/Internal/ZAVWorkControl.h"

namespace zav {

class ZAVConnection;

/// The file of a part whose row has gone.
struct ZAVFileWithoutRow {
    std::string path;    ///< as the row had it
    std::uint64_t part;  ///< the part's number, by which what was downloaded of it so far is found
};

/// One handle of a store, with the repositories on it. Used by one thread at a time.
class ZAVStoreHandle {
public:
    explicit ZAVStoreHandle(const std::shared_ptr<FMDatabase>& database);

    [[nodiscard]] const ZAVRepositories& repositories() const noexcept { return repositories_; }
    [[nodiscard]] const std::shared_ptr<FMDatabase>& database() const noexcept { return database_; }
    [[nodiscard]] ZAVConnection& connection() const noexcept { return database_->connection(); }

    /// The files that the open transaction has taken the rows from.
    [[nodiscard]] std::vector<ZAVFileWithoutRow>& filesWithoutRow() noexcept { return filesWithoutRow_; }

private:
    std::shared_ptr<FMDatabase> database_;
    ZAVRepositories repositories_;
    std::vector<ZAVFileWithoutRow> filesWithoutRow_;
};

/// Holds the open transaction of a connection, and ends it with all cursors that were opened meanwhile.
class ZAVTransactionHold {
public:
    explicit ZAVTransactionHold(ZAVConnection& connection) noexcept;
    ~ZAVTransactionHold();
    ZAVTransactionHold(const ZAVTransactionHold&) = delete;
    ZAVTransactionHold& operator=(const ZAVTransactionHold&) = delete;

private:
    ZAVConnection& connection_;
};

/// One state of the database, seen by a handle for as long as this lives. Cursors that were opened meanwhile
/// expire with it.
class ZAVSnapshot {
public:
    /// Look whether it `isTaken`.
    /// @param control of the work that this is for, which has begun. It may not be stopped any more when this
    /// ends.
    ZAVSnapshot(ZAVStoreHandle& handle, ZAVWorkControl& control, ZAVError* error);
    ~ZAVSnapshot() { control_.pass(); }
    ZAVSnapshot(const ZAVSnapshot&) = delete;
    ZAVSnapshot& operator=(const ZAVSnapshot&) = delete;

    [[nodiscard]] bool isTaken() const noexcept { return hold_.has_value(); }

private:
    ZAVWorkControl& control_;
    std::optional<ZAVTransactionHold> hold_;
};

/// The transaction of a work that writes, taken back unless it is committed. Cursors that were opened
/// meanwhile expire with it.
class ZAVWorkTransaction {
public:
    /// Look whether it `isBegun`.
    /// @param control of the work that this is for, which has begun. It may not be stopped any more when this
    /// ends.
    ZAVWorkTransaction(ZAVStoreHandle& handle, ZAVWorkControl& control, ZAVError* error);
    ~ZAVWorkTransaction() { control_.pass(); }
    ZAVWorkTransaction(const ZAVWorkTransaction&) = delete;
    ZAVWorkTransaction& operator=(const ZAVWorkTransaction&) = delete;

    [[nodiscard]] bool isBegun() const noexcept { return number_.has_value(); }

    /// Whether the engine has not ended it: false with the reason, when it has.
    [[nodiscard]] bool isStillOpen(ZAVError* error) const;

    /// False on failure, with the reason; what was written is taken back then.
    bool commit(ZAVError* error);

private:
    ZAVWorkControl& control_;
    ZAVConnection& connection_;
    std::optional<std::uint64_t> number_;
    std::optional<ZAVTransactionHold> hold_;
};

/// A part of a transaction that can be taken back alone, and is unless it is kept.
class ZAVWorkSavepoint {
public:
    /// Look whether it `isSet`.
    ZAVWorkSavepoint(ZAVStoreHandle& handle, ZAVError* error);
    ~ZAVWorkSavepoint();
    ZAVWorkSavepoint(const ZAVWorkSavepoint&) = delete;
    ZAVWorkSavepoint& operator=(const ZAVWorkSavepoint&) = delete;

    [[nodiscard]] bool isSet() const noexcept { return isSet_; }

    /// Whether the engine has not ended what is around it: false with the reason, when it has.
    [[nodiscard]] bool isStillOpen(ZAVError* error) const;

    /// Makes it a part of what is around it. False on failure, with the reason.
    bool keep(ZAVError* error);

private:
    bool run(const char* statement, ZAVError* error);

    ZAVConnection& connection_;
    bool isSet_ = false;
};

}  // namespace zav
