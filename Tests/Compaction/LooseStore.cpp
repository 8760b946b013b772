#include "Compaction/LooseStore.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace zav::test {
namespace {

namespace fs = std::filesystem;

std::int64_t bytesAt(const std::string& path) {
    std::error_code failure;
    const auto size = fs::file_size(path, failure);
    return failure ? 0 : static_cast<std::int64_t>(size);
}

}  // namespace

LooseStore::LooseStore(FMDatabaseOptions options, int rows) : options_(std::move(options)) {
    handle_ = openHandle(path(), options_);
    run(*handle_,
        "CREATE TABLE t (id INTEGER PRIMARY KEY, text TEXT NOT NULL);"
        "CREATE INDEX t_by_text ON t (substr(text, 1, 40));"
        "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
            std::to_string(rows) + ") INSERT INTO t SELECT i, CASE WHEN i % 4 = 0 THEN '" + keptText +
            "' ELSE '" + deletedText +
            "' END || i || hex(randomblob(480)) FROM n;"
            "DELETE FROM t WHERE id % 4 <> 0");
}

std::shared_ptr<FMDatabase> LooseStore::anotherHandle() const {
    FMDatabaseOptions options = options_;
    options.busyTimeout = std::chrono::milliseconds(0);
    return openHandle(path(), options);
}

ZAVCompaction LooseStore::compactWell(const std::function<void(double)>& progress) const {
    ZAVError error;
    const auto result = ZAVDatabaseMaintenance(handle_).compact(progress, {}, &error);
    EXPECT_TRUE(result) << error.description();
    return result.value_or(ZAVCompaction());
}

ZAVError LooseStore::failureToCompact(const std::function<void(double)>& progress,
                                      const std::function<bool()>& cancel) const {
    ZAVError error;
    const auto result = ZAVDatabaseMaintenance(handle_).compact(progress, cancel, &error);
    EXPECT_EQ(result.has_value(), !error) << "there is a result or a reason";
    if (error) {
        EXPECT_EQ(handle_->lastError().description(), error.description()) << "the handle knows it too";
    }
    return error;
}

std::string LooseStore::content() const {
    return scalar(*handle_, "SELECT group_concat(id || text, '|') FROM (SELECT * FROM t ORDER BY id)");
}

std::int64_t LooseStore::freePages() const {
    return std::stoll(scalar(*handle_, "PRAGMA freelist_count"));
}

std::int64_t LooseStore::bytesOfDatabase() const {
    return bytesAt(path());
}

std::int64_t LooseStore::bytesOfLog() const {
    return bytesAt(path() + "-wal");
}

bool LooseStore::holds(const std::string& text) const {
    return bytesOfFile(path()).find(text) != std::string::npos ||
           (fs::exists(path() + "-wal") && bytesOfFile(path() + "-wal").find(text) != std::string::npos);
}

}  // namespace zav::test
