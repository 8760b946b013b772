#include "Base64.h"

#include <array>
#include <cstdint>

namespace zavevents {
namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t notInAlphabet = 64;

constexpr std::array<std::uint8_t, 256> valueOf = []() {
    std::array<std::uint8_t, 256> table{};
    table.fill(notInAlphabet);
    for (std::size_t index = 0; index < alphabet.size(); ++index) {
        table[static_cast<unsigned char>(alphabet[index])] = static_cast<std::uint8_t>(index);
    }
    return table;
}();

}  // namespace

void appendBase64(std::string_view bytes, std::string& text) {
    for (std::size_t position = 0; position < bytes.size(); position += 3) {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - position);
        std::uint32_t group = 0;
        for (std::size_t index = 0; index < 3; ++index) {
            group = group << 8 | (index < count ? static_cast<unsigned char>(bytes[position + index]) : 0U);
        }
        for (std::size_t index = 0; index < 4; ++index) {
            text += index <= count ? alphabet[group >> (18 - 6 * index) & 63] : '=';
        }
    }
}

std::optional<zav::ZAVData> dataFromBase64(std::string_view text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    while (text.size() % 4 != 2 && text.ends_with('=')) {
        text.remove_suffix(1);
    }
    std::string bytes;
    std::uint32_t group = 0;
    int bits = 0;
    for (const char character : text) {
        const std::uint8_t value = valueOf[static_cast<unsigned char>(character)];
        if (value == notInAlphabet) {
            return std::nullopt;
        }
        group = group << 6 | value;
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes += static_cast<char>(group >> bits & 0xFF);
        }
    }
    if ((group & ((1U << bits) - 1)) != 0) {
        return std::nullopt;  // bits that stand for nothing: two texts would mean the same bytes
    }
    return zav::ZAVData::fromText(bytes);
}

}  // namespace zavevents
