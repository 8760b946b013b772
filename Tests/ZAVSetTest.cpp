#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVSet.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <utility>
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

TEST(SetOfRecords, AppendsNoNullAndNoRecordTwice) {
    const auto events = makeEvents(40);
    Events set;
    EXPECT_THROW(set.append(nullptr), std::invalid_argument);
    for (const auto& event : events) {
        EXPECT_TRUE(set.append(event));
        EXPECT_FALSE(set.append(event)) << "a record was taken in twice";
    }
    EXPECT_TRUE(set.append(std::make_shared<ZAVEvent>()));
    EXPECT_EQ(set.size(), 41U);
    EXPECT_FALSE(set.append(set[40]));
    EXPECT_FALSE(set.append(events[3]));
}

TEST(SetOfRecords, StaysQuickWhenItIsAskedAfterEachRecordThatIsAdded) {
    const auto events = makeEvents(100'000);
    Events set;
    for (const auto& event : events) {
        ASSERT_TRUE(set.append(event));
        ASSERT_TRUE(set.contains(event));
    }
    Events fresh;
    for (std::size_t count = 0; count < events.size(); ++count) {
        ASSERT_TRUE(fresh.append(std::make_shared<ZAVEvent>()));
        ASSERT_FALSE(fresh.contains(events[count]));
    }
}

TEST(SetOfRecords, MayBeAskedBySeveralThreadsAtOnce) {
    const auto events = makeEvents(5'000);
    for (int round = 0; round < 20; ++round) {
        Events filled;
        for (const auto& event : events) {
            filled.append(event);
        }
        const Events set = filled;  // a copy has not been asked yet
        std::atomic<int> found = 0;
        std::vector<std::thread> readers;
        for (int reader = 0; reader < 4; ++reader) {
            readers.emplace_back([&] {
                for (const auto& event : events) {
                    found += set.contains(event) ? 1 : 0;
                }
            });
        }
        for (std::thread& reader : readers) {
            reader.join();
        }
        ASSERT_EQ(found, 20'000);
    }
}

TEST(SetOfRecords, KnowsItsMembersAfterItWasCopiedMovedAndAssigned) {
    const auto events = makeEvents(100);
    Events set;
    for (const auto& event : events) {
        set.insert(event);
    }
    EXPECT_TRUE(set.contains(events[99]));
    Events moved = std::move(set);
    EXPECT_TRUE(set.empty())
        << "a set that was moved from still has elements";  // NOLINT: that is the contract
    EXPECT_FALSE(set.contains(events[99]));
    EXPECT_TRUE(set.insert(events[5])) << "a set that was moved from cannot be used";
    EXPECT_TRUE(moved.contains(events[99]));
    Events assigned{std::make_shared<ZAVEvent>()};
    assigned = moved;
    EXPECT_EQ(elementsOf(assigned), events);
    EXPECT_TRUE(assigned.contains(events[50]));
    EXPECT_FALSE(assigned.insert(events[50]));
    assigned = std::move(moved);
    EXPECT_EQ(elementsOf(assigned), events);
    EXPECT_TRUE(assigned.contains(events[50]));
    const Events& itself = assigned;
    assigned = itself;
    EXPECT_EQ(elementsOf(assigned), events);
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
