#include <ZAVEventRepository/ZAVUUID.h>

#include <algorithm>
#include <random>

namespace zav {
namespace {

constexpr std::size_t textLength = 36;

constexpr bool isHyphenPosition(std::size_t position) noexcept {
    return position == 8 || position == 13 || position == 18 || position == 23;
}

constexpr int digitValue(char digit) noexcept {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    if (digit >= 'A' && digit <= 'F') {
        return digit - 'A' + 10;
    }
    return -1;
}

}  // namespace

ZAVUUID ZAVUUID::random() {
    std::random_device source;
    Bytes bytes;
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(source()); });
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);
    return ZAVUUID(bytes);
}

std::optional<ZAVUUID> ZAVUUID::fromString(std::string_view text) noexcept {
    if (text.size() != textLength) {
        return std::nullopt;
    }
    Bytes bytes;
    std::size_t position = 0;
    for (std::uint8_t& byte : bytes) {
        if (isHyphenPosition(position) && text[position++] != '-') {
            return std::nullopt;
        }
        const int high = digitValue(text[position]);
        const int low = digitValue(text[position + 1]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        byte = static_cast<std::uint8_t>(high * 16 + low);
        position += 2;
    }
    return ZAVUUID(bytes);
}

std::string ZAVUUID::UUIDString() const {
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string text(textLength, '-');
    std::size_t position = 0;
    for (const std::uint8_t byte : bytes_) {
        if (isHyphenPosition(position)) {
            ++position;
        }
        text[position++] = digits[byte >> 4];
        text[position++] = digits[byte & 0x0F];
    }
    return text;
}

std::optional<ZAVUUID> ZAVUUIDFromData(const std::optional<ZAVData>& data) noexcept {
    if (!data || data->size() != std::tuple_size_v<ZAVUUID::Bytes>) {
        return std::nullopt;
    }
    ZAVUUID::Bytes bytes;
    std::copy(data->begin(), data->end(), bytes.begin());
    return ZAVUUID(bytes);
}

std::optional<ZAVData> ZAVDataFromUUID(const std::optional<ZAVUUID>& uuid) {
    return uuid ? std::optional(ZAVData(uuid->bytes())) : std::nullopt;
}

}  // namespace zav
