#include "Private/Foundation/Internal/ZAVPrintable.h"

#include <algorithm>
#include <array>
#include <charconv>

#include <ZAVEventRepository/ZAVUTF8.h>

namespace zav {
namespace {

constexpr std::size_t describedSize = 256;
constexpr std::string_view digits = "0123456789abcdef";

/// A character as it is printed: itself, or an escape.
class PrintedCharacter {
public:
    /// The well-formed character of `bytes`.
    static PrintedCharacter of(std::string_view bytes) noexcept {
        PrintedCharacter printed;
        if (bytes.size() == 1) {
            printed.printByte(static_cast<unsigned char>(bytes[0]));
        } else if (const unsigned point = codePoint(bytes); isUnsafe(point)) {
            printed.append("\\u");
            printed.appendDigits(point, 4);
        } else {
            printed.append(bytes);
        }
        return printed;
    }

    /// A byte that is not part of valid UTF-8.
    static PrintedCharacter ofStrayByte(char byte) noexcept {
        PrintedCharacter printed;
        printed.append("\\x");
        printed.appendDigits(static_cast<unsigned char>(byte), 2);
        return printed;
    }

    [[nodiscard]] std::string_view text() const noexcept { return {text_.data(), size_}; }

private:
    void printByte(unsigned char byte) noexcept {
        if (byte == '\n' || byte == '\r' || byte == '\t') {
            append(byte == '\n' ? "\\n" : byte == '\r' ? "\\r" : "\\t");
        } else if (byte < 0x20 || byte == 0x7F) {
            append("\\x");
            appendDigits(byte, 2);
        } else {
            text_[size_++] = static_cast<char>(byte);
        }
    }
    void append(std::string_view text) noexcept {
        std::copy(text.begin(), text.end(), text_.begin() + size_);
        size_ += text.size();
    }
    void appendDigits(unsigned number, unsigned count) noexcept {
        for (unsigned place = count; place-- > 0;) {
            text_[size_++] = digits[number >> (place * 4) & 0x0F];
        }
    }

    static unsigned codePoint(std::string_view bytes) noexcept {
        auto point = static_cast<unsigned char>(bytes[0]) & (0xFFU >> (bytes.size() + 1));
        for (const char byte : bytes.substr(1)) {
            point = point << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
        }
        return point;
    }

    /// Controls, separators of lines and paragraphs, and what turns the direction of writing.
    static bool isUnsafe(unsigned point) noexcept {
        return (point >= 0x80 && point <= 0x9F) || point == 0x061C || point == 0x200E || point == 0x200F ||
               (point >= 0x2028 && point <= 0x202E) || (point >= 0x2066 && point <= 0x2069);
    }

    std::array<char, 6> text_{};
    std::size_t size_ = 0;
};

/// Writes what stands in place of a rest, and returns its size. Takes 38 bytes at most.
std::size_t tellSizeOfWhole(std::size_t whole, char* destination) noexcept {
    constexpr std::string_view before = "\u2026(";
    constexpr std::string_view after = " bytes in all)";
    char* end = std::copy(before.begin(), before.end(), destination);
    end = std::to_chars(end, end + 20, whole).ptr;
    return static_cast<std::size_t>(std::copy(after.begin(), after.end(), end) - destination);
}

}  // namespace

std::size_t ZAVCopyPrintable(std::string_view text, std::span<char> destination) noexcept {
    constexpr std::size_t roomForSize = 38;
    std::size_t written = 0;
    std::size_t cut = 0;  // so much is kept when not all of it finds room
    for (std::size_t position = 0; position < text.size();) {
        const std::size_t size = ZAVUTF8CharacterSize(text.substr(position));
        const PrintedCharacter printed = size == 0 ? PrintedCharacter::ofStrayByte(text[position])
                                                   : PrintedCharacter::of(text.substr(position, size));
        if (printed.text().size() > destination.size() - written) {
            return cut + tellSizeOfWhole(text.size(), destination.data() + cut);
        }
        written += printed.text().copy(destination.data() + written, printed.text().size());
        if (written + roomForSize <= destination.size()) {
            cut = written;
        }
        position += std::max<std::size_t>(size, 1);
    }
    return written;
}

void ZAVAppendPrintable(std::string& description, std::string_view text) {
    std::array<char, describedSize> printable;
    description.append(printable.data(), ZAVCopyPrintable(text, printable));
}

}  // namespace zav
