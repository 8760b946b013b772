#include <ZAVEventRepository/ZAVUTF8.h>
#include <gtest/gtest.h>

#include <string_view>

namespace zav::test {
namespace {

TEST(UTF8, IsWellFormedAtTheBordersOfEachLength) {
    for (const std::string_view text : {
             std::string_view(""),
             std::string_view("\0", 1),
             std::string_view("plain\x7F"),
             std::string_view("\xC2\x80"),
             std::string_view("\xDF\xBF"),
             std::string_view("\xE0\xA0\x80"),
             std::string_view("\xED\x9F\xBF"),
             std::string_view("\xEE\x80\x80"),
             std::string_view("\xEF\xBF\xBF"),
             std::string_view("\xF0\x90\x80\x80"),
             std::string_view("\xF4\x8F\xBF\xBF"),
             std::string_view("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z"),
         }) {
        EXPECT_TRUE(ZAVIsUTF8(text)) << testing::PrintToString(text) << " is well-formed";
    }
}

TEST(UTF8, IsRefusedWhenItIsMalformed) {
    for (const std::string_view text : {
             std::string_view("\x80"),  // a continuation that continues nothing
             std::string_view("\xBF"),
             std::string_view("\xC0\x80"),  // overlong
             std::string_view("\xC1\xBF"),
             std::string_view("\xE0\x80\x80"),
             std::string_view("\xE0\x9F\xBF"),
             std::string_view("\xF0\x80\x80\x80"),
             std::string_view("\xF0\x8F\xBF\xBF"),
             std::string_view("\xED\xA0\x80"),  // surrogates
             std::string_view("\xED\xBF\xBF"),
             std::string_view("\xF4\x90\x80\x80"),  // past the last code point
             std::string_view("\xF5\x80\x80\x80"),
             std::string_view("\xFE"),  // leads nothing
             std::string_view("\xFF"),
             std::string_view("\xC3"),  // cut short
             std::string_view("\xE2\x82"),
             std::string_view("\xF0\x9F\x98"),
             std::string_view("ok\xC3"),
             std::string_view("\xC3("),  // a continuation that is none
             std::string_view("\xE2(\xAC"),
             std::string_view("\xE2\x82("),
             std::string_view("\xF0(\x98\x80"),
             std::string_view("\xF0\x9F(\x80"),
             std::string_view("\xF0\x9F\x98("),
             std::string_view("\xC3\xC3\xA9"),
             std::string_view("caf\xE9"),               // another encoding
             std::string_view("\xF8\x88\x80\x80\x80"),  // five bytes
             std::string_view("good\xC3\xA9\x80 end"),  // one continuation too many
         }) {
        EXPECT_FALSE(ZAVIsUTF8(text)) << testing::PrintToString(text) << " is malformed";
    }
}

TEST(UTF8, IsNotReadPastTheEndOfTheText) {
    const std::string_view whole("\xE2\x82\xAC");
    EXPECT_TRUE(ZAVIsUTF8(whole));
    EXPECT_FALSE(ZAVIsUTF8(whole.substr(0, 2))) << "the byte after the text was taken for a part of it";
}

TEST(UTF8, TellsHowManyBytesTheFirstCharacterTakes) {
    EXPECT_EQ(ZAVUTF8CharacterSize("plain"), 1U);
    EXPECT_EQ(ZAVUTF8CharacterSize(std::string_view("\0", 1)), 1U);
    EXPECT_EQ(ZAVUTF8CharacterSize("\u00E9x"), 2U);
    EXPECT_EQ(ZAVUTF8CharacterSize("\u20ACx"), 3U);
    EXPECT_EQ(ZAVUTF8CharacterSize("\U0001F600x"), 4U);
    for (const std::string_view text : {"", "\x80", "\xC3", "\xC3(", "\xED\xA0\x80", "\xFF"}) {
        EXPECT_EQ(ZAVUTF8CharacterSize(text), 0U)
            << testing::PrintToString(text) << " begins with no character";
    }
}

}  // namespace
}  // namespace zav::test
