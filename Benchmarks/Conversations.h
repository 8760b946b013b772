#pragma once

#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Support/TemporaryDirectory.h"

namespace zav::bench {

struct Stream {
    ZAVDatabaseIdentifier row;
    std::size_t length;  ///< how many events it has
};

/// Streams of different lengths, whose events came in turns: those of one stream are scattered over the
/// whole file, the farther from each other the shorter the stream is.
///
/// Of the `events`, a tenth is one stream, a tenth are streams of 10,000 (one when there are fewer), seven
/// tenths are streams of 100, and a tenth are streams of 33. So there is one stream for a hundred events.
struct ConversationsShape {
    std::size_t events = 10'000;  ///< a multiple of 1,000

    [[nodiscard]] std::size_t streams() const { return 1 + middleStreams() + shortStreams() + tinyStreams(); }
    [[nodiscard]] std::size_t middleStreams() const { return events < 200'000 ? 1 : events / 100'000; }
    [[nodiscard]] std::size_t shortStreams() const { return events * 7 / 1'000; }
    [[nodiscard]] std::size_t tinyStreams() const { return events * 3 / 1'000; }

    // The rows of the first streams of a length; those of the same length follow.
    [[nodiscard]] std::size_t firstMiddle() const { return 2; }
    [[nodiscard]] std::size_t firstShort() const { return firstMiddle() + middleStreams(); }
    [[nodiscard]] std::size_t firstTiny() const { return firstShort() + shortStreams(); }

    [[nodiscard]] Stream longStream() const { return {1, events / 10}; }

    /// One each of those that have 100 events or more, the shortest first.
    [[nodiscard]] std::vector<Stream> examples() const;
};

/// A member of every conversation who has read all but the last five events.
inline const std::string attentiveMember = "attentive";

/// A member of every conversation who has read nothing.
inline const std::string absentMember = "absent";

/// A database file with the library's schema in a temporary directory: each event is a message with a short
/// text, every seventh has metadata, each has a sequence.
class MadeConversations {
public:
    /// Prints how large it is, and how long it took. Throws when it cannot be made, also when the file system
    /// has too little room.
    /// @param key the pass phrase of a file that is encrypted.
    explicit MadeConversations(std::size_t events, std::optional<std::string> key = std::nullopt);

    [[nodiscard]] const ConversationsShape& shape() const { return shape_; }

    /// Throws when it cannot be opened.
    [[nodiscard]] std::unique_ptr<ZAVEventStore> open() const;

    /// Has the operating system forget what it has of the file in memory.
    void cool() const;

private:
    test::TemporaryDirectory directory_;
    std::string path_ = directory_.file("store.db");
    ConversationsShape shape_;
    std::optional<std::string> key_;
};

}  // namespace zav::bench
