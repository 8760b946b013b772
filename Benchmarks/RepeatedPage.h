#pragma once

#include <ZAVEventRepository/ZAVTimeline.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <utility>

#include "Conversations.h"
#include "Require.h"

namespace zav::bench {

/// A page of a stream that `makeConversations` made, which is read again and again.
class RepeatedPage {
public:
    /// @param end the sequence that the page ends before; none for the newest page.
    RepeatedPage(ZAVEventStore& store, const Stream& stream, std::optional<std::size_t> end,
                 std::size_t length)
        : timeline_(store, stream.row), length_(length) {
        if (end) {
            cursor_ = ZAVTimelineCursor::atSequence(stream.row, static_cast<std::int64_t>(*end));
        }
    }

    /// Throws when it is not what was stored.
    ZAVTimelinePage read() const {
        ZAVError error;
        auto page = cursor_ ? timeline_.before(*cursor_, length_, &error) : timeline_.latest(length_, &error);
        require(page.has_value(), error);
        if (page->events.size() != length_ || page->events.front()->contentParts().size() != 1) {
            throw std::runtime_error("a page is not what was stored");
        }
        return std::move(*page);
    }

private:
    ZAVTimeline timeline_;
    std::optional<ZAVTimelineCursor> cursor_;
    std::size_t length_;
};

}  // namespace zav::bench
