#include <ZAVEventRepository/ZAVUUID.h>
#include <gtest/gtest.h>
#include <compare>

#include <optional>
#include <set>
#include <string>

namespace zav::test {
namespace {

constexpr const char* canonicalText = "00112233-4455-6677-8899-aabbccddeeff";
constexpr ZAVUUID::Bytes canonicalBytes = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                                           0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};

TEST(UUIDText, HoldsTheBytesInTheirOrder) {
    const auto uuid = ZAVUUID::fromString(canonicalText);
    ASSERT_TRUE(uuid) << canonicalText << " was refused";
    EXPECT_EQ(uuid->bytes(), canonicalBytes);
}

TEST(UUIDText, IsWrittenWithLowerCaseDigitsAndHyphens) {
    EXPECT_EQ(ZAVUUID(canonicalBytes).UUIDString(), canonicalText);
    EXPECT_EQ(ZAVUUID().UUIDString(), "00000000-0000-0000-0000-000000000000");
}

TEST(UUIDText, IsReadInEitherCase) {
    EXPECT_EQ(ZAVUUID::fromString("00112233-4455-6677-8899-AABBCCDDEEFF"), ZAVUUID(canonicalBytes));
    EXPECT_EQ(ZAVUUID::fromString("00112233-4455-6677-8899-aAbBcCdDeEfF"), ZAVUUID(canonicalBytes));
}

TEST(UUIDText, IsRefusedInAnyOtherForm) {
    for (const char* text : {
             "",
             "00112233445566778899aabbccddeeff",
             "{00112233-4455-6677-8899-aabbccddeeff}",
             "urn:uuid:00112233-4455-6677-8899-aabbccddeeff",
             "00112233-4455-6677-8899-aabbccddeef",
             "00112233-4455-6677-8899-aabbccddeeff0",
             " 0112233-4455-6677-8899-aabbccddeeff",
             "00112233-4455-6677-8899-aabbccddeef ",
             "0011223-34455-6677-8899-aabbccddeeff",
             "00112233_4455_6677_8899_aabbccddeeff",
             "0011223g-4455-6677-8899-aabbccddeeff",
             "-0112233-4455-6677-8899-aabbccddeeff",
             "0x112233-4455-6677-8899-aabbccddeeff",
             "+0112233-4455-6677-8899-aabbccddeeff",
         }) {
        EXPECT_EQ(ZAVUUID::fromString(text), std::nullopt) << "'" << text << "' was read as a UUID";
    }
}

TEST(RandomUUID, SaysThatItIsRandom) {
    for (int count = 0; count < 50; ++count) {
        const std::string text = ZAVUUID::random().UUIDString();
        EXPECT_EQ(text[14], '4') << "the version of " << text;
        EXPECT_NE(std::string("89ab").find(text[19]), std::string::npos) << "the variant of " << text;
        EXPECT_EQ(ZAVUUID::fromString(text)->UUIDString(), text);
    }
}

TEST(RandomUUID, IsNewEachTime) {
    std::set<ZAVUUID> seen;
    for (int count = 0; count < 1000; ++count) {
        seen.insert(ZAVUUID::random());
    }
    EXPECT_EQ(seen.size(), 1000U);
}

TEST(UUIDBytes, AreStoredInTheOrderOfTheText) {
    const auto data = ZAVDataFromUUID(ZAVUUID(canonicalBytes));
    ASSERT_TRUE(data);
    EXPECT_EQ(data->asText(),
              std::string("\x00\x11\x22\x33\x44\x55\x66\x77\x88\x99\xAA\xBB\xCC\xDD\xEE\xFF", 16));
    EXPECT_EQ(ZAVUUIDFromData(data), ZAVUUID(canonicalBytes));
}

TEST(UUIDBytes, AreNoUUIDUnlessTheyAreSixteen) {
    for (const std::size_t size : {0U, 1U, 15U, 17U, 32U, 36U}) {
        EXPECT_EQ(ZAVUUIDFromData(ZAVData::fromText(std::string(size, 'x'))), std::nullopt)
            << size << " bytes were read as a UUID";
    }
}

TEST(UUIDBytes, AreAbsentWhenTheUUIDIsAndTheOtherWayRound) {
    EXPECT_EQ(ZAVDataFromUUID(std::nullopt), std::nullopt);
    EXPECT_EQ(ZAVUUIDFromData(std::nullopt), std::nullopt);
}

TEST(UUIDOrder, IsThatOfTheBytes) {
    const auto low = ZAVUUID::fromString("0fffffff-ffff-ffff-ffff-ffffffffffff");
    const auto high = ZAVUUID::fromString("f0000000-0000-0000-0000-000000000000");
    EXPECT_LT(*low, *high);
    EXPECT_NE(*low, *high);
    EXPECT_EQ(*low <=> *high, std::strong_ordering::less);
    EXPECT_EQ(*low <=> *low, std::strong_ordering::equal);
    const auto last = ZAVUUID::fromString("0fffffff-ffff-ffff-ffff-fffffffffffe");
    EXPECT_LT(*last, *low) << "the last byte was not compared";
    EXPECT_LT(ZAVUUID(), *low) << "a UUID made from nothing has only zero bytes";
}

}  // namespace
}  // namespace zav::test
