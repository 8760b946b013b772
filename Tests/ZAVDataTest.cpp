#include <ZAVEventRepository/ZAVData.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace zav::test {
namespace {

std::string bytesOfSize(std::size_t size) {
    std::string bytes;
    for (std::size_t index = 0; index < size; ++index) {
        bytes += static_cast<char>('a' + index % 26);
    }
    return bytes;
}

/// Nothing, a UUID, and the sizes around the border between the bytes kept inside the object and those
/// outside.
class ByteStrings : public testing::TestWithParam<std::size_t> {
protected:
    const std::string bytes_ = bytesOfSize(GetParam());
    const ZAVData data_ = ZAVData::fromText(bytes_);
};

INSTANTIATE_TEST_SUITE_P(OfSize, ByteStrings, testing::Values(0U, 1U, 15U, 16U, 17U, 1000U),
                         testing::PrintToStringParamName());

TEST_P(ByteStrings, HoldTheBytesTheyWereMadeFrom) {
    EXPECT_EQ(data_.size(), GetParam());
    EXPECT_EQ(data_.empty(), GetParam() == 0);
    EXPECT_EQ(data_.asText(), bytes_);
    EXPECT_EQ(std::string(data_.begin(), data_.end()), bytes_);
}

TEST_P(ByteStrings, AreNeverNull) {
    EXPECT_NE(data_.data(), nullptr);
}

TEST_P(ByteStrings, OwnTheirBytes) {
    std::string source = bytes_;
    const ZAVData data = ZAVData::fromText(source);
    source.assign(source.size(), '!');
    EXPECT_EQ(data.asText(), bytes_) << "the bytes changed with the text they were made from";
}

TEST_P(ByteStrings, ACopyIsEqualAndIndependent) {
    ZAVData original = data_;
    const ZAVData copy(original);
    original = ZAVData::fromText("something else, longer than sixteen bytes");
    EXPECT_EQ(copy, data_) << "the copy changed with its original";
}

TEST_P(ByteStrings, MovingTakesTheBytesAndLeavesNone) {
    ZAVData original = data_;
    const ZAVData moved(std::move(original));
    EXPECT_EQ(moved, data_);
    EXPECT_TRUE(original.empty()) << "a byte string that was moved away still holds bytes";
    original = data_;
    EXPECT_EQ(original, data_) << "a byte string that was moved away cannot be used again";
}

TEST_P(ByteStrings, AssignmentReplacesBytesOfAnySize) {
    for (const std::size_t before : {0U, 16U, 17U, 400U}) {
        ZAVData copied = ZAVData::fromText(bytesOfSize(before));
        copied = data_;
        EXPECT_EQ(copied, data_) << "copied over " << before << " bytes";

        ZAVData moved = ZAVData::fromText(bytesOfSize(before));
        ZAVData source = data_;
        moved = std::move(source);
        EXPECT_EQ(moved, data_) << "moved over " << before << " bytes";
        EXPECT_TRUE(source.empty());
    }
}

TEST_P(ByteStrings, AssigningToItselfChangesNothing) {
    ZAVData data = data_;
    ZAVData& same = data;
    data = same;
    EXPECT_EQ(data, data_) << "copied onto itself";
    data = std::move(same);
    EXPECT_EQ(data, data_) << "moved onto itself";
}

TEST_P(ByteStrings, DifferWhenOneByteDiffers) {
    const ZAVData longer = ZAVData::fromText(bytes_ + '!');
    EXPECT_NE(data_, longer);
    EXPECT_LT(data_, longer) << "the shorter of two byte strings with a common beginning comes first";
    if (!bytes_.empty()) {
        std::string changed = bytes_;
        changed.back() = '~';
        EXPECT_NE(data_, ZAVData::fromText(changed));
        EXPECT_LT(data_, ZAVData::fromText(changed));
    }
}

TEST(ByteString, IsMadeEmptyFromNothing) {
    EXPECT_TRUE(ZAVData().empty());
    EXPECT_NE(ZAVData().data(), nullptr);
    EXPECT_EQ(ZAVData(nullptr, 0), ZAVData());
}

TEST(ByteString, KeepsZeroBytes) {
    const std::string bytes("a\0b\0", 4);
    EXPECT_EQ(ZAVData::fromText(bytes).size(), 4U);
    EXPECT_EQ(ZAVData::fromText(bytes).asText(), bytes);
}

TEST(ByteString, OrdersBytesAsUnsigned) {
    EXPECT_LT(ZAVData::fromText("\x7F"), ZAVData::fromText("\x80"));
}

TEST(ByteString, StaysWholeWhileAContainerMovesIt) {
    std::vector<ZAVData> all;
    for (std::size_t size = 0; size < 40; ++size) {
        all.push_back(ZAVData::fromText(bytesOfSize(size)));
    }
    for (std::size_t size = 0; size < 40; ++size) {
        EXPECT_EQ(all[size].asText(), bytesOfSize(size));
    }
}

}  // namespace
}  // namespace zav::test
