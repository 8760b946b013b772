#include "Model/Comparison.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Support/TestStore.h"

/// A comparison that notices nothing would agree with everything.
namespace zav::test {
namespace {

PartRecord partNumber(std::int64_t index, std::int64_t size = 0) {
    PartRecord part;
    part.index = index;
    part.size.set(size);
    return part;
}

std::optional<ZAVSet<ZAVEventContent>> found(const std::vector<PartRecord>& records) {
    ZAVSet<ZAVEventContent> set;
    for (const PartRecord& record : records) {
        set.insert(std::dynamic_pointer_cast<ZAVEventContent>(makePart(record)));
    }
    return set;
}

TEST(ComparisonWithTheModel, NoticesAChangedRowOfEveryTable) {
    for (
        const std::string change : {
            "UPDATE streams SET seq = 5 WHERE database_identifier = 3",
            "INSERT INTO events (type, client_id) VALUES (1, x'')",
            "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier) VALUES (0, 1)",
            "INSERT INTO synced_changes (table_name, row_identifier, change_type) VALUES ('events', 1, 0)",
            "DELETE FROM conversations",
            "UPDATE conversation_participants SET member_id = CAST(member_id AS BLOB) WHERE member_id = 'bob'",
            "UPDATE messages SET seq = 1 WHERE database_identifier = 2",
            "INSERT INTO keyed_values_local VALUES (1, 'event', 0, 'a', 'text', NULL)",
            "INSERT INTO keyed_values_remote VALUES (1, 'event', 0, 'a', 'text', NULL)",
        }) {
        Comparison both;
        ASSERT_TRUE(both.execute(change)) << both.database().lastError().description();
        EXPECT_THROW(both.agreeOnEverything(), Disagreement) << change;
    }
}

TEST(ComparisonWithTheModel, NoticesARecordThatChanged) {
    Comparison both;
    dynamic_cast<ZAVEvent&>(*both.event(2)).setDatabaseIdentifier(7);
    EXPECT_THROW(both.agreeOnEverything(), Disagreement);
}

TEST(ComparisonWithTheModel, NoticesATransactionAndACursorThatStayOpen) {
    Comparison both;
    ASSERT_TRUE(both.execute("BEGIN"));
    EXPECT_THROW(both.agreeOnEverything(), Disagreement);
    ASSERT_TRUE(both.execute("COMMIT"));
    both.agreeOnEverything();
    const auto rows = both.database().executeQuery("SELECT * FROM streams");
    EXPECT_THROW(both.agreeOnEverything(), Disagreement);
}

TEST(ComparisonWithTheModel, NoticesAnErrorThatNobodyExpects) {
    Comparison both;
    const auto failing = [](ZAVError* error) {
        ZAVStoreError(error, {"SQLite", 1, "failed"});
        return true;
    };
    EXPECT_THROW(both.agree(failing, [] { return ModelAnswer<bool>{true}; }), Disagreement);
    EXPECT_THROW(both.agree([](ZAVError*) { return true; },
                            [] {
                                return ModelAnswer<bool>{true, 1};
                            }),
                 Disagreement);
    EXPECT_THROW(both.agree(failing, [] { return ModelAnswer<bool>{true, 2}; }), Disagreement);
    both.agree([](ZAVError*) { return true; }, [] { return ModelAnswer<bool>{true}; });
}

TEST(ComparisonWithTheModel, NoticesWhatIsThrownAndWhatIsNot) {
    Comparison both;
    const auto throwing = [](ZAVError*) -> bool { throw NSInternalInconsistencyException("reason"); };
    const auto violation = [](const char* reason) {
        return [reason]() -> ModelAnswer<bool> { throw Violation{reason}; };
    };
    EXPECT_THROW(both.agree(throwing, [] { return ModelAnswer<bool>{true}; }), Disagreement);
    EXPECT_THROW(both.agree(throwing, violation("another reason")), Disagreement);
    EXPECT_THROW(both.agree([](ZAVError*) { return true; }, violation("reason")), Disagreement);
    both.agree(throwing, violation("reason"));
}

TEST(ComparisonWithTheModel, TakesWhatHasNoOrderInAnyOrderButOnceEach) {
    const StoreModel::Parts expected = StoreModel::Part{{{partNumber(1), partNumber(2)}}, {}, {}};
    EXPECT_FALSE(objection(found({partNumber(1), partNumber(2)}), expected));
    EXPECT_FALSE(objection(found({partNumber(2), partNumber(1)}), expected));
    EXPECT_TRUE(objection(found({partNumber(1), partNumber(1)}), expected));
    EXPECT_TRUE(objection(found({partNumber(1)}), expected));
    EXPECT_TRUE(objection(found({partNumber(1), partNumber(2), partNumber(2)}), expected));
    EXPECT_TRUE(objection(std::optional<ZAVSet<ZAVEventContent>>(), expected));
}

TEST(ComparisonWithTheModel, HoldsWhatIsOrderedToItsOrder) {
    const StoreModel::Parts expected =
        StoreModel::Part{{{partNumber(1)}, {partNumber(2), partNumber(3)}}, 2, {}};
    EXPECT_FALSE(objection(found({partNumber(1), partNumber(3)}), expected));
    EXPECT_FALSE(objection(found({partNumber(1), partNumber(2)}), expected));
    EXPECT_TRUE(objection(found({partNumber(2), partNumber(1)}), expected));
    EXPECT_TRUE(objection(found({partNumber(2), partNumber(3)}), expected));
    EXPECT_TRUE(objection(found({partNumber(1), partNumber(2), partNumber(3)}), expected));
}

TEST(ComparisonWithTheModel, TakesNoMorePartsThanASizeTakes) {
    const StoreModel::Parts expected =
        StoreModel::Part{{{partNumber(1, 10)}, {partNumber(2, 20)}, {partNumber(3, 30)}}, {}, 29};
    EXPECT_FALSE(objection(found({partNumber(1, 10), partNumber(2, 20)}), expected));
    EXPECT_TRUE(objection(found({partNumber(1, 10)}), expected));
    EXPECT_TRUE(objection(found({partNumber(1, 10), partNumber(2, 20), partNumber(3, 30)}), expected));
}

}  // namespace
}  // namespace zav::test
