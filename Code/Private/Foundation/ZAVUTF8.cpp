#include <ZAVEventRepository/ZAVUTF8.h>

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

std::size_t ZAVUTF8CharacterSize(std::string_view text) noexcept {
    const auto byte = [&](std::size_t position) { return static_cast<unsigned char>(text[position]); };
    if (text.empty() || byte(0) < 0x80) {
        return text.empty() ? 0 : 1;
    }
    const Lead lead = leadOf(byte(0));
    if (lead.continuations == 0 || text.size() <= lead.continuations || byte(1) < lead.secondFrom ||
        byte(1) > lead.secondTo) {
        return 0;
    }
    for (std::size_t position = 2; position <= lead.continuations; ++position) {
        if ((byte(position) & 0xC0) != 0x80) {
            return 0;
        }
    }
    return lead.continuations + 1;
}

bool ZAVIsUTF8(std::string_view text) noexcept {
    for (std::size_t position = 0; position < text.size();) {
        if (static_cast<unsigned char>(text[position]) < 0x80) {
            ++position;
            continue;
        }
        const std::size_t size = ZAVUTF8CharacterSize(text.substr(position));
        if (size == 0) {
            return false;
        }
        position += size;
    }
    return true;
}

}  // namespace zav
