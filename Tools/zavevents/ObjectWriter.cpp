#include "ObjectWriter.h"

#include <algorithm>
#include <cmath>

#include <ZAVEventRepository/ZAVUTF8.h>

#include "Base64.h"

namespace zavevents {
namespace {

using namespace zav;

void appendEscaped(std::string_view text, std::string& out) {
    static constexpr std::string_view digits = "0123456789abcdef";
    static constexpr std::string_view withLetter = "\"\\\n\r\t";  // their escapes are a letter, or themselves
    static constexpr std::string_view letters = "\"\\nrt";
    std::size_t plainFrom = 0;
    for (std::size_t position = 0; position < text.size(); ++position) {
        const auto byte = static_cast<unsigned char>(text[position]);
        if (byte >= 0x20 && byte != '"' && byte != '\\') {
            continue;
        }
        out += text.substr(plainFrom, position - plainFrom);
        plainFrom = position + 1;
        out += '\\';
        if (const std::size_t index = withLetter.find(text[position]); index != std::string_view::npos) {
            out += letters[index];
        } else {
            out += "u00";
            out += digits[byte >> 4];
            out += digits[byte & 0x0F];
        }
    }
    out += text.substr(plainFrom);
}

}  // namespace

void appendJSONString(std::string_view text, std::string& out) {
    out += '"';
    if (ZAVIsUTF8(text)) {
        appendEscaped(text, out);
    } else {
        while (!text.empty()) {
            const std::size_t size = ZAVUTF8CharacterSize(text);
            if (size == 0) {
                out += "\xEF\xBF\xBD";
            }
            appendEscaped(text.substr(0, size), out);
            text.remove_prefix(std::max<std::size_t>(size, 1));
        }
    }
    out += '"';
}

void ObjectWriter::key(std::string_view name) {
    if (!first_) {
        out_ += ',';
    }
    first_ = false;
    out_ += '"';
    out_ += name;
    out_ += "\":";
}

void ObjectWriter::add(std::string_view name, ZAVDate date) {
    const double seconds = ZAVSecondsSince1970(date);
    if (std::isfinite(seconds)) {  // JSON has no other numbers
        key(name);
        std::array<char, 64> digits;
        char* const begin = digits.data();
        char* const limit = begin + digits.size();
        // Whole seconds in plain digits; else whatever is shortest and reads back the same. Many digits
        // without a point or an exponent would be taken for an integer, and be too long for one.
        const bool isWhole = seconds == std::trunc(seconds);
        const auto end = !isWhole ? std::to_chars(begin, limit, seconds)
                         : std::abs(seconds) < 1e15
                             ? std::to_chars(begin, limit, seconds, std::chars_format::fixed)
                             : std::to_chars(begin, limit, seconds, std::chars_format::scientific);
        out_.append(begin, end.ptr);
    }
}

void ObjectWriter::addBase64(std::string_view name, const ZAVData& data) {
    key(name);
    out_ += '"';
    appendBase64(data.asText(), out_);
    out_ += '"';
}

}  // namespace zavevents
