#include <ZAVEventRepository/ZAVPrintable.h>
#include <gtest/gtest.h>

#include <array>
#include <span>
#include <string>
#include <string_view>

namespace zav::test {
namespace {

/// What a text is printed as, by the kind of its escapes.
struct Printed {
    std::string_view text;
    const char* characters;
    const char* bytes;
    const char* invalidUTF8;
};

const Printed texts[] = {
    {"", "", "", ""},
    {"plain ~ text\\n", "plain ~ text\\n", "plain ~ text\\n", "plain ~ text\\n"},
    {"\u00FC\u20AC\U0001F600", "\u00FC\u20AC\U0001F600", "\u00FC\u20AC\U0001F600", "\u00FC\u20AC\U0001F600"},
    {"a\nb\r\t", "a\\nb\\r\\t", "a\\x0ab\\x0d\\x09", "a\nb\r\t"},
    {"\x1b[2J\x7f", "\\x1b[2J\\x7f", "\\x1b[2J\\x7f", "\x1b[2J\x7f"},
    {"\u0080\u009B\u00A0", "\\u0080\\u009b\u00A0", "\\xc2\\x80\\xc2\\x9b\u00A0", "\u0080\u009B\u00A0"},
    {"\u061C\u200D\u200E\u200F\u2010", "\\u061c\u200D\\u200e\\u200f\u2010",
     "\\xd8\\x9c\u200D\\xe2\\x80\\x8e\\xe2\\x80\\x8f\u2010", "\u061C\u200D\u200E\u200F\u2010"},
    {"\u2027\u2028\u202E\u202F", "\u2027\\u2028\\u202e\u202F", "\u2027\\xe2\\x80\\xa8\\xe2\\x80\\xae\u202F",
     "\u2027\u2028\u202E\u202F"},
    {"\u2065\u2066\u2069\u206A", "\u2065\\u2066\\u2069\u206A", "\u2065\\xe2\\x81\\xa6\\xe2\\x81\\xa9\u206A",
     "\u2065\u2066\u2069\u206A"},
    {"\xFF\xC3(\xED\xA0\x80\xF0\x9F", "\\xff\\xc3(\\xed\\xa0\\x80\\xf0\\x9f",
     "\\xff\\xc3(\\xed\\xa0\\x80\\xf0\\x9f", "\\xff\\xc3(\\xed\\xa0\\x80\\xf0\\x9f"},
};

TEST(Printable, EscapesWhatIsNotShownInTheWayThatIsAskedFor) {
    for (const Printed& expected : texts) {
        EXPECT_EQ(ZAVPrintable(expected.text, ZAVEscapesCharacters), expected.characters);
        EXPECT_EQ(ZAVPrintable(expected.text, ZAVEscapesBytes), expected.bytes);
        EXPECT_EQ(ZAVPrintable(expected.text, ZAVEscapesInvalidUTF8), expected.invalidUTF8);
        EXPECT_EQ(ZAVPrintable(expected.text), expected.bytes) << "bytes are escaped unless it is said";
    }
}

TEST(Printable, HasAZeroByteEscaped) {
    EXPECT_EQ(ZAVPrintable(std::string_view("a\0b", 3)), "a\\x00b");
    EXPECT_EQ(ZAVPrintable(std::string_view("a\0b", 3), ZAVEscapesCharacters), "a\\x00b");
}

TEST(Printable, IsCutAfterAThousandBytesAndSaysSo) {
    EXPECT_EQ(ZAVPrintable(std::string(1000, 'x')), std::string(1000, 'x'));
    EXPECT_EQ(ZAVPrintable(std::string(1001, 'x')), std::string(1000, 'x') + "...");
    EXPECT_EQ(ZAVPrintable(std::string(998, 'x') + "\n"), std::string(998, 'x') + "...")
        << "an escape is written in full or not at all";
    EXPECT_EQ(ZAVPrintable(std::string(998, 'x') + "\u20AC"), std::string(998, 'x') + "...")
        << "a character is written in full or not at all";
    EXPECT_EQ(ZAVPrintable(std::string(997, 'x') + "\u20AC"), std::string(997, 'x') + "\u20AC");
}

std::string copied(std::string_view text, std::size_t room) {
    std::array<char, 200> destination;
    return {destination.data(), ZAVCopyPrintable(text, std::span(destination).first(room))};
}

TEST(PrintableCopy, FillsItsRoomWithAWholeTextAndElseTellsItsSize) {
    EXPECT_EQ(copied("a\u2028\n", 64), "a\\u2028\\n");
    EXPECT_EQ(copied(std::string(64, 'x'), 64), std::string(64, 'x'));
    EXPECT_EQ(copied(std::string(65, 'x'), 64), std::string(26, 'x') + "\u2026(65 bytes in all)");
    std::string breaks;
    for (int count = 0; count < 31; ++count) {
        breaks += "\\n";
    }
    EXPECT_EQ(copied(std::string(64, '\n'), 100), breaks + "\u2026(64 bytes in all)");
}

TEST(PrintableCopy, IsAppendedToADescriptionInNoMoreThan256Bytes) {
    std::string description = "name=";
    ZAVAppendPrintable(description, "a\nb");
    EXPECT_EQ(description, "name=a\\nb");
    ZAVAppendPrintable(description, std::string(257, 'x'));
    EXPECT_EQ(description, "name=a\\nb" + std::string(218, 'x') + "\u2026(257 bytes in all)");
}

}  // namespace
}  // namespace zav::test
