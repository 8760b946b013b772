#include "Private/Database/Internal/ZAVStatementCache.h"

#include <sqlite3.h>

#include <bit>
#include <cstring>
#include <utility>

#include <ZAVEventRepository/FMResultSet.h>

namespace zav {
namespace {

/// Eight bytes from the end and eight from the middle tell the statements of this library apart; hashing all
/// of a select list would cost more than the lookup that it serves. Texts are compared in full afterwards.
std::size_t bucketFor(std::string_view sql, std::size_t bucketCount) noexcept {
    std::uint64_t end = 0;
    std::uint64_t middle = 0;
    if (sql.size() >= sizeof end) {  // by a known size, which costs no call
        std::memcpy(&end, sql.data() + sql.size() - sizeof end, sizeof end);
        std::memcpy(&middle, sql.data() + (sql.size() - sizeof middle) / 2, sizeof middle);
    } else if (!sql.empty()) {
        std::memcpy(&end, sql.data(), sql.size());
    }
    const std::uint64_t hash = (end ^ (middle * 31) ^ sql.size()) * 0x9E3779B97F4A7C15U;
    return static_cast<std::size_t>(hash >> 32) % bucketCount;
}

bool isBareCount(std::string_view sql) noexcept {
    constexpr std::string_view beginning = "SELECT COUNT(*) FROM ";
    return sql.starts_with(beginning) && sql.find(' ', beginning.size()) == std::string_view::npos;
}

}  // namespace

void ZAVStatementFinalizer::operator()(sqlite3_stmt* handle) const noexcept {
    sqlite3_finalize(handle);
}

ZAVStatement::ZAVStatement(ZAVStatementHandle handle, ZAVSQL sql)
    : isUnprovedCount(isBareCount(sql.text())),
      handle_(std::move(handle)),
      sql_(sql.text()),
      literal_(sql.isLiteral() ? sql.text().data() : nullptr),
      placeholderCount_(static_cast<std::size_t>(sqlite3_bind_parameter_count(handle_.get()))) {
    run.textSize = sql_.size();
    run.reads = sqlite3_stmt_readonly(handle_.get()) != 0;
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
        sqlite3_clear_bindings(handle_.get());
        numbersAt_ = 0;
        return;
    }
    sqlite3_bind_null(handle_.get(), std::countr_zero(positions));
    if (allButFirst != 0) {
        sqlite3_bind_null(handle_.get(), std::countr_zero(allButFirst));
    }
}

void ZAVStatementCache::clear() noexcept {
    for (ZAVUseLink* const ring : {&kept_, &lent_}) {
        while (ring->next() != ring) {
            discard(static_cast<ZAVStatement&>(*ring->next()));
        }
    }
}

void ZAVStatementCache::closeCursors(void (FMResultSet::*close)() noexcept) noexcept {
    for (ZAVUseLink* link = kept_.next(); link != &kept_;) {
        auto& statement = static_cast<ZAVStatement&>(*link);
        link = link->next();
        if (statement.isLent_) {
            takeOutOfTheWay(statement);
        }
    }
    for (ZAVUseLink* link = lent_.next(); link != &lent_;) {
        FMResultSet* const cursor = static_cast<ZAVStatement&>(*link).cursor;
        if (cursor == nullptr) {
            link = link->next();
            continue;
        }
        // The observer of what this commits may close further cursors.
        (cursor->*close)();
        link = lent_.next();
    }
}

ZAVStatement* ZAVStatementCache::borrow(ZAVSQL sql) noexcept {
    const ZAVBucketLink& bucket = buckets_[bucketFor(sql.text(), bucketCount)];
    for (ZAVBucketLink* link = bucket.next(); link != &bucket;) {
        auto& statement = static_cast<ZAVStatement&>(*link);
        link = link->next();
        if (statement.isLent_) {
            statement.ZAVBucketLink::leave();
            statement.isInBucket_ = false;
        } else if (statement.isOf(sql)) {
            statement.isLent_ = true;
            --idleCount_;
            return &statement;
        }
    }
    return nullptr;
}

ZAVStatement& ZAVStatementCache::add(ZAVStatementHandle handle, ZAVSQL sql) {
    ZAVStatement* const statement = std::make_unique<ZAVStatement>(std::move(handle), sql).release();
    statement->bucket_ = &buckets_[bucketFor(sql.text(), bucketCount)];
    statement->ZAVUseLink::enterBehind(lent_);
    return *statement;
}

int ZAVStatementCache::giveBack(ZAVStatement& statement) noexcept {
    statement.cursor = nullptr;
    const int status = sqlite3_reset(statement.handle());
    statement.releaseBytes();
    statement.isLent_ = false;
    statement.lastUse_ = ++clock_;
    if (!statement.isKept_) {
        statement.ZAVUseLink::leave();
        statement.ZAVUseLink::enterBehind(kept_);
        statement.isKept_ = true;
    }
    if (!statement.isInBucket_) {
        statement.ZAVBucketLink::enterBehind(*statement.bucket_);
        statement.isInBucket_ = true;
    }
    if (++idleCount_ > capacity_) {
        if (ZAVStatement* const oldest = oldestIdle()) {
            --idleCount_;
            discard(*oldest);
        }
    }
    return status;
}

void ZAVStatementCache::discard(ZAVStatement& statement) noexcept {
    statement.ZAVUseLink::leave();
    if (statement.isInBucket_) {
        statement.ZAVBucketLink::leave();
    }
    std::default_delete<ZAVStatement>{}(&statement);
}

std::size_t ZAVStatementCache::cursorCount() const noexcept {
    std::size_t count = 0;
    forEachLent([&](const ZAVStatement& statement) { count += statement.cursor != nullptr ? 1 : 0; });
    return count;
}

ZAVStatement* ZAVStatementCache::oldestIdle() noexcept {
    ZAVStatement* oldest = nullptr;
    for (ZAVUseLink* link = kept_.next(); link != &kept_;) {
        auto& statement = static_cast<ZAVStatement&>(*link);
        link = link->next();
        if (statement.isLent_) {
            takeOutOfTheWay(statement);
        } else if (oldest == nullptr || statement.lastUse_ < oldest->lastUse_) {
            oldest = &statement;
        }
    }
    return oldest;
}

void ZAVStatementCache::takeOutOfTheWay(ZAVStatement& statement) noexcept {
    statement.ZAVUseLink::leave();
    statement.ZAVUseLink::enterBehind(lent_);
    statement.isKept_ = false;
}

}  // namespace zav
