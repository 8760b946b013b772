#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ZAVEventRepository/ZAVTimelineWindow.h>

#include "Lines.h"

/// The list of a conversation's events, a piece of which is on the screen. At its end it follows what comes;
/// where one has scrolled away from there, what one looks at stays in its place.
class Conversation {
public:
    explicit Conversation(std::string user) : user_(std::move(user)) {}

    /// Takes the steps of a delivery, one by one.
    void apply(const zav::ZAVTimelineDelivery& delivery);

    /// Fits what is shown to so many columns and rows.
    void layOut(int columns, int rows);

    /// @param lines towards the newest event; less than 0 towards the oldest.
    void scroll(std::ptrdiff_t lines);

    /// What is shown, from above; fewer lines than rows when there are no more.
    [[nodiscard]] std::vector<Line> shown() const;

    /// How many lines there are above what is shown.
    [[nodiscard]] std::ptrdiff_t linesAbove() const;

    /// How many lines there are in all.
    [[nodiscard]] std::ptrdiff_t lines() const { return linesBefore(entries_.size()); }

    /// How many events have come below what is shown and were not seen yet.
    [[nodiscard]] std::ptrdiff_t newBelow() const;

private:
    struct Entry {
        std::shared_ptr<zav::ZAVEvent> event{};
        bool waits = false;
        bool isNew = false;
        std::vector<Line> lines{};
    };

    void wrap(std::size_t position);
    void keepPlace(std::size_t position, std::ptrdiff_t before, std::ptrdiff_t after);
    [[nodiscard]] std::ptrdiff_t linesBefore(std::size_t position) const;
    [[nodiscard]] std::ptrdiff_t lastShown() const { return last_.value_or(lines() - 1); }

    std::string user_;
    std::vector<Entry> entries_{};
    std::optional<std::ptrdiff_t> last_{};  ///< the last line that is shown; none when that is the end
    int columns_ = narrowest;
    std::ptrdiff_t rows_ = 1;
};
