#include "Conversation.h"

#include <algorithm>
#include <iterator>

using namespace zav;

void Conversation::apply(const ZAVTimelineDelivery& delivery) {
    using Kind = ZAVTimelineDifference::Kind;
    for (const auto& [kind, position, from] : delivery.differences) {
        Entry entry;
        if (kind == Kind::removed || kind == Kind::moved) {
            keepPlace(from, std::ssize(entries_[from].lines), 0);
            entry = std::move(entries_[from]);
            entry.lines.clear();
            entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(from));
        }
        if (kind == Kind::inserted) {
            entry.isNew = last_ && linesBefore(position) > *last_;
        }
        if (kind == Kind::inserted || kind == Kind::moved) {
            entries_.insert(entries_.begin() + static_cast<std::ptrdiff_t>(position), std::move(entry));
        }
        if (kind == Kind::inserted || kind == Kind::changed) {
            entries_[position].event = delivery.page.events[position];
            entries_[position].waits = !delivery.page.cursors[position].seq();
        }
        if (kind != Kind::removed) {
            wrap(position);
        }
    }
    scroll(0);
}

void Conversation::layOut(int columns, int rows) {
    if (columns != columns_) {
        columns_ = columns;
        for (std::size_t position = 0; position < entries_.size(); ++position) {
            wrap(position);
        }
    }
    rows_ = rows;
    scroll(0);
}

void Conversation::scroll(std::ptrdiff_t lines) {
    const std::ptrdiff_t end = this->lines();
    const std::ptrdiff_t last = std::min(std::max(lastShown() + lines, rows_ - 1), end - 1);
    last_ = last + 1 < end ? std::optional(last) : std::nullopt;
    std::ptrdiff_t line = 0;
    for (Entry& entry : entries_) {
        entry.isNew = entry.isNew && line > last;
        line += std::ssize(entry.lines);
    }
}

std::vector<Line> Conversation::shown() const {
    const std::ptrdiff_t first = linesAbove();
    const std::ptrdiff_t last = lastShown();
    std::vector<Line> shown;
    std::ptrdiff_t number = 0;
    for (const Entry& entry : entries_) {
        for (const Line& line : entry.lines) {
            if (number >= first && number <= last) {
                shown.push_back(line);
            }
            ++number;
        }
    }
    return shown;
}

std::ptrdiff_t Conversation::linesAbove() const {
    return std::max<std::ptrdiff_t>(lastShown() - rows_ + 1, 0);
}

std::ptrdiff_t Conversation::newBelow() const {
    return std::count_if(entries_.begin(), entries_.end(), [](const Entry& entry) { return entry.isNew; });
}

/// Makes the lines of an entry as it is now.
void Conversation::wrap(std::size_t position) {
    Entry& entry = entries_[position];
    const std::ptrdiff_t before = std::ssize(entry.lines);
    entry.lines = linesOf(*entry.event, entry.waits, user_, columns_);
    keepPlace(position, before, std::ssize(entry.lines));
}

/// Leaves what is looked at where it is while the entry of a position comes to have other lines than before.
void Conversation::keepPlace(std::size_t position, std::ptrdiff_t before, std::ptrdiff_t after) {
    const std::ptrdiff_t first = linesBefore(position);
    if (last_ && first <= *last_) {
        const std::ptrdiff_t shown = std::min(*last_ - first + 1, before);
        *last_ += (shown == before ? after : std::min(shown, after)) - shown;
    }
}

std::ptrdiff_t Conversation::linesBefore(std::size_t position) const {
    std::ptrdiff_t lines = 0;
    for (std::size_t index = 0; index < position; ++index) {
        lines += std::ssize(entries_[index].lines);
    }
    return lines;
}
