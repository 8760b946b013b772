#include <ZAVEventRepository/ZAVPrintable.h>

#include <algorithm>
#include <array>
#include <charconv>

#include <ZAVEventRepository/ZAVUTF8.h>

namespace zav {
namespace {

constexpr std::size_t describedSize = 256;
constexpr std::string_view digits = "0123456789abcdef";

/// Whether a character is shown as it is.
bool isShown(unsigned point) noexcept {
    return point >= 0x20 && (point < 0x7F || point > 0x9F) &&        // controls
           point != 0x061C && point != 0x200E && point != 0x200F &&  // marks of direction
           (point < 0x2028 ||
            point > 0x202E) &&  // separators of lines and paragraphs, embeddings and overrides
           (point < 0x2066 || point > 0x2069);  // isolates
}

unsigned codePoint(std::string_view character) noexcept {
    if (character.size() == 1) {
        return static_cast<unsigned char>(character[0]);
    }
    auto point = static_cast<unsigned char>(character[0]) & (0xFFU >> (character.size() + 1));
    for (const char byte : character.substr(1)) {
        point = point << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
    }
    return point;
}

/// The first character of a text, or the byte that begins none, as it is printed.
class PrintedCharacter {
public:
    PrintedCharacter(std::string_view text, ZAVEscapes escapes) noexcept {
        const std::size_t size = ZAVUTF8CharacterSize(text);
        source_ = text.substr(0, std::max<std::size_t>(size, 1));
        const unsigned point = codePoint(source_);
        if (size != 0 && (escapes == ZAVEscapesInvalidUTF8 || isShown(point))) {
            append(source_);
        } else if (size != 0 && escapes == ZAVEscapesCharacters) {
            appendName(point);
        } else {
            appendBytes();
        }
    }

    [[nodiscard]] std::string_view text() const noexcept { return {text_.data(), size_}; }

    /// How many bytes of the text it stands for.
    [[nodiscard]] std::size_t sourceSize() const noexcept { return source_.size(); }

private:
    void appendName(unsigned point) noexcept {
        if (point == '\n' || point == '\r' || point == '\t') {
            append(point == '\n' ? "\\n" : point == '\r' ? "\\r" : "\\t");
        } else if (source_.size() == 1) {
            appendBytes();
        } else {
            append("\\u");
            appendDigits(point, 4);
        }
    }
    void appendBytes() noexcept {
        for (const char byte : source_) {
            append("\\x");
            appendDigits(static_cast<unsigned char>(byte), 2);
        }
    }
    void append(std::string_view text) noexcept { size_ += text.copy(text_.data() + size_, text.size()); }
    void appendDigits(unsigned number, unsigned count) noexcept {
        for (unsigned place = count; place-- > 0;) {
            text_[size_++] = digits[number >> (place * 4) & 0x0F];
        }
    }

    std::string_view source_;
    std::array<char, 16> text_{};  // room for four escaped bytes
    std::size_t size_ = 0;
};

/// Hands the characters of a text, as they are printed, to `take` until it answers false; whether it took
/// all.
template <class Take>
bool printEach(std::string_view text, ZAVEscapes escapes, const Take& take) {
    while (!text.empty()) {
        const PrintedCharacter printed(text, escapes);
        if (!take(printed.text())) {
            return false;
        }
        text.remove_prefix(printed.sourceSize());
    }
    return true;
}

/// Writes what stands in place of a rest, and returns its size. Takes 38 bytes at most.
std::size_t tellSizeOfWhole(std::size_t whole, char* destination) noexcept {
    constexpr std::string_view before = "\u2026(";
    constexpr std::string_view after = " bytes in all)";
    char* end = std::copy(before.begin(), before.end(), destination);
    end = std::to_chars(end, end + 20, whole).ptr;
    return static_cast<std::size_t>(std::copy(after.begin(), after.end(), end) - destination);
}

}  // namespace

std::string ZAVPrintable(std::string_view text, ZAVEscapes escapes) {
    std::string result;
    const bool isWhole = printEach(text, escapes, [&result](std::string_view printed) {
        const bool fits = result.size() + printed.size() <= ZAVPrintableSize;
        result += fits ? printed : std::string_view();
        return fits;
    });
    return isWhole ? result : result + "...";
}

std::size_t ZAVCopyPrintable(std::string_view text, std::span<char> destination) noexcept {
    constexpr std::size_t roomForSize = 38;
    std::size_t written = 0;
    std::size_t cut = 0;  // so much is kept when not all of it finds room
    const bool isWhole = printEach(text, ZAVEscapesCharacters, [&](std::string_view printed) {
        if (printed.size() > destination.size() - written) {
            return false;
        }
        written += printed.copy(destination.data() + written, printed.size());
        if (written + roomForSize <= destination.size()) {
            cut = written;
        }
        return true;
    });
    return isWhole ? written : cut + tellSizeOfWhole(text.size(), destination.data() + cut);
}

void ZAVAppendPrintable(std::string& description, std::string_view text) {
    std::array<char, describedSize> printable;
    description.append(printable.data(), ZAVCopyPrintable(text, printable));
}

}  // namespace zav
