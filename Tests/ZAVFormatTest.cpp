#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVFormat.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace zav::test {
namespace {

TEST(Format, PrintsMinusOneAsEachDirectiveSeesIt) {
    EXPECT_EQ(ZAVStringWithFormat("%d", -1), "-1");
    EXPECT_EQ(ZAVStringWithFormat("%ld", -1), "-1");
    EXPECT_EQ(ZAVStringWithFormat("%lld", -1), "-1");
    EXPECT_EQ(ZAVStringWithFormat("%u", -1), "4294967295");
    EXPECT_EQ(ZAVStringWithFormat("%lu", -1), "18446744073709551615");
    EXPECT_EQ(ZAVStringWithFormat("%llu", -1), "18446744073709551615");
}

TEST(Format, PrintsTheEndsOfEachRange) {
    constexpr auto low = std::numeric_limits<std::int64_t>::min();
    constexpr auto high = std::numeric_limits<std::uint64_t>::max();
    EXPECT_EQ(ZAVStringWithFormat("%lld", low), "-9223372036854775808");
    EXPECT_EQ(ZAVStringWithFormat("%ld", low), "-9223372036854775808");
    EXPECT_EQ(ZAVStringWithFormat("%llu", low), "9223372036854775808");
    EXPECT_EQ(ZAVStringWithFormat("%llu", high), "18446744073709551615");
    EXPECT_EQ(ZAVStringWithFormat("%lld", high), "-1");
    EXPECT_EQ(ZAVStringWithFormat("%d", std::numeric_limits<std::int32_t>::min()), "-2147483648");
    EXPECT_EQ(ZAVStringWithFormat("%u", std::numeric_limits<std::uint32_t>::max()), "4294967295");
    EXPECT_EQ(ZAVStringWithFormat("%d %u %lld %llu", 0, 0, 0, 0), "0 0 0 0");
}

TEST(Format, CutsWhatIsTooWideForTheDirective) {
    EXPECT_EQ(ZAVStringWithFormat(ZAVRuntimeFormat("%d"), std::int64_t{4294967297}), "1");
    EXPECT_EQ(ZAVStringWithFormat(ZAVRuntimeFormat("%d"), std::int64_t{2147483648}), "-2147483648");
    EXPECT_EQ(ZAVStringWithFormat(ZAVRuntimeFormat("%u"), std::int64_t{4294967297}), "1");
}

TEST(Format, PrintsNumbersOfEveryWidth) {
    EXPECT_EQ(ZAVStringWithFormat("%d %d %d", std::int8_t{-3}, std::uint8_t{200}, std::int16_t{-300}),
              "-3 200 -300");
    EXPECT_EQ(ZAVStringWithFormat("%u", std::uint32_t{4000000000}), "4000000000");
    EXPECT_EQ(ZAVStringWithFormat("%d %d", true, false), "1 0");
}

TEST(Format, PrintsANumberAsItIsWhereAnObjectIsAskedFor) {
    EXPECT_EQ(ZAVStringWithFormat("%@ %@", 1.9, -0.5), "1.9 -0.5");
    EXPECT_EQ(ZAVStringWithFormat("%@ %@ %@", 0.1F, 1e300, 3.25L), "0.1 1e+300 3.25");
    EXPECT_EQ(ZAVStringWithFormat("%@", 0.1 + 0.2), "0.30000000000000004")
        << "what is read back is another number";
    EXPECT_EQ(ZAVStringWithFormat("%@ %@", 2.0, -0.0), "2 -0");
    EXPECT_EQ(ZAVStringWithFormat("%@ %@ %@", std::numeric_limits<double>::quiet_NaN(),
                                  std::numeric_limits<double>::infinity(),
                                  -std::numeric_limits<double>::infinity()),
              "nan inf -inf");
    EXPECT_EQ(ZAVStringWithFormat("%@", std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
    EXPECT_EQ(ZAVStringWithFormat("%@", std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(ZAVStringWithFormat("%@ %@", true, false), "1 0");
    EXPECT_EQ(ZAVStringWithFormat("%@ %@", std::optional<double>(1.5), std::vector<double>{0.5, 2.25}),
              "1.5 {(0.5, 2.25)}");
    EXPECT_EQ(
        ZAVStringWithFormat("%@", std::vector<std::uint64_t>{std::numeric_limits<std::uint64_t>::max()}),
        "{(18446744073709551615)}");
}

TEST(Format, PrintsWhatIsNotAnIntegerWhateverTheDirective) {
    EXPECT_EQ(ZAVStringWithFormat(ZAVRuntimeFormat("%d %llu"), 1.9, "text"), "1.9 text");
}

enum Plain : std::int32_t { PlainMinusOne = -1, PlainTwo = 2 };
enum class Scoped : std::uint8_t { two = 2 };

TEST(Format, PrintsAnEnumeratorAsItsNumber) {
    EXPECT_EQ(ZAVStringWithFormat("%@ %d %lld", PlainMinusOne, PlainMinusOne, PlainMinusOne), "-1 -1 -1");
    EXPECT_EQ(ZAVStringWithFormat("%u %llu", PlainMinusOne, PlainMinusOne),
              "4294967295 18446744073709551615");
    EXPECT_EQ(ZAVStringWithFormat("%@ %d", PlainTwo, PlainTwo), "2 2");
    EXPECT_EQ(ZAVStringWithFormat("%@", std::vector<Plain>{PlainTwo}), "{(2)}");
    EXPECT_EQ(ZAVStringWithFormat("%@ %d", Scoped::two, Scoped::two), "2 2");
}

TEST(Format, PrintsObjectsAsTheyDescribeThemselves) {
    EXPECT_EQ(ZAVStringWithFormat("<%@>", std::string("text")), "<text>");
    EXPECT_EQ(ZAVStringWithFormat("<%@>", "literal"), "<literal>");
    EXPECT_EQ(ZAVStringWithFormat("%@", *ZAVUUID::fromString("00112233-4455-6677-8899-AABBCCDDEEFF")),
              "00112233-4455-6677-8899-aabbccddeeff");
    EXPECT_EQ(ZAVStringWithFormat("%@", *ZAVURL::URLWithString("https://example.org/a")),
              "https://example.org/a");
    EXPECT_EQ(ZAVStringWithFormat("%@", ZAVError("SQLite", 5, "database is locked")),
              "Error Domain=SQLite Code=5 \"database is locked\"");
    const auto event = std::make_shared<ZAVEvent>();
    EXPECT_EQ(ZAVStringWithFormat("%@", event), event->description());
}

TEST(Format, PrintsSomethingAbsentAsNull) {
    EXPECT_EQ(ZAVStringWithFormat("%@", std::optional<std::string>()), "(null)");
    EXPECT_EQ(ZAVStringWithFormat("%@", std::optional<std::string>("here")), "here");
    EXPECT_EQ(ZAVStringWithFormat("%@", std::optional<ZAVUUID>()), "(null)");
    EXPECT_EQ(ZAVStringWithFormat("%@", std::shared_ptr<ZAVEvent>()), "(null)");
    EXPECT_EQ(ZAVStringWithFormat("%@", ZAVError()), "(null)");
    EXPECT_EQ(ZAVStringWithFormat("%@", static_cast<const char*>(nullptr)), "(null)");
    EXPECT_EQ(ZAVStringWithFormat("%@", nullptr), "(null)");
}

TEST(Format, PrintsCollectionsInTheirOrder) {
    EXPECT_EQ(ZAVStringWithFormat("%@", std::vector<std::int64_t>{3, 1, 2}), "{(3, 1, 2)}");
    EXPECT_EQ(ZAVStringWithFormat("%@", std::vector<std::string>{"a"}), "{(a)}");
    EXPECT_EQ(ZAVStringWithFormat("%@", std::set<std::string>()), "{()}");
}

TEST(Format, PrintsTheBeginningOfALargeCollectionAndHowMuchThereIsBesides) {
    std::vector<std::string> letters(100, "a");
    const std::string hundred = ZAVStringWithFormat("%@", letters);
    EXPECT_TRUE(hundred.ends_with("a, a, a)}")) << hundred;
    letters.resize(1'000'000, "b");
    EXPECT_EQ(ZAVStringWithFormat("%@", letters),
              hundred.substr(0, hundred.size() - 2) + ", \u2026 and 999900 more)}");
    const std::vector<std::string> texts(50, std::string(1000, 'x'));
    const std::string some = ZAVStringWithFormat("%@", texts);
    EXPECT_LT(some.size(), 18'000U);
    EXPECT_TRUE(some.ends_with("xxx, \u2026 and 33 more)}")) << some.substr(some.size() - 40);
}

TEST(Format, PrintsEveryNumberOfACollection) {
    EXPECT_EQ(ZAVStringWithFormat("%@", std::vector<std::int64_t>(5000, 7)).size(), 5000U * 3 + 2);
}

TEST(Format, LeavesOutAnArgumentWithoutADirective) {
    EXPECT_EQ(ZAVStringWithFormat(ZAVRuntimeFormat("one"), 1), "one");
    EXPECT_EQ(ZAVStringWithFormat(ZAVRuntimeFormat("%d"), 1, "two", 3.0), "1");
}

TEST(Format, PrintsAPercentSignForTwo) {
    EXPECT_EQ(ZAVStringWithFormat("100%%"), "100%");
    EXPECT_EQ(ZAVStringWithFormat("%%d is %d", 7), "%d is 7") << "an escaped percent sign took an argument";
    EXPECT_EQ(ZAVStringWithFormat("%%%d%%", 7), "%7%");
}

TEST(Format, FillsDirectivesInOrderAndKeepsTheTextAround) {
    EXPECT_EQ(ZAVStringWithFormat("a=%@, b=%d; c=%llu.", "x", -2, 3U), "a=x, b=-2; c=3.");
    EXPECT_EQ(ZAVStringWithFormat("%lldlld%dd", 1, 2), "1lld2d");
    EXPECT_EQ(ZAVStringWithFormat(""), "");
    EXPECT_EQ(ZAVStringWithFormat("no directive"), "no directive");
}

TEST(Format, NeverReadsAnArgumentAsAFormat) {
    EXPECT_EQ(ZAVStringWithFormat("%@ %d", "%d %@ %%", 5), "%d %@ %% 5");
}

TEST(Format, LeavesADirectiveWithoutAnArgumentAsItStands) {
    EXPECT_EQ(ZAVStringWithFormat(ZAVRuntimeFormat("%d")), "%d");
    EXPECT_EQ(ZAVStringWithFormat(ZAVRuntimeFormat("%d and %@"), 1), "1 and %@");
    EXPECT_EQ(ZAVStringWithFormat(ZAVRuntimeFormat("50%")), "50%");
    EXPECT_EQ(ZAVStringWithFormat(ZAVRuntimeFormat("%")), "%");
    EXPECT_EQ(ZAVStringWithFormat(ZAVRuntimeFormat("%q %d"), 4), "%q 4")
        << "something that is no directive took an argument";
}

TEST(Format, TakesAFormatThatIsKnownOnlyAtRunTime) {
    std::string format = "%@ of ";
    format += "%d";
    EXPECT_EQ(ZAVStringWithFormat(ZAVRuntimeFormat(format), "one", 3), "one of 3");
    static constexpr std::string_view constant = "%@ of %d";
    EXPECT_EQ(ZAVStringWithFormat(constant, "one", 3), "one of 3") << "a constant need not be a literal";
}

TEST(Format, KeepsLongAndUnusualText) {
    const std::string longText(100'000, 'x');
    EXPECT_EQ(ZAVStringWithFormat("%@!", longText), longText + "!");
    const std::string withZero("a\0b", 3);
    EXPECT_EQ(ZAVStringWithFormat("%@", withZero), withZero);
}

}  // namespace
}  // namespace zav::test
