#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

/// Where a conversation stands in the list of them: a value that may be kept, also as a text.
class ZAV_EXPORT ZAVConversationCursor {
public:
    /// @param recency the time of the conversation's last event, as the list reckons it.
    /// @param stream the row of its stream.
    ZAVConversationCursor(std::int64_t recency, ZAVDatabaseIdentifier stream) noexcept
        : recency_(recency), stream_(stream) {}

    /// The cursor that `text` answered.
    /// @return none for any other text (`ZAVEventStoreErrorBadCursor`), with the reason in `error`.
    [[nodiscard]] static std::optional<ZAVConversationCursor> fromText(std::string_view text,
                                                                       ZAVError* error = nullptr);

    /// A text of printable ASCII without blanks, by which damage is noticed.
    [[nodiscard]] std::string text() const;

    /// The time of the conversation's last event, as the list reckons it.
    [[nodiscard]] std::int64_t recency() const noexcept { return recency_; }

    /// The row of the conversation's stream.
    [[nodiscard]] ZAVDatabaseIdentifier stream() const noexcept { return stream_; }

    /// Equal when they name the same place.
    friend bool operator==(const ZAVConversationCursor&, const ZAVConversationCursor&) = default;

private:
    std::int64_t recency_;
    ZAVDatabaseIdentifier stream_;
};

/// How the list of conversations is read.
struct ZAVConversationListOptions {
    /// Whose unread messages are counted, as a member of each conversation. Without one none are.
    std::optional<std::string> participant{};

    /// Up to how many unread messages are counted in one conversation.
    std::size_t unreadCap = 100;
};

/// A conversation as a list shows it.
struct ZAVConversationSummary {
    ZAVDatabaseIdentifier stream = ZAVDatabaseIdentifierNotSet;  ///< the row of its stream
    std::optional<ZAVUUID> streamUUID{};                         ///< none while the service does not know it
    std::shared_ptr<ZAVEvent> lastEvent{};  ///< the last of its timeline; null when there are no events
    std::size_t waiting = 0;                ///< how many events wait for their sequence

    /// How many messages of others have a sequence above the participant's, up to the cap. None when no
    /// participant was named, or is not a member of the conversation.
    std::optional<std::size_t> unread{};

    ZAVConversationCursor cursor{0, 0};  ///< where it stands
};

/// A piece of the list of conversations, as it was at one moment.
struct ZAVConversationPage {
    std::vector<ZAVConversationSummary> conversations{};  ///< the one of the newest last event first
    bool hasMore = false;                                 ///< whether older ones follow
};

/// The streams of a store as conversations, the one with the newest last event first: by the event's
/// timestamp, and of equal ones the stream of the later row first. A last event that waits and has no
/// timestamp is newer than all that have one; streams without events come last.
///
/// Each page is read with a number of statements that does not depend on how many conversations or events
/// there are. For that the store keeps how recent each stream is, from the first call on: its own calls
/// (`receive`, `send` and so on) keep that right, and so do events that anybody stores in new rows. What is
/// done to events that were stored before in other ways, by the repository's own operations or by SQL
/// (assigning a sequence and a timestamp, deleting), a list notices when it comes to the stream's old place,
/// and puts right; until then such a stream may stand too low. `repair` puts all right at once.
///
/// It may be used by any thread, as the store may, which must outlive it.
class ZAV_EXPORT ZAVConversationList {
public:
    /// The list of all streams of a store.
    explicit ZAVConversationList(ZAVEventStore& store, ZAVConversationListOptions options = {});

    /// The conversations of the newest last events.
    /// @param count how many at most.
    /// @return none on failure, with the reason in `error`.
    [[nodiscard]] std::optional<ZAVConversationPage> first(std::size_t count,
                                                           ZAVError* error = nullptr) const;

    /// The conversations that come next behind a cursor.
    /// @param count how many at most.
    /// @return none on failure, with the reason in `error`.
    [[nodiscard]] std::optional<ZAVConversationPage> after(const ZAVConversationCursor& cursor,
                                                           std::size_t count,
                                                           ZAVError* error = nullptr) const;

    /// Looks at the last event of each stream anew.
    /// @return whether it could; if not, the reason is in `error`.
    bool repair(ZAVError* error = nullptr) const;

private:
    /// Brings what is kept up to date, if that is worth while and can be done here.
    void prepare() const;

    ZAVEventStore& store_;
    ZAVConversationListOptions options_;
};

}  // namespace zav
