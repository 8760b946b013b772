#include <ZAVEventRepository/ZAVTimelineCursor.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace zav::test {
namespace {

constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t greatest = std::numeric_limits<std::int64_t>::max();

TEST(CursorOfATimeline, is_the_same_when_its_text_is_read) {
    for (const auto& cursor :
         {ZAVTimelineCursor::atSequence(3, 128), ZAVTimelineCursor::atSequence(least, greatest),
          ZAVTimelineCursor::atWaiting(3, 2, 77), ZAVTimelineCursor::atWaiting(greatest, -5, least)}) {
        EXPECT_EQ(ZAVTimelineCursor::fromText(cursor.text()), cursor) << cursor.text();
    }
}

TEST(CursorOfATimeline, tells_what_it_names) {
    const auto sequenced = ZAVTimelineCursor::atSequence(3, 128);
    EXPECT_EQ(sequenced.stream(), 3);
    EXPECT_EQ(sequenced.seq(), 128);
    EXPECT_EQ(sequenced.waitingEvent(), std::nullopt);
    const auto waiting = ZAVTimelineCursor::atWaiting(3, 2, 77);
    EXPECT_EQ(waiting.seq(), std::nullopt);
    EXPECT_EQ(waiting.clientSeq(), 2);
    EXPECT_EQ(waiting.waitingEvent(), 77);
    EXPECT_NE(waiting, ZAVTimelineCursor::atSequence(3, 2));
}

TEST(CursorOfATimeline, has_a_text_without_blanks_that_stays_the_same_between_versions) {
    EXPECT_EQ(ZAVTimelineCursor::atSequence(3, 128).text().substr(0, 8), "s.3.128.");
    EXPECT_EQ(ZAVTimelineCursor::atWaiting(3, 2, 77).text().substr(0, 9), "w.3.2.77.");
    EXPECT_EQ(ZAVTimelineCursor::atSequence(3, 128).text().size(), 12U);
}

TEST(CursorOfATimeline, is_not_made_of_a_text_that_was_damaged) {
    const std::string text = ZAVTimelineCursor::atWaiting(3, 2, 77).text();
    std::vector<std::string> damaged{"",        ".",        "s",        "s.3",      "128",
                                     "s.3.128", text + "0", ' ' + text, text + '\0'};
    for (std::size_t position = 0; position < text.size(); ++position) {
        damaged.push_back(text.substr(0, position));
        damaged.push_back(text);
        damaged.back()[position] = text[position] == '7' ? '1' : '7';
    }
    for (const std::string& other : damaged) {
        ZAVError error;
        EXPECT_FALSE(ZAVTimelineCursor::fromText(other, &error)) << other;
        EXPECT_EQ(error.domain(), "ZAVEventStore") << other;
        EXPECT_EQ(error.code(), 15) << other;
        EXPECT_TRUE(error.message().starts_with("this is not the cursor of an event: ")) << error.message();
    }
}

}  // namespace
}  // namespace zav::test
