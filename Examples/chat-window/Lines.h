#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <ZAVEventRepository/ZAVEvent.h>

#include "Screen.h"

/// A text at a column of a row.
struct Span {
    int column = 0;
    std::string text{};
    Style style = Style::plain;
};

/// A row of the screen.
using Line = std::vector<Span>;

/// The fewest columns that an event can be shown in.
constexpr int narrowest = 32;

/// How many columns a text takes that is fit to be shown.
[[nodiscard]] int columnsOf(const std::string& text);

/// A text of anybody's, fit to be shown, in lines of so many columns at most; at least one.
[[nodiscard]] std::vector<std::string> wrapped(std::string_view text, int columns);

/// An event as it is shown: when, who, and what was said, or a word for what else happened.
/// @param waits whether it has no sequence yet.
[[nodiscard]] std::vector<Line> linesOf(const zav::ZAVEvent& event, bool waits, const std::string& user,
                                        int columns);
