#include "JSONNumbers.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <system_error>

namespace zavevents {
namespace {

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

/// Passes over digits; false when there is none.
bool passDigits(std::string_view& text) {
    const auto count =
        static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isDigit) - text.begin());
    text.remove_prefix(count);
    return count != 0;
}

/// Passes over one of several characters, if it comes next.
bool pass(std::string_view& text, std::string_view characters) {
    const bool isNext = !text.empty() && characters.find(text.front()) != std::string_view::npos;
    text.remove_prefix(isNext ? 1 : 0);
    return isNext;
}

/// Whether a text is a number by JSON's rules, by which no zero stands before another digit.
bool isNumber(std::string_view text) {
    const std::string_view digits = text.substr(text.starts_with('-') ? 1 : 0);
    return isDecimal(text) && !(digits.size() > 1 && digits[0] == '0' && isDigit(digits[1]));
}

/// The longest run of characters that numbers are made of.
std::string_view numberAt(std::string_view text) {
    return text.substr(0, text.find_first_not_of("+-.0123456789eE"));
}

/// The end of the string that begins a text, behind its quote.
std::size_t endOfString(std::string_view text) {
    std::size_t position = 1;
    while (position < text.size() && text[position] != '"') {
        position += text[position] == '\\' ? 2 : 1;
    }
    return std::min(position + 1, text.size());
}

bool isLongInteger(std::string_view number) {
    std::int64_t value = 0;
    const auto [end, status] = std::from_chars(number.data(), number.data() + number.size(), value);
    return status == std::errc::result_out_of_range && end == number.data() + number.size();
}

void appendReadable(std::string_view number, std::string& out) {
    if (!isNumber(number)) {
        out += number;
    } else if (std::isinf(std::strtod(std::string(number).c_str(), nullptr))) {
        out += number.front() == '-' ? "-1.7976931348623157e308" : "1.7976931348623157e308";
    } else {
        out += number;
        out += isLongInteger(number) ? "e0" : "";
    }
}

}  // namespace

bool isDecimal(std::string_view text) {
    pass(text, "-");
    if (!passDigits(text) || (pass(text, ".") && !passDigits(text))) {
        return false;
    }
    if (pass(text, "eE")) {
        pass(text, "+-");
        return passDigits(text) && text.empty();
    }
    return text.empty();
}

std::string withReadableNumbers(std::string_view line) {
    std::string out;
    out.reserve(line.size() + 16);
    while (!line.empty()) {
        const char first = line.front();
        std::size_t length = 1;
        if (first == '"') {
            length = endOfString(line);
            out += line.substr(0, length);
        } else if (first == '-' || isDigit(first)) {
            const std::string_view number = numberAt(line);
            length = number.size();
            appendReadable(number, out);
        } else {
            out += first;
        }
        line.remove_prefix(length);
    }
    return out;
}

}  // namespace zavevents
