#include "Private/Database/ZAVStatementCache.h"

#include <sqlite3.h>

#include <algorithm>
#include <bit>
#include <cstring>
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

void ZAVStatementFinalizer::operator()(sqlite3_stmt* handle) const noexcept {
    sqlite3_finalize(handle);
}

ZAVStatement::ZAVStatement(ZAVStatementHandle handle, std::string_view sql)
    : handle_(std::move(handle)),
      sql_(sql),
      placeholderCount_(static_cast<std::size_t>(sqlite3_bind_parameter_count(handle_.get()))) {}

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
        return;
    }
    sqlite3_bind_null(handle_.get(), std::countr_zero(positions));
    if (allButFirst != 0) {
        sqlite3_bind_null(handle_.get(), std::countr_zero(allButFirst));
    }
}

ZAVStatementCache::~ZAVStatementCache() {
    for (ZAVUseLink* const ring : {&idle_, &lent_}) {
        while (ring->next() != ring) {
            discard(static_cast<ZAVStatement&>(*ring->next()));
        }
    }
}

void ZAVStatementCache::closeCursors() noexcept {
    for (ZAVUseLink* link = lent_.next(); link != &lent_;) {
        FMResultSet* const cursor = static_cast<ZAVStatement&>(*link).cursor;
        if (cursor == nullptr) {
            link = link->next();
            continue;
        }
        // Whoever is told of what this commits may close further cursors.
        cursor->close();
        link = lent_.next();
    }
}

ZAVStatement* ZAVStatementCache::borrow(std::string_view sql) noexcept {
    const ZAVBucketLink& bucket = buckets_[bucketFor(sql, bucketCount)];
    for (ZAVBucketLink* link = bucket.next(); link != &bucket; link = link->next()) {
        auto& statement = static_cast<ZAVStatement&>(*link);
        if (statement.sql_ == sql) {
            statement.ZAVBucketLink::leave();
            statement.ZAVUseLink::leave();
            statement.ZAVUseLink::enterBehind(lent_);
            --idleCount_;
            return &statement;
        }
    }
    return nullptr;
}

ZAVStatement& ZAVStatementCache::add(ZAVStatementHandle handle, std::string_view sql) {
    ZAVStatement* const statement = std::make_unique<ZAVStatement>(std::move(handle), sql).release();
    statement->bucket_ = &buckets_[bucketFor(sql, bucketCount)];
    statement->ZAVUseLink::enterBehind(lent_);
    return *statement;
}

int ZAVStatementCache::giveBack(ZAVStatement& statement) noexcept {
    statement.cursor = nullptr;
    const int status = sqlite3_reset(statement.handle());
    statement.releaseBytes();
    statement.ZAVUseLink::leave();
    statement.ZAVUseLink::enterBehind(idle_);
    statement.ZAVBucketLink::enterBehind(*statement.bucket_);
    if (++idleCount_ > capacity_) {
        removeLeastRecentlyUsed();
    }
    return status;
}

void ZAVStatementCache::discard(ZAVStatement& statement) noexcept {
    const std::unique_ptr<ZAVStatement> discarded(&statement);
    statement.ZAVUseLink::leave();
}

std::size_t ZAVStatementCache::cursorCount() const noexcept {
    std::size_t count = 0;
    forEachLent([&](const ZAVStatement& statement) { count += statement.cursor != nullptr ? 1 : 0; });
    return count;
}

void ZAVStatementCache::removeLeastRecentlyUsed() noexcept {
    auto& oldest = static_cast<ZAVStatement&>(*idle_.previous());
    oldest.ZAVBucketLink::leave();
    --idleCount_;
    discard(oldest);
}

}  // namespace zav
