#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace zav {

class FMResultSet;

/// A prepared statement, lent to at most one user at a time.
class ZAVStatement {
public:
    ZAVStatement(sqlite3_stmt* handle, std::string_view sql);
    ~ZAVStatement();
    ZAVStatement(const ZAVStatement&) = delete;
    ZAVStatement& operator=(const ZAVStatement&) = delete;

    [[nodiscard]] sqlite3_stmt* handle() const noexcept { return handle_; }

    [[nodiscard]] const std::string& sql() const noexcept { return sql_; }
    [[nodiscard]] std::size_t placeholderCount() const noexcept { return placeholderCount_; }

    /// The cursor that uses the statement; null for an update.
    FMResultSet* cursor = nullptr;

    /// Time spent in the present run and rows that it yielded, counted while somebody watches.
    std::chrono::nanoseconds duration{0};
    std::uint64_t rows = 0;

    /// Notes that a text or a byte string is bound to the placeholder at a position, counted from 1. It must
    /// not stay when the statement is given back. Numbers may: the next use binds every placeholder anew.
    void noteBytesAt(int position) noexcept {
        bytesAt_ |= std::uint64_t{1} << (position < lastNotedPosition ? position : lastNotedPosition);
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

    /// Lets go of every text and byte string. One or two are let go by themselves, which costs less than
    /// clearing all bindings.
    void releaseBytes() noexcept;

    sqlite3_stmt* handle_;
    std::string sql_;
    std::size_t placeholderCount_;
    std::array<char, 64> kept_{};
    std::size_t keptSize_ = 0;
    std::uint64_t bytesAt_ = 0;
    std::uint64_t lastUse_ = 0;
    bool lent_ = false;
    std::unique_ptr<ZAVStatement> next_;  ///< in the same bucket
};

/// The prepared statements of one connection, keyed by their text. Idle ones are kept for reuse up to a
/// capacity, the least recently used going first; those that are lent do not count.
class ZAVStatementCache {
public:
    explicit ZAVStatementCache(std::size_t capacity) : capacity_(capacity) {}
    ~ZAVStatementCache();
    ZAVStatementCache(const ZAVStatementCache&) = delete;
    ZAVStatementCache& operator=(const ZAVStatementCache&) = delete;

    /// An idle statement with this text, lent to the caller; null when there is none.
    [[nodiscard]] ZAVStatement* borrow(std::string_view sql) noexcept;

    /// Takes a statement in that was prepared just now, and lends it to the caller.
    [[nodiscard]] ZAVStatement& add(sqlite3_stmt* handle, std::string_view sql);

    /// Takes a statement back, reset and with its bindings cleared. Returns what the engine says of it at the
    /// end: whether a value of its last row could not be handed out.
    int giveBack(ZAVStatement& statement) noexcept;

    /// Takes a statement back that failed. It is not kept.
    void discard(ZAVStatement& statement) noexcept;

    /// Closes every open cursor. Only for a cache that is destroyed next.
    void closeCursors() noexcept;

    /// How many statements are lent to cursors.
    [[nodiscard]] std::size_t cursorCount() const noexcept;

private:
    static constexpr std::size_t bucketCount = 128;

    template <class Visit>
    void forEach(const Visit& visit) const;
    void remove(ZAVStatement& statement) noexcept;
    /// `idle` is one that may go; whichever has been idle longest goes.
    void removeLeastRecentlyUsed(ZAVStatement& idle) noexcept;

    std::array<std::unique_ptr<ZAVStatement>, bucketCount> buckets_;
    std::size_t capacity_;
    std::size_t idle_ = 0;
    std::uint64_t clock_ = 0;
};

}  // namespace zav
