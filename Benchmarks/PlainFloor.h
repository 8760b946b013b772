#pragma once

#include <ZAVEventRepository/ZAVEvent.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "CEngine.h"

namespace zav::bench {

using PlainUUID = ZAVUUID::Bytes;
using PlainBytes = std::vector<std::uint8_t>;

/// A content part as somebody writes it who has no use for the library's records: addresses are texts,
/// moments are seconds.
struct PlainPart {
    std::int64_t event = 0;
    std::int64_t index = 0;
    std::optional<PlainUUID> eventClient;
    std::optional<PlainUUID> stream;
    std::optional<std::int32_t> eventSeq;
    std::optional<std::string> type;
    std::optional<PlainBytes> body;
    std::int64_t expiration = 0;
    std::optional<std::string> url;
    std::int64_t size = 0;
    std::int64_t status = 0;
    std::optional<std::string> path;
    std::optional<double> lastAccessed;
    bool isPurged = false;
};

/// An event in the same way.
struct PlainEvent {
    std::int64_t row = 0;        ///< 0 while it has none
    std::int64_t streamRow = 0;  ///< the same
    std::optional<PlainBytes> stream;
    std::optional<PlainBytes> client;
    std::int32_t type = 0;
    std::optional<std::string> creator;
    std::optional<std::string> creatorName;
    std::optional<std::string> member;
    std::optional<std::int32_t> seq;
    std::int64_t timestamp = 0;
    std::int32_t precedingSeq = 0;
    std::int32_t clientSeq = 0;
    std::uint8_t subtype = 0;
    std::optional<std::int32_t> targetSeq;
    std::vector<std::pair<std::string, std::string>> metadata;
    std::vector<PlainPart> parts;
};

/// An event of the library's, copied.
PlainEvent plainEventOf(const ZAVEvent& event);

/// The floor with plain records: the same statements, on the engine's C interface.
class PlainFloor {
public:
    explicit PlainFloor(const std::string& path) : engine_(path) {}

    [[nodiscard]] sqlite3* connection() const { return engine_.connection(); }

    void persist(std::vector<PlainEvent>& events);
    void updatePart(const PlainPart& part);
    std::vector<PlainEvent> allEvents();
    std::optional<PlainEvent> eventInRow(std::int64_t row);
    std::optional<PlainPart> partInRow(std::int64_t row);
    std::vector<PlainPart> incompleteDownloads(std::int64_t limit);
    std::vector<PlainPart> leastRecentlyAccessed(std::int64_t size);

private:
    void resolveStream(PlainEvent& event);
    void insertOrUpdate(PlainEvent& event);
    void writeMetadata(const PlainEvent& event);
    void writeParts(PlainEvent& event);
    template <class Row>
    PlainEvent readEvent(Row& row);

    CEngine<Statements::kept> engine_;
    const std::string eventType_ = "event";
};

}  // namespace zav::bench
