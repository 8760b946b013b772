#include "Store/Internal/ZAVTimelineDifferences.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <unordered_map>

namespace zav {
namespace {

using StepKind = ZAVTimelineDifference::Kind;
using Positions = std::vector<std::size_t>;

constexpr std::size_t nowhere = std::numeric_limits<std::size_t>::max();

/// For each number whether it is one of a longest ascending row of them, which may stay where they are. The
/// numbers must differ.
std::vector<bool> thoseInOrder(const Positions& numbers) {
    Positions ends;  // of the ascending rows of each length, the one that ends with the smallest number
    Positions before(numbers.size(), nowhere);
    for (std::size_t index = 0; index < numbers.size(); ++index) {
        const auto place =
            std::lower_bound(ends.begin(), ends.end(), numbers[index],
                             [&](std::size_t end, std::size_t number) { return numbers[end] < number; });
        before[index] = place == ends.begin() ? nowhere : *std::prev(place);
        if (place == ends.end()) {
            ends.push_back(index);
        } else {
            *place = index;
        }
    }
    std::vector<bool> inOrder(numbers.size(), false);
    for (std::size_t index = ends.empty() ? nowhere : ends.back(); index != nowhere; index = before[index]) {
        inOrder[index] = true;
    }
    return inOrder;
}

std::size_t positionOf(std::size_t number, const Positions& numbers) {
    return static_cast<std::size_t>(std::find(numbers.begin(), numbers.end(), number) - numbers.begin());
}

/// Has the events that are in both lists, given by their positions in the one that is wanted, stand in order.
void addMoves(std::vector<ZAVTimelineDifference>& steps, Positions present) {
    const std::vector<bool> inOrder = thoseInOrder(present);
    Positions wrong;
    for (std::size_t index = 0; index < present.size(); ++index) {
        if (!inOrder[index]) {
            wrong.push_back(present[index]);
        }
    }
    if (wrong.empty()) {
        return;
    }
    std::sort(wrong.begin(), wrong.end());
    Positions wanted = present;
    std::sort(wanted.begin(), wanted.end());
    for (const std::size_t event : wrong) {
        const std::size_t from = positionOf(event, present);
        present.erase(present.begin() + static_cast<std::ptrdiff_t>(from));
        // All that are wanted before it stand in order already.
        const auto place = std::lower_bound(wanted.begin(), wanted.end(), event);
        const std::size_t target = place == wanted.begin() ? 0 : positionOf(*std::prev(place), present) + 1;
        present.insert(present.begin() + static_cast<std::ptrdiff_t>(target), event);
        if (from != target) {
            steps.push_back({StepKind::moved, target, from});
        }
    }
}

}  // namespace

std::vector<ZAVTimelineDifference> ZAVTimelineDifferences(const std::vector<ZAVTimelineEntry>& before,
                                                          const std::vector<ZAVTimelineEntry>& after) {
    std::unordered_map<ZAVDatabaseIdentifier, std::size_t> positions;
    for (std::size_t index = 0; index < after.size(); ++index) {
        positions.emplace(after[index].event, index);
    }
    Positions kept;
    std::vector<const ZAVTimelineEntry*> formerOf(after.size(), nullptr);
    std::vector<ZAVTimelineDifference> steps;
    for (std::size_t index = 0; index < before.size(); ++index) {
        if (const auto place = positions.find(before[index].event); place != positions.end()) {
            kept.push_back(place->second);
            formerOf[place->second] = &before[index];
        } else {
            steps.push_back({StepKind::removed, index, index});
        }
    }
    std::reverse(steps.begin(), steps.end());
    addMoves(steps, std::move(kept));
    for (std::size_t index = 0; index < after.size(); ++index) {
        if (formerOf[index] == nullptr) {
            steps.push_back({StepKind::inserted, index, index});
        }
    }
    for (std::size_t index = 0; index < after.size(); ++index) {
        if (formerOf[index] != nullptr && formerOf[index]->content != after[index].content) {
            steps.push_back({StepKind::changed, index, index});
        }
    }
    return steps;
}

}  // namespace zav
