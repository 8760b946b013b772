#pragma once

#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Support/DatabaseHandles.h"
#include "Support/TemporaryDirectory.h"

namespace zav::test {

/// A database most of whose pages are free: a table `t (id, text)` of which one row of four is left.
class LooseStore {
public:
    static constexpr const char* keptText = "a text that stays where it is";
    static constexpr const char* deletedText = "a text that was deleted long ago";

    /// @param rows how many there were; each takes a kilobyte.
    explicit LooseStore(FMDatabaseOptions options = {}, int rows = 4000);

    [[nodiscard]] std::string path() const { return directory_.file("loose.db"); }
    [[nodiscard]] std::string marker() const { return path() + "-compacting"; }
    [[nodiscard]] std::string directory() const { return directory_.path().string(); }

    [[nodiscard]] const std::shared_ptr<FMDatabase>& handle() const { return handle_; }

    /// Another handle, which does not wait for a lock.
    [[nodiscard]] std::shared_ptr<FMDatabase> anotherHandle() const;

    /// Compacts it; fails the test when that fails.
    ZAVCompaction compactWell(const std::function<void(double)>& progress = {}) const;

    /// The code with which a compaction fails, and its message; the code is 0 when it does not.
    [[nodiscard]] ZAVError failureToCompact(const std::function<void(double)>& progress = {},
                                            const std::function<bool()>& cancel = {}) const;

    /// The rows, their texts and the row identifiers in one text.
    [[nodiscard]] std::string content() const;

    [[nodiscard]] std::int64_t freePages() const;
    [[nodiscard]] std::int64_t bytesOfDatabase() const;
    [[nodiscard]] std::int64_t bytesOfLog() const;

    /// Whether a text is in the file or its log.
    [[nodiscard]] bool holds(const std::string& text) const;

private:
    TemporaryDirectory directory_;
    FMDatabaseOptions options_;
    std::shared_ptr<FMDatabase> handle_;
};

}  // namespace zav::test
