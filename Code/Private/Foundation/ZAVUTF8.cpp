#include "Private/Foundation/ZAVUTF8.h"

#include <cstddef>

namespace zav {
namespace {

struct Lead {
    std::size_t continuations;
    unsigned char
        secondFrom;  ///< bounds of the byte after the lead: they rule out overlong forms and surrogates
    unsigned char secondTo;
};

/// What a lead byte announces; no continuations for a byte that leads nothing.
constexpr Lead leadOf(unsigned char byte) noexcept {
    if (byte >= 0xC2 && byte <= 0xDF) {
        return {1, 0x80, 0xBF};
    }
    if (byte >= 0xE0 && byte <= 0xEF) {
        return {2, static_cast<unsigned char>(byte == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(byte == 0xED ? 0x9F : 0xBF)};
    }
    if (byte >= 0xF0 && byte <= 0xF4) {
        return {3, static_cast<unsigned char>(byte == 0xF0 ? 0x90 : 0x80),
                static_cast<unsigned char>(byte == 0xF4 ? 0x8F : 0xBF)};
    }
    return {0, 0, 0};
}

}  // namespace

bool ZAVIsUTF8(std::string_view text) noexcept {
    for (std::size_t position = 0; position < text.size();) {
        const auto byte = [&](std::size_t offset) {
            return static_cast<unsigned char>(text[position + offset]);
        };
        if (byte(0) < 0x80) {
            ++position;
            continue;
        }
        const Lead lead = leadOf(byte(0));
        if (lead.continuations == 0 || text.size() - position <= lead.continuations ||
            byte(1) < lead.secondFrom || byte(1) > lead.secondTo) {
            return false;
        }
        for (std::size_t offset = 2; offset <= lead.continuations; ++offset) {
            if ((byte(offset) & 0xC0) != 0x80) {
                return false;
            }
        }
        position += lead.continuations + 1;
    }
    return true;
}

}  // namespace zav
