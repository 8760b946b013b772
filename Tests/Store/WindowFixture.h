#pragma once

#include <ZAVEventRepository/ZAVTimelineWindow.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Model/Records.h"
#include "Store/TimelineFixture.h"

namespace zav::test {

/// The list of a user interface: it applies what a window tells step by step, and has nothing else of it.
class Screen {
public:
    [[nodiscard]] ZAVTimelineObserver observer() {
        return [this](const ZAVTimelineDelivery& delivery) { show(delivery); };
    }

    /// How often it was told something.
    [[nodiscard]] std::size_t deliveries() const { return deliveries_; }

    /// The last thing that it was told.
    [[nodiscard]] const ZAVTimelineDelivery& last() const { return last_; }

    /// What it was told by the last delivery, such as "- 2, > 0 3, + 1, ~ 4": removed from 2, moved from 0 to
    /// 3, inserted at 1, changed at 4.
    [[nodiscard]] std::string steps() const {
        std::string text;
        for (const ZAVTimelineDifference& step : last_.differences) {
            text += text.empty() ? "" : ", ";
            switch (step.kind) {
                case ZAVTimelineDifference::Kind::removed:
                    text += "- " + std::to_string(step.position);
                    break;
                case ZAVTimelineDifference::Kind::moved:
                    text += "> " + std::to_string(step.from) + " " + std::to_string(step.position);
                    break;
                case ZAVTimelineDifference::Kind::inserted:
                    text += "+ " + std::to_string(step.position);
                    break;
                case ZAVTimelineDifference::Kind::changed:
                    text += "~ " + std::to_string(step.position);
                    break;
            }
        }
        return text;
    }

private:
    using Kind = ZAVTimelineDifference::Kind;

    void show(const ZAVTimelineDelivery& delivery) {
        ++deliveries_;
        last_ = delivery;
        for (const ZAVTimelineDifference& step : delivery.differences) {
            apply(step, delivery.page.events);
        }
        // By the records: one that has not changed must be the one that is shown already.
        EXPECT_EQ(shown_, delivery.page.events) << "after " << steps();
        EXPECT_EQ(delivery.page.events.size(), delivery.page.cursors.size());
    }

    void apply(const ZAVTimelineDifference& step, const std::vector<std::shared_ptr<ZAVEvent>>& page) {
        const auto at = [&](std::size_t position) {
            return shown_.begin() + static_cast<std::ptrdiff_t>(position);
        };
        const bool adds = step.kind == Kind::inserted;
        ASSERT_LT(step.from, shown_.size() + (adds ? 1 : 0)) << steps();
        ASSERT_LT(step.position, shown_.size() + (adds ? 1 : 0)) << steps();
        if (step.kind == Kind::moved) {
            auto event = shown_[step.from];
            shown_.erase(at(step.from));
            shown_.insert(at(step.position), std::move(event));
            return;
        }
        EXPECT_EQ(step.from, step.position);
        if (step.kind == Kind::removed) {
            shown_.erase(at(step.position));
            return;
        }
        ASSERT_LT(step.position, page.size()) << steps();
        if (adds) {
            shown_.insert(at(step.position), page[step.position]);
        } else {
            EXPECT_EQ(shown_[step.position]->databaseIdentifier(), page[step.position]->databaseIdentifier());
            EXPECT_NE(shown_[step.position], page[step.position]) << "what changed is another record";
            shown_[step.position] = page[step.position];
        }
    }

    std::size_t deliveries_ = 0;
    ZAVTimelineDelivery last_;
    std::vector<std::shared_ptr<ZAVEvent>> shown_;
};

/// What a page says, for comparing it with another.
struct PageRecord {
    explicit PageRecord(const ZAVTimelinePage& page)
        : cursors(page.cursors), hasEarlier(page.hasEarlier), hasLater(page.hasLater), missing(page.missing) {
        for (const auto& event : page.events) {
            events.push_back(recordOf(*event));
        }
    }

    std::vector<EventRecord> events;
    std::vector<ZAVTimelineCursor> cursors;
    bool hasEarlier;
    bool hasLater;
    std::vector<ZAVSequenceGap> missing;

    friend bool operator==(const PageRecord&, const PageRecord&) = default;
};

/// A store whose stream is on the screen.
class WindowStore : public TimelineStore {
protected:
    [[nodiscard]] ZAVTimeline timeline(const ZAVTimelineOptions& options = {}) {
        return {store(), room(), options};
    }

    /// Opens a window that reads with each commit, and waits until it is on the screen.
    [[nodiscard]] std::unique_ptr<ZAVTimelineWindow> show(ZAVTimelineWindowOptions options = {},
                                                          const ZAVTimelineOptions& ofTimeline = {}) {
        options.coalescing = std::chrono::milliseconds(0);
        ZAVError error;
        auto window = ZAVTimelineWindow::open(timeline(ofTimeline), screen_.observer(), options, &error);
        EXPECT_NE(window, nullptr) << error.description();
        awaitDelivery(1);
        return window;
    }

    void awaitDelivery(std::size_t count) {
        loop().runUntil([&] { return screen_.deliveries() >= count; });
    }

    /// Waits for the next delivery after something has been done.
    template <class Act>
    void after(const Act& act) {
        const std::size_t before = screen_.deliveries();
        act();
        awaitDelivery(before + 1);
    }

    [[nodiscard]] Screen& screen() { return screen_; }

    /// The texts on the screen, with "..." on the sides where there is more.
    [[nodiscard]] std::string text() const { return pageText(screen_.last().page, screen_.last().error); }

    void addSequences(const std::vector<ZAVSequence>& sequences) {
        for (const ZAVSequence seq : sequences) {
            add(seq, std::to_string(seq));
        }
    }

    [[nodiscard]] ZAVTimelineCursor at(ZAVSequence seq) {
        return ZAVTimelineCursor::atSequence(streamOf(room()), seq);
    }

private:
    Screen screen_;
};

}  // namespace zav::test
