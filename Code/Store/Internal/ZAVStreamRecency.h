#pragma once

#include <optional>

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVRepositories.h>

#include "Private/Model/Repositories/Internal/ZAVStatementText.h"

namespace zav {

// Parts of statements about the last events of streams; `stream` is a column or a parameter.

/// The row of a stream's last event, in the order of its timeline; NULL when it has none.
template <class Text>
[[nodiscard]] constexpr auto ZAVSelectLastEventOf(const Text& stream) noexcept {
    return ZAVStatementText(
               "IFNULL((SELECT database_identifier FROM events WHERE stream_database_identifier = ") +
           stream +
           " AND seq IS NULL ORDER BY CAST(IFNULL(client_seq, 0) AS INTEGER) DESC, database_identifier DESC"
           " LIMIT 1), (SELECT database_identifier FROM events WHERE stream_database_identifier = " +
           stream + " AND seq <= 9223372036854775807 AND typeof(seq) = 'integer' ORDER BY seq DESC LIMIT 1))";
}

/// How recent a stream is: the time of its last event. One that waits and has no time counts as newer than
/// all that have one, and a stream without events as older.
template <class Text>
[[nodiscard]] constexpr auto ZAVSelectRecencyOf(const Text& stream) noexcept {
    return ZAVStatementText(
               "IFNULL((SELECT CASE WHEN seq IS NULL AND IFNULL(timestamp, 0) = 0 THEN 9223372036854775807"
               " ELSE CAST(IFNULL(timestamp, 0) AS INTEGER) END FROM events WHERE database_identifier = ") +
           ZAVSelectLastEventOf(stream) + "), -9223372036854775807)";
}

/// How recent the streams are, as it is kept so that the list of conversations can be read a page at a time.
///
/// What is kept is right but for events and streams of later rows than are recorded, which a reader looks at
/// beside it, and for what changed since without one of the store's own calls. Nothing is kept before
/// somebody has asked for the list.
class ZAVStreamRecency {
public:
    /// Up to where rows have been looked at.
    struct Mark {
        ZAVDatabaseIdentifier event = 0;
        ZAVDatabaseIdentifier stream = 0;
    };

    explicit ZAVStreamRecency(const ZAVRepositories& repositories) noexcept : repositories_(repositories) {}

    /// Reads the mark; none when nothing is kept.
    /// @return false on failure, with the reason in `error`.
    bool readMark(std::optional<Mark>& mark, ZAVError* error) const;

    /// How far the mark could be. None on failure, with the reason in `error`.
    [[nodiscard]] std::optional<Mark> newestRows(ZAVError* error) const;

    /// Looks at the rows behind the mark, and at all when there is none. Within a transaction.
    bool catchUp(ZAVError* error) const;

    /// Looks at all streams anew. Within a transaction.
    bool rebuild(ZAVError* error) const;

    /// Looks at one stream anew, if anything is kept: after its events were changed or removed, in the same
    /// transaction.
    bool update(ZAVDatabaseIdentifier stream, ZAVError* error) const;

    /// The same, whether anything is kept or not.
    bool refresh(ZAVDatabaseIdentifier stream, ZAVError* error) const;

private:
    bool setMark(ZAVError* error) const;

    const ZAVRepositories& repositories_;
};

}  // namespace zav
