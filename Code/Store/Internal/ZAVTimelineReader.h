#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <tuple>
#include <vector>

#include <ZAVEventRepository/ZAVRepositories.h>
#include <ZAVEventRepository/ZAVTimeline.h>

#include "Private/Database/Internal/ZAVSQL.h"

namespace zav {

/// A place in a timeline: behind those with a sequence, in its order, come those without.
struct ZAVTimelinePlace {
    bool isWaiting = false;
    std::int64_t number = 0;          ///< the sequence; of an event that waits its `client_seq`
    ZAVDatabaseIdentifier event = 0;  ///< of an event that waits; 0 otherwise

    friend bool operator<(const ZAVTimelinePlace& one, const ZAVTimelinePlace& other) noexcept {
        return std::tie(one.isWaiting, one.number, one.event) <
               std::tie(other.isWaiting, other.number, other.event);
    }

    /// Behind everything.
    [[nodiscard]] static constexpr ZAVTimelinePlace end() noexcept {
        constexpr std::int64_t greatest = std::numeric_limits<std::int64_t>::max();
        return {true, greatest, greatest};
    }

    /// Where the cursor stood when it was made.
    [[nodiscard]] static ZAVTimelinePlace of(const ZAVTimelineCursor& cursor) noexcept {
        const auto event = cursor.waitingEvent();
        return event ? ZAVTimelinePlace{true, cursor.clientSeq(), *event}
                     : ZAVTimelinePlace{false, cursor.seq().value_or(0), 0};
    }
};

/// Reads pages of one stream, on the handle and at the moment of a work.
class ZAVTimelineReader {
public:
    using Place = ZAVTimelinePlace;

    /// @param types as bits; a negative number also asks for types that are none of its bits.
    ZAVTimelineReader(const ZAVRepositories& repositories, ZAVDatabaseIdentifier stream,
                      std::int64_t types) noexcept
        : repositories_(repositories), stream_(stream), types_(types) {}

    // None on failure, with the reason in `error`.
    [[nodiscard]] std::optional<ZAVTimelinePage> latest(std::size_t count, ZAVError* error) const;
    [[nodiscard]] std::optional<ZAVTimelinePage> before(const ZAVTimelineCursor& cursor, std::size_t count,
                                                        ZAVError* error) const;
    [[nodiscard]] std::optional<ZAVTimelinePage> after(const ZAVTimelineCursor& cursor, std::size_t count,
                                                       ZAVError* error) const;
    [[nodiscard]] std::optional<ZAVTimelinePage> around(std::int64_t seq, std::size_t count,
                                                        ZAVError* error) const;
    [[nodiscard]] std::optional<ZAVTimelinePage> between(const std::optional<ZAVTimelineCursor>& first,
                                                         const std::optional<ZAVTimelineCursor>& last,
                                                         ZAVError* error) const;
    [[nodiscard]] std::optional<ZAVTimelinePage> around(const Place& place, std::size_t count,
                                                        ZAVError* error) const;
    [[nodiscard]] std::optional<ZAVTimelinePage> between(const Place& first, const Place& last,
                                                         ZAVError* error) const;

    /// Where a cursor stands now. One of another stream is an error.
    [[nodiscard]] std::optional<Place> placeOf(const ZAVTimelineCursor& cursor, ZAVError* error) const;

    /// Where the event stands that comes so many before a place, or as many as there are; the place itself
    /// when there is none.
    [[nodiscard]] std::optional<Place> placeBefore(const Place& place, std::size_t count,
                                                   ZAVError* error) const;
    /// The same behind it.
    [[nodiscard]] std::optional<Place> placeBehind(const Place& place, std::size_t count,
                                                   ZAVError* error) const;

private:
    /// An event without its content, and where it stands.
    struct Found {
        std::shared_ptr<ZAVEvent> event;
        Place place;
    };
    using Row = std::vector<Found>;

    [[nodiscard]] std::optional<Row> earlier(const Place& place, std::size_t count, ZAVError* error) const;
    [[nodiscard]] std::optional<Row> later(const Place& place, std::size_t count, ZAVError* error) const;
    template <class... Values>
    bool append(Row& found, ZAVError* error, ZAVSQL statement, const Values&... values) const;
    static bool cut(Row& found, std::size_t count);

    /// @param hasEarlier whether there are events before these; none to have it looked up.
    /// @param hasLater whether there are events behind these; none to have it looked up.
    [[nodiscard]] std::optional<ZAVTimelinePage> pageOf(const Row& found, std::optional<bool> hasEarlier,
                                                        std::optional<bool> hasLater, ZAVError* error) const;
    bool readContent(const Row& found, ZAVError* error) const;
    bool readGaps(const Row& found, std::vector<ZAVSequenceGap>& gaps, ZAVError* error) const;

    const ZAVRepositories& repositories_;
    ZAVDatabaseIdentifier stream_;
    std::int64_t types_;
};

}  // namespace zav
