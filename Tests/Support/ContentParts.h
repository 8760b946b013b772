#pragma once

#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Operations/Texts.h"
#include "Support/LogCapture.h"
#include "Support/TestStore.h"

namespace zav::test {

using Indexes = std::vector<std::int64_t>;

/// Inserts the part at an index of an event's row, with `columns` and their `values` beside.
inline void addPart(const TestStore& store, int index, const std::string& columns, const std::string& values,
                    int eventRow = 1) {
    store.execute("INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, " +
                  columns + ") VALUES (" + std::to_string(index) + ", " + std::to_string(eventRow) + ", " +
                  values + ")");
}

/// The indexes of the parts that an operation answered, in the set's order.
[[nodiscard]] inline Indexes indexesOf(const std::optional<ZAVSet<ZAVEventContent>>& parts) {
    Indexes indexes;
    EXPECT_TRUE(parts) << "the operation failed";
    if (parts) {
        for (const auto& part : *parts) {
            indexes.push_back(part->index());
        }
    }
    return indexes;
}

[[nodiscard]] inline Indexes sorted(Indexes indexes) {
    std::sort(indexes.begin(), indexes.end());
    return indexes;
}

[[nodiscard]] inline Indexes sortedIndexesOf(const std::optional<ZAVSet<ZAVEventContent>>& parts) {
    return sorted(indexesOf(parts));
}

/// Makes the engine give up in the step after the one that yields the `count`th row, for as long as it lives,
/// and counts the rows. It takes the handle's trace.
class InterruptionAfterRow {
public:
    InterruptionAfterRow(FMDatabase& database, int count) : database_(database), count_(count) {
        sqlite3_trace_v2(database_.sqliteHandle(), SQLITE_TRACE_ROW, interrupt, this);
    }
    ~InterruptionAfterRow() { sqlite3_trace_v2(database_.sqliteHandle(), 0, nullptr, nullptr); }
    InterruptionAfterRow(const InterruptionAfterRow&) = delete;
    InterruptionAfterRow& operator=(const InterruptionAfterRow&) = delete;

    [[nodiscard]] int rows() const { return rows_; }

private:
    static int interrupt(unsigned, void* context, void*, void*) {
        auto& self = *static_cast<InterruptionAfterRow*>(context);
        if (++self.rows_ == self.count_) {
            sqlite3_interrupt(self.database_.sqliteHandle());
        }
        return 0;
    }

    FMDatabase& database_;
    int count_;
    int rows_ = 0;
};

/// The format of a log line, and the caller's error as it was when the line arrived.
using LineAndError = std::pair<std::string, ZAVError>;

/// Calls an operation with an error of its own and answers what that error was as each log line arrived.
template <class Call>
[[nodiscard]] std::vector<LineAndError> callersErrorAtEachLine(const Call& call) {
    class Sink final : public DDLogSink {
    public:
        void write(const DDLogMessage& line) override { lines.emplace_back(line.format, error); }

        ZAVError error;
        std::vector<LineAndError> lines;
    };
    const LogCapture openGuards;
    const auto sink = std::make_shared<Sink>();
    DDLog::setSink(sink);
    call(&sink->error);
    return sink->lines;
}

}  // namespace zav::test
