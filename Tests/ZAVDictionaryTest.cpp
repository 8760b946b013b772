#include <ZAVEventRepository/ZAVDictionary.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace zav::test {
namespace {

ZAVDictionaryValue text(const char* value) {
    return std::string(value);
}

TEST(Dictionary, IsEmptyAtFirst) {
    const ZAVDictionary dictionary;
    EXPECT_TRUE(dictionary.empty());
    EXPECT_EQ(dictionary.size(), 0U);
    EXPECT_EQ(dictionary.begin(), dictionary.end());
    EXPECT_EQ(dictionary.find("a"), nullptr);
    EXPECT_EQ(dictionary, ZAVDictionary{});
}

TEST(Dictionary, IsEmptyWhenItIsMadeOfNoEntries) {
    const ZAVDictionary dictionary(std::initializer_list<ZAVDictionary::Entries::value_type>{});
    EXPECT_TRUE(dictionary.empty());
    EXPECT_EQ(dictionary, ZAVDictionary());
}

TEST(Dictionary, HoldsTextAndBytesApart) {
    const ZAVDictionary dictionary{{"text", text("value")}, {"bytes", ZAVData::fromText("value")}};
    ASSERT_NE(dictionary.find("text"), nullptr);
    ASSERT_NE(dictionary.find("bytes"), nullptr);
    EXPECT_EQ(*dictionary.find("text"), text("value"));
    EXPECT_EQ(*dictionary.find("bytes"), ZAVDictionaryValue(ZAVData::fromText("value")));
    EXPECT_NE(*dictionary.find("text"), *dictionary.find("bytes")) << "text and bytes are not the same value";
}

TEST(Dictionary, IsEnumeratedInKeyOrder) {
    ZAVDictionary dictionary;
    for (const char* key : {"b", "", "a", "B", "ab"}) {
        dictionary.set(key, text("x"));
    }
    std::vector<std::string> keys;
    for (const auto& [key, value] : dictionary) {
        keys.push_back(key);
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"", "B", "a", "ab", "b"}));
}

TEST(Dictionary, ReplacesTheValueOfAKey) {
    ZAVDictionary dictionary{{"a", text("old")}};
    dictionary.set("a", ZAVData::fromText("new"));
    EXPECT_EQ(dictionary.size(), 1U);
    EXPECT_EQ(*dictionary.find("a"), ZAVDictionaryValue(ZAVData::fromText("new")));
}

TEST(Dictionary, RemovesAKeyAndNothingElse) {
    ZAVDictionary dictionary{{"a", text("1")}, {"b", text("2")}};
    dictionary.remove("a");
    dictionary.remove("absent");
    EXPECT_EQ(dictionary, (ZAVDictionary{{"b", text("2")}}));
    dictionary.remove("b");
    EXPECT_EQ(dictionary, ZAVDictionary()) << "emptied and never filled are the same";
    ZAVDictionary never;
    never.remove("a");
    EXPECT_TRUE(never.empty());
}

TEST(Dictionary, ACopyIsIndependent) {
    ZAVDictionary original{{"a", text("1")}};
    const ZAVDictionary copy = original;
    ZAVDictionary assigned;
    assigned = original;
    original.set("a", text("2"));
    EXPECT_EQ(copy, (ZAVDictionary{{"a", text("1")}}));
    EXPECT_EQ(assigned, copy);
    EXPECT_NE(original, copy);
}

TEST(Dictionary, AssigningToItselfChangesNothing) {
    ZAVDictionary dictionary{{"a", text("1")}};
    const ZAVDictionary& same = dictionary;
    dictionary = same;
    EXPECT_EQ(dictionary, (ZAVDictionary{{"a", text("1")}}));
}

TEST(Dictionary, MovingTakesTheEntriesAndLeavesNone) {
    ZAVDictionary original{{"a", text("1")}};
    const ZAVDictionary moved = std::move(original);
    EXPECT_EQ(moved.size(), 1U);
    EXPECT_TRUE(original.empty());
    original.set("b", text("2"));
    EXPECT_EQ(original, (ZAVDictionary{{"b", text("2")}}));
}

TEST(Dictionary, DiffersByKeyByValueAndByKindOfValue) {
    const ZAVDictionary dictionary{{"a", text("1")}};
    EXPECT_NE(dictionary, (ZAVDictionary{{"b", text("1")}}));
    EXPECT_NE(dictionary, (ZAVDictionary{{"a", text("2")}}));
    EXPECT_NE(dictionary, (ZAVDictionary{{"a", ZAVData::fromText("1")}}));
    EXPECT_NE(dictionary, ZAVDictionary());
}

}  // namespace
}  // namespace zav::test
