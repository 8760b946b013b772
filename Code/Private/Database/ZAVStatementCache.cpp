#include "Private/Database/ZAVStatementCache.h"

#include <sqlite3.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <utility>

#include "Private/Database/FMResultSet.h"

namespace zav {
namespace {

/// Eight bytes from the end and eight from the middle tell the statements of this library apart; hashing all
/// of a select list would cost more than the lookup that it serves. Texts are compared in full afterwards.
std::size_t bucketFor(std::string_view sql, std::size_t bucketCount) noexcept {
    std::uint64_t end = 0;
    std::uint64_t middle = 0;
    const std::size_t taken = std::min(sql.size(), sizeof end);
    if (taken != 0) {
        std::memcpy(&end, sql.data() + sql.size() - taken, taken);
        std::memcpy(&middle, sql.data() + (sql.size() - taken) / 2, taken);
    }
    const std::uint64_t hash = (end ^ (middle * 31) ^ sql.size()) * 0x9E3779B97F4A7C15U;
    return static_cast<std::size_t>(hash >> 32) % bucketCount;
}

}  // namespace

ZAVStatement::ZAVStatement(sqlite3_stmt* handle, std::string_view sql)
    : handle_(handle),
      sql_(sql),
      placeholderCount_(static_cast<std::size_t>(sqlite3_bind_parameter_count(handle))) {}

ZAVStatement::~ZAVStatement() {
    sqlite3_finalize(handle_);
}

void ZAVStatement::releaseBytes() noexcept {
    keptSize_ = 0;
    const std::uint64_t positions = std::exchange(bytesAt_, 0);
    if (positions == 0) {
        return;
    }
    const std::uint64_t allButFirst = positions & (positions - 1);
    const std::uint64_t allButTwo = allButFirst & (allButFirst - 1);
    if (allButTwo != 0 || positions >> lastNotedPosition != 0) {
        sqlite3_clear_bindings(handle_);
        return;
    }
    sqlite3_bind_null(handle_, std::countr_zero(positions));
    if (allButFirst != 0) {
        sqlite3_bind_null(handle_, std::countr_zero(allButFirst));
    }
}

ZAVStatementCache::~ZAVStatementCache() = default;

void ZAVStatementCache::closeCursors() noexcept {
    // Nothing may be evicted during the walk: it would take the walk's next step with it.
    capacity_ = std::numeric_limits<std::size_t>::max();
    forEach([](ZAVStatement& statement) {
        if (statement.cursor != nullptr) {
            statement.cursor->close();
        }
    });
}

ZAVStatement* ZAVStatementCache::borrow(std::string_view sql) noexcept {
    ZAVStatement* statement = buckets_[bucketFor(sql, bucketCount)].get();
    while (statement != nullptr && (statement->lent_ || statement->sql_ != sql)) {
        statement = statement->next_.get();
    }
    if (statement != nullptr) {
        statement->lent_ = true;
        --idle_;
    }
    return statement;
}

ZAVStatement& ZAVStatementCache::add(sqlite3_stmt* handle, std::string_view sql) {
    auto statement = std::make_unique<ZAVStatement>(handle, sql);
    statement->lent_ = true;
    std::unique_ptr<ZAVStatement>& bucket = buckets_[bucketFor(sql, bucketCount)];
    statement->next_ = std::move(bucket);
    bucket = std::move(statement);
    return *bucket;
}

int ZAVStatementCache::giveBack(ZAVStatement& statement) noexcept {
    statement.cursor = nullptr;
    const int status = sqlite3_reset(statement.handle_);
    statement.releaseBytes();
    statement.lent_ = false;
    statement.lastUse_ = ++clock_;
    if (++idle_ > capacity_) {
        removeLeastRecentlyUsed(statement);
    }
    return status;
}

void ZAVStatementCache::discard(ZAVStatement& statement) noexcept {
    remove(statement);
}

std::size_t ZAVStatementCache::cursorCount() const noexcept {
    std::size_t count = 0;
    forEach([&](const ZAVStatement& statement) { count += statement.cursor != nullptr ? 1 : 0; });
    return count;
}

template <class Visit>
void ZAVStatementCache::forEach(const Visit& visit) const {
    for (const auto& bucket : buckets_) {
        for (ZAVStatement* statement = bucket.get(); statement != nullptr;) {
            ZAVStatement* const next = statement->next_.get();
            visit(*statement);
            statement = next;
        }
    }
}

void ZAVStatementCache::remove(ZAVStatement& statement) noexcept {
    std::unique_ptr<ZAVStatement>* link = &buckets_[bucketFor(statement.sql_, bucketCount)];
    while (link->get() != &statement) {
        link = &(*link)->next_;
    }
    *link = std::move(statement.next_);
}

void ZAVStatementCache::removeLeastRecentlyUsed(ZAVStatement& idle) noexcept {
    ZAVStatement* oldest = &idle;
    forEach([&](ZAVStatement& statement) {
        if (!statement.lent_ && statement.lastUse_ < oldest->lastUse_) {
            oldest = &statement;
        }
    });
    --idle_;
    remove(*oldest);
}

}  // namespace zav
