#include <ZAVEventRepository/FMParameter.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Support/DatabaseHandles.h"

namespace zav::test {
namespace {

/// The storage class of the value that is bound, in the engine's words.
template <class Value>
std::string classOf(const Value& value) {
    const auto database = openHandle();
    auto rows = database->executeQuery("SELECT typeof(?)", value);
    EXPECT_TRUE(rows && rows->next()) << database->lastError().description();
    return rows ? rows->stringForColumnIndex(0).value_or("none") : "none";
}

TEST(BoundValue, ThatIsANullPointerIsNull) {
    EXPECT_EQ(classOf(nullptr), "null");
    EXPECT_EQ(classOf(std::nullopt), "null");
    EXPECT_EQ(classOf(static_cast<const char*>(nullptr)), "null");
    EXPECT_EQ(classOf(static_cast<char*>(nullptr)), "null");
    EXPECT_EQ(classOf(std::optional<const char*>(nullptr)), "null");
    EXPECT_EQ(classOf(ZAVValue(nullptr)), "null");
    EXPECT_EQ(classOf(ZAVValue(static_cast<const char*>(nullptr))), "null");
}

TEST(BoundValue, ThatIsATextIsText) {
    EXPECT_EQ(classOf("text"), "text");
    EXPECT_EQ(classOf(static_cast<const char*>("text")), "text");
    EXPECT_EQ(classOf(""), "text");
    EXPECT_EQ(classOf(std::string_view()), "text") << "a view of nothing is an empty text";
    EXPECT_EQ(classOf(ZAVValue("text")), "text");
}

TEST(BoundValue, InAListOfValuesMayBeANullPointer) {
    const auto database = openHandle();
    const std::vector<ZAVValue> values{nullptr, static_cast<const char*>(nullptr), "text"};
    auto rows =
        database->executeQueryWithArgumentsInArray("SELECT typeof(?) || typeof(?) || typeof(?)", values);
    ASSERT_TRUE(rows && rows->next()) << database->lastError().description();
    EXPECT_EQ(rows->stringForColumnIndex(0), "nullnulltext");
}

}  // namespace
}  // namespace zav::test
