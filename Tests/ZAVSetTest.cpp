#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVSet.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace zav::test {
namespace {

using Events = ZAVSet<ZAVEvent>;

std::vector<std::shared_ptr<ZAVEvent>> makeEvents(std::size_t count) {
    std::vector<std::shared_ptr<ZAVEvent>> events;
    for (std::size_t index = 0; index < count; ++index) {
        events.push_back(std::make_shared<ZAVEvent>());
    }
    return events;
}

std::vector<std::shared_ptr<ZAVEvent>> elementsOf(const Events& set) {
    return {set.begin(), set.end()};
}

TEST(SetOfRecords, IsEmptyAtFirst) {
    const Events set;
    EXPECT_TRUE(set.empty());
    EXPECT_EQ(set.size(), 0U);
    EXPECT_EQ(set.begin(), set.end());
    EXPECT_FALSE(set.contains(std::make_shared<ZAVEvent>()));
}

TEST(SetOfRecords, KeepsTheOrderOfInsertion) {
    const auto events = makeEvents(40);
    Events set;
    for (const auto& event : events) {
        EXPECT_TRUE(set.insert(event));
    }
    EXPECT_EQ(elementsOf(set), events);
    EXPECT_EQ(set[0], events[0]);
    EXPECT_EQ(set[39], events[39]);
}

TEST(SetOfRecords, HoldsARecordOnceWhereItWasFirstInserted) {
    const auto events = makeEvents(3);
    Events set{events[0], events[1], events[0], events[2], events[1]};
    EXPECT_EQ(elementsOf(set), events);
    EXPECT_FALSE(set.insert(events[0])) << "a record was taken in twice";
    EXPECT_EQ(set.size(), 3U);
}

TEST(SetOfRecords, TellsTwoRecordsOfTheSameRowApart) {
    const auto first = std::make_shared<ZAVEvent>(7, 1);
    const auto second = std::make_shared<ZAVEvent>(7, 1);
    const Events set{first, second};
    EXPECT_EQ(set.size(), 2U);
    EXPECT_FALSE(set.contains(std::make_shared<ZAVEvent>(7, 1))) << "equal fields do not make a member";
}

TEST(SetOfRecords, KnowsItsMembersAfterTheirFieldsChanged) {
    const auto events = makeEvents(100);
    Events set;
    for (const auto& event : events) {
        set.insert(event);
    }
    ZAVDatabaseIdentifier row = 0;
    for (const auto& event : set) {
        event->setDatabaseIdentifier(++row);
        event->set_type(EventType_MESSAGE);
        event->set_client_id(ZAVData::fromText("the same for all"));
    }
    for (const auto& event : events) {
        EXPECT_TRUE(set.contains(event)) << "a member got lost when it was changed";
        EXPECT_FALSE(set.insert(event));
    }
    EXPECT_EQ(set.size(), 100U);
}

TEST(SetOfRecords, RefusesNull) {
    Events set{std::make_shared<ZAVEvent>()};
    EXPECT_THROW(set.insert(nullptr), std::invalid_argument);
    EXPECT_THROW((Events{nullptr}), std::invalid_argument);
    EXPECT_EQ(set.size(), 1U);
}

TEST(SetOfRecords, IsASetOfTheBaseClass) {
    const auto events = makeEvents(20);
    Events set;
    for (const auto& event : events) {
        set.insert(event);
    }
    ZAVSet<ZAVTEvent> base = set;
    ASSERT_EQ(base.size(), 20U);
    for (std::size_t index = 0; index < events.size(); ++index) {
        EXPECT_EQ(base[index], events[index]) << "the order changed at " << index;
        EXPECT_TRUE(base.contains(events[index]));
    }
    EXPECT_FALSE(base.insert(events[0]));
    EXPECT_TRUE(base.insert(std::make_shared<ZAVTEvent>()));
    EXPECT_EQ(set.size(), 20U) << "the set that was converted grew with the other";
    static_assert(!std::is_convertible_v<ZAVSet<ZAVTEvent>, Events>, "a base record is no event");
}

TEST(SetOfRecords, SharesItsRecordsWithItsCopies) {
    const auto events = makeEvents(2);
    const Events original{events[0]};
    Events copy = original;
    copy.insert(events[1]);
    EXPECT_EQ(original.size(), 1U);
    EXPECT_EQ(copy.size(), 2U);
    EXPECT_EQ(copy[0], original[0]);
    EXPECT_FALSE(original.contains(events[1]));
}

TEST(SetOfRecords, KeepsARecordAlive) {
    auto event = std::make_shared<ZAVEvent>();
    const std::weak_ptr<ZAVEvent> watch = event;
    Events set{event};
    event.reset();
    EXPECT_FALSE(watch.expired());
    set.clear();
    EXPECT_TRUE(watch.expired()) << "a cleared set still holds a record";
    EXPECT_TRUE(set.empty());
}

TEST(SetOfRecords, KeepsTheOrderWhenOneIsErased) {
    const auto events = makeEvents(4);
    Events set{events[0], events[1], events[2], events[3]};
    EXPECT_TRUE(set.erase(events[1]));
    EXPECT_FALSE(set.erase(events[1])) << "what is not there cannot be erased";
    EXPECT_EQ(elementsOf(set), (std::vector{events[0], events[2], events[3]}));
    EXPECT_FALSE(set.contains(events[1]));
    EXPECT_TRUE(set.contains(events[3]));
    EXPECT_TRUE(set.insert(events[1]));
    EXPECT_EQ(set[3], events[1]) << "a record that is inserted again comes last";
}

TEST(SetOfRecords, KnowsWhatWasAppended) {
    const auto events = makeEvents(50);
    Events set;
    for (const auto& event : events) {
        set.append(event);
        EXPECT_TRUE(set.contains(event));
    }
    EXPECT_EQ(elementsOf(set), events);
    EXPECT_FALSE(set.insert(events[17]));
}

TEST(SetOfRecords, StaysQuickWhenItIsLarge) {
    constexpr std::size_t count = 200'000;
    const auto events = makeEvents(count);
    Events set;
    set.reserve(count);
    for (const auto& event : events) {
        ASSERT_TRUE(set.insert(event));
    }
    for (const auto& event : events) {
        ASSERT_FALSE(set.insert(event));
        ASSERT_TRUE(set.contains(event));
    }
    EXPECT_EQ(set.size(), count);
    EXPECT_EQ(set[count - 1], events[count - 1]);
    EXPECT_FALSE(set.contains(std::make_shared<ZAVEvent>()));
}

}  // namespace
}  // namespace zav::test
