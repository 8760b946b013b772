#pragma once

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVSet.h>

#include <cstddef>
#include <memory>
#include <ostream>
#include <string>

namespace zav::test {

/// How many rows an import has made.
struct ImportedRows {
    std::size_t events = 0;
    std::size_t parts = 0;
    std::size_t metadata = 0;
    std::size_t changes = 0;

    /// Those in a database; fails the test when they cannot be counted.
    [[nodiscard]] static ImportedRows in(FMDatabase& database);

    ImportedRows& operator+=(const ImportedRows& more);
    friend bool operator==(const ImportedRows&, const ImportedRows&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const ImportedRows& rows);
};

/// The events, with parts, metadata and change records, that an import stores together. The number says all
/// of it: two batches of one number are the same, and those of different numbers share no event.
class ImportedBatch {
public:
    explicit ImportedBatch(int number);

    [[nodiscard]] const ZAVUUID& stream() const { return stream_; }
    [[nodiscard]] const ZAVSet<ZAVEvent>& events() const { return events_; }

    /// The sequence of the event at a position.
    [[nodiscard]] ZAVSequence seqAt(std::size_t position) const;

    [[nodiscard]] ImportedRows rows() const;

    /// Stores the batch, and the stream where it is missing, in a transaction that is open.
    bool storeWithin(const std::shared_ptr<FMDatabase>& database, ZAVError* error) const;

    /// Stores the batch in a transaction of its own.
    bool store(const std::shared_ptr<FMDatabase>& database, ZAVError* error) const;

    /// Whether a database holds nothing of the batch ("absent"), all of it ("whole"), or what it lacks.
    [[nodiscard]] std::string presenceIn(const std::shared_ptr<FMDatabase>& database) const;

    static constexpr const char* absent = "absent";
    static constexpr const char* whole = "whole";

private:
    int number_;
    ZAVUUID stream_;
    ZAVSet<ZAVEvent> events_;
};

}  // namespace zav::test
