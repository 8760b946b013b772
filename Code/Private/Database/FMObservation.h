#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// One run of a statement, as `FMDatabase::setStatementObserver` reports it.
struct FMStatementRun {
    std::string_view sql;               ///< with its placeholders; valid during the call
    std::chrono::nanoseconds duration;  ///< spent in the engine's steps, without binding and reading columns
    std::uint64_t rows;                 ///< how many rows were read from it
    bool succeeded;                     ///< false when the engine failed
};

/// A row that a committed transaction inserted, updated or removed, as `FMDatabase::setChangeObserver`
/// reports it, or an object whose keyed values it changed.
struct ZAV_EXPORT FMRowChange {
    /// What happened to the row.
    enum class Kind : std::uint8_t {
        insertion,  ///< also when the row replaced another one
        update,
        removal,
    };

    Kind kind;          ///< what happened
    std::string table;  ///< the table's name in the schema
    std::int64_t row;   ///< the row's identifier in its table; of keyed values that of the object

    /// Of keyed values the kind of the object, such as "event"; `kind` is `update` then, whatever became of
    /// them. Empty otherwise.
    std::string objectType{};

    /// Equal when all are.
    friend bool operator==(const FMRowChange&, const FMRowChange&) = default;
};

/// Called with each run of a statement, on the thread that ran it. It must neither use the handle nor throw.
using FMStatementObserver = std::function<void(const FMStatementRun& run)>;

/// Called with the changes that one commit made permanent, in their order, on the thread that committed. It
/// may read from the handle; it must neither write to it nor throw. When a handle is destroyed with cursors
/// that still have to commit it is called then, and must reach the handle by another way than its owner's.
///
/// What is reported was committed; `FMDatabase::setChangeObserver` says what is committed and not reported.
/// No changes at all mean that memory ran out while they were collected: anything may have changed.
using FMChangeObserver = std::function<void(std::span<const FMRowChange> changes)>;

}  // namespace zav
