#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "Private/Database/Internal/ZAVCoarseMoment.h"
#include "Private/Database/Internal/ZAVSQL.h"
#include "Private/Database/Internal/ZAVStatementBounds.h"

struct sqlite3_stmt;

namespace zav {

class FMResultSet;

/// Finalises a statement of the engine.
struct ZAVStatementFinalizer {
    void operator()(sqlite3_stmt* handle) const noexcept;
};

/// A statement of the engine that is finalised unless it is handed on.
using ZAVStatementHandle = std::unique_ptr<sqlite3_stmt, ZAVStatementFinalizer>;

/// A place in a ring; one that stands alone is a ring of its own. `Ring` tells the rings apart that one
/// object stands in.
template <class Ring>
class ZAVLink {
public:
    ZAVLink() noexcept = default;
    ~ZAVLink() = default;
    ZAVLink(const ZAVLink&) = delete;
    ZAVLink& operator=(const ZAVLink&) = delete;

    [[nodiscard]] ZAVLink* next() const noexcept { return next_; }

    /// Enters the ring of `other`, behind it. This one must stand in no ring, or have left it.
    void enterBehind(ZAVLink& other) noexcept {
        previous_ = &other;
        next_ = other.next_;
        next_->previous_ = this;
        other.next_ = this;
    }

    /// Leaves its ring. It may only enter another after that.
    void leave() noexcept {
        previous_->next_ = next_;
        next_->previous_ = previous_;
    }

private:
    ZAVLink* previous_ = this;
    ZAVLink* next_ = this;
};

/// The statements of one bucket: all idle ones, and lent ones that no lookup has come across.
using ZAVBucketLink = ZAVLink<struct ZAVBucketRing>;

/// The statements that were idle, or those that are lent.
using ZAVUseLink = ZAVLink<struct ZAVUseRing>;

/// A prepared statement, lent to at most one user at a time.
class ZAVStatement : public ZAVBucketLink, public ZAVUseLink {
public:
    ZAVStatement(ZAVStatementHandle handle, ZAVSQL sql);

    [[nodiscard]] sqlite3_stmt* handle() const noexcept { return handle_.get(); }

    [[nodiscard]] const std::string& sql() const noexcept { return sql_; }
    [[nodiscard]] std::size_t placeholderCount() const noexcept { return placeholderCount_; }

    /// The cursor that uses the statement; null for an update.
    FMResultSet* cursor = nullptr;

    /// When that cursor was opened.
    ZAVCoarseMoment openedAt;

    /// What the present run may use.
    ZAVStatementRun run;

    /// Whether it counts the rows of a table and has not come to an end yet. The engine counts in one step,
    /// which is not charged to the run.
    bool isUnprovedCount;

    /// Time spent in the present run and rows that it yielded, counted while somebody watches; and how many
    /// changes waited for their commit before it.
    std::chrono::nanoseconds duration{0};
    std::uint64_t rows = 0;
    std::size_t changesBefore = 0;

    /// Notes that a text or a byte string is bound to the placeholder at a position, counted from 1. It must
    /// not stay when the statement is given back. Numbers may: the next use binds every placeholder anew.
    void noteBytesAt(int position) noexcept { bytesAt_ |= bitOf(position); }

    /// The same for a number.
    void noteNumberAt(int position) noexcept { numbersAt_ |= bitOf(position); }

    /// Whether nothing but NULL has been bound there since it was last cleared.
    [[nodiscard]] bool holdsNullAt(int position) const noexcept {
        return ((numbersAt_ | bytesAt_ | std::uint64_t{1} << lastNotedPosition) & bitOf(position)) == 0;
    }

    /// Keeps a copy of a few bytes until the statement is given back, which spares the engine a heap block
    /// for each UUID or short name that a query looks for. Null when there is no room for them.
    [[nodiscard]] const void* keep(const void* bytes, std::size_t size) noexcept {
        if (size > kept_.size() - keptSize_) {
            return nullptr;
        }
        void* const copy = std::memcpy(kept_.data() + keptSize_, bytes, size);
        keptSize_ += size;
        return copy;
    }

private:
    friend class ZAVStatementCache;

    /// The highest bit stands for this position and all after it.
    static constexpr int lastNotedPosition = 63;
    [[nodiscard]] static std::uint64_t bitOf(int position) noexcept {
        return std::uint64_t{1} << (position < lastNotedPosition ? position : lastNotedPosition);
    }

    /// Whether it was prepared from this text, or from one of the same characters.
    [[nodiscard]] bool isOf(ZAVSQL sql) const noexcept {
        return (sql.isLiteral() && sql.text().data() == literal_ && sql.text().size() == sql_.size()) ||
               sql_ == sql.text();
    }

    /// Clears every text and byte string. One or two are cleared one by one, which costs less than
    /// clearing all bindings.
    void releaseBytes() noexcept;

    ZAVStatementHandle handle_;
    std::string sql_;
    const char* literal_;  ///< where its text stands in the program; null when it may have stood elsewhere
    std::size_t placeholderCount_;
    std::array<char, 64> kept_{};
    std::size_t keptSize_ = 0;
    std::uint64_t bytesAt_ = 0;
    std::uint64_t numbersAt_ = 0;
    ZAVBucketLink* bucket_ = nullptr;  ///< the ring that it stands in while it is idle
    std::uint64_t lastUse_ = 0;
    bool isInBucket_ = false;
    bool isKept_ = false;
    bool isLent_ = true;
};

/// The prepared statements of one connection, keyed by their text. Idle ones are kept for reuse up to a
/// capacity, the least recently used going first; those that are lent do not count.
///
/// A statement that is lent stays where it stands, which makes the usual use cheap. A lookup or a removal
/// that comes across it takes it out of the way, so that none comes across it twice: lending and giving back
/// cost the same on average, however many are lent.
class ZAVStatementCache {
public:
    explicit ZAVStatementCache(std::size_t capacity) : capacity_(capacity) {}
    ~ZAVStatementCache() { clear(); }
    ZAVStatementCache(const ZAVStatementCache&) = delete;
    ZAVStatementCache& operator=(const ZAVStatementCache&) = delete;

    /// An idle statement with this text, lent to the caller; null when there is none.
    [[nodiscard]] ZAVStatement* borrow(ZAVSQL sql) noexcept;

    /// Takes a statement in that was prepared just now, and lends it to the caller. When memory runs out the
    /// statement is finalised.
    [[nodiscard]] ZAVStatement& add(ZAVStatementHandle handle, ZAVSQL sql);

    /// Takes a statement back, reset and with its bindings cleared. Returns what the engine says of it at the
    /// end: whether a value of its last row could not be handed out.
    int giveBack(ZAVStatement& statement) noexcept;

    /// Takes a statement back that failed. It is not kept.
    void discard(ZAVStatement& statement) noexcept;

    /// Closes every open cursor, in the manner of one of `FMResultSet`'s members.
    void closeCursors(void (FMResultSet::*close)() noexcept) noexcept;

    /// Finalises all statements. None may be used by a cursor any more.
    void clear() noexcept;

    /// How many statements are lent to cursors.
    [[nodiscard]] std::size_t cursorCount() const noexcept;

    /// Calls `visit` with each statement that is lent. It must neither take statements nor give them back.
    template <class Visit>
    void forEachLent(const Visit& visit) const {
        for (const ZAVUseLink* const ring : {&kept_, &lent_}) {
            for (ZAVUseLink* link = ring->next(); link != ring; link = link->next()) {
                if (auto& statement = static_cast<ZAVStatement&>(*link); statement.isLent_) {
                    visit(statement);
                }
            }
        }
    }

private:
    static constexpr std::size_t bucketCount = 128;

    /// The least recently used statement that is idle; null when none is.
    [[nodiscard]] ZAVStatement* oldestIdle() noexcept;

    /// Takes a lent statement out of the way of searches among the kept ones.
    void takeOutOfTheWay(ZAVStatement& statement) noexcept;

    std::array<ZAVBucketLink, bucketCount> buckets_;
    ZAVUseLink kept_;  ///< statements that were idle; they may be lent again
    ZAVUseLink lent_;  ///< statements that were never idle, or were found lent in the ring above
    std::size_t idleCount_ = 0;
    std::uint64_t clock_ = 0;
    std::size_t capacity_;
};

}  // namespace zav
