#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVObject.h>
#include <ZAVEventRepository/ZAVSet.h>
#include <ZAVEventRepository/ZAVURL.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

/// The printable form that `%@` stands for. Something absent prints as "(null)".
[[nodiscard]] inline std::string ZAVDescription(std::string_view text) {
    return std::string(text);
}

/// The text, or "(null)" for a null pointer.
[[nodiscard]] inline std::string ZAVDescription(const char* text) {
    return text == nullptr ? "(null)" : text;
}

/// "(null)".
[[nodiscard]] inline std::string ZAVDescription(std::nullptr_t) {
    return "(null)";
}

/// The canonical text.
[[nodiscard]] inline std::string ZAVDescription(const ZAVUUID& uuid) {
    return uuid.UUIDString();
}

/// The absolute string.
[[nodiscard]] inline std::string ZAVDescription(const ZAVURL& url) {
    return url.absoluteString();
}

/// Domain, code and message.
[[nodiscard]] inline std::string ZAVDescription(const ZAVError& error) {
    return error.description();
}

/// Class and fields.
[[nodiscard]] inline std::string ZAVDescription(const ZAVObject& object) {
    return object.description();
}

/// Decimal digits; 1 or 0 for a truth value, the number of a character.
template <std::integral Number>
[[nodiscard]] std::string ZAVDescription(Number number) {
    return std::to_string(number);
}

/// The enumerator's number.
template <class Enumeration>
requires std::is_enum_v<Enumeration>
[[nodiscard]] std::string ZAVDescription(Enumeration enumerator) {
    return std::to_string(static_cast<std::underlying_type_t<Enumeration>>(enumerator));
}

/// The shortest digits that are read back as the same number, such as "1.9"; "nan", "inf", "-inf".
[[nodiscard]] ZAV_EXPORT std::string ZAVDescription(float number);

/// As for a `float`.
[[nodiscard]] ZAV_EXPORT std::string ZAVDescription(double number);

/// As for a `float`.
[[nodiscard]] ZAV_EXPORT std::string ZAVDescription(long double number);

/// That of the value, or "(null)".
template <class T>
[[nodiscard]] std::string ZAVDescription(const std::optional<T>& value) {
    return value ? ZAVDescription(*value) : "(null)";
}

/// That of the object, or "(null)".
template <class T>
[[nodiscard]] std::string ZAVDescription(const std::shared_ptr<T>& value) {
    return value ? ZAVDescription(*value) : "(null)";
}

/// How many elements the description of a collection of other than integers shows at most.
inline constexpr std::size_t ZAVDescribedElementCount = 100;

/// After how many characters the description of such a collection shows no further element.
inline constexpr std::size_t ZAVDescribedElementsSize = 16384;

/// "{(first, second)}", in the container's order; of a large one the first elements and how many there are
/// besides: "{(first, second, … and 999998 more)}".
template <class Range>
requires requires(const Range& range) {
    ZAVDescription(*range.begin());
} &&(!std::convertible_to<const Range&, std::string_view>) [[nodiscard]] std::string
    ZAVDescription(const Range& range) {
    std::string text = "{(";
    std::size_t described = 0;
    std::size_t left = 0;
    for (const auto& element : range) {
        const bool full = described == ZAVDescribedElementCount || text.size() > ZAVDescribedElementsSize;
        if (left != 0 || (full && !std::integral<std::remove_cvref_t<decltype(element)>>)) {
            ++left;
            continue;
        }
        text += described++ == 0 ? "" : ", ";
        text += ZAVDescription(element);
    }
    if (left != 0) {
        text += ", \u2026 and " + std::to_string(left) + " more";
    }
    return text + ")}";
}

/// One argument of a printf-style format: an integer, or an object as its printable form.
class ZAV_EXPORT ZAVFormatArgument {
public:
    /// An integer, a truth value or a character.
    template <std::integral Number>
    ZAVFormatArgument(Number number) {
        if constexpr (std::is_signed_v<Number>) {
            value_ = static_cast<std::int64_t>(number);
        } else {
            value_ = static_cast<std::uint64_t>(number);
        }
    }

    /// The enumerator's number.
    template <class Enumeration>
    requires std::is_enum_v<Enumeration> ZAVFormatArgument(Enumeration enumerator)
        : ZAVFormatArgument(static_cast<std::underlying_type_t<Enumeration>>(enumerator)) {}

    /// An object as its printable form, made at once.
    template <class Object>
    requires(!std::integral<Object> && !std::is_enum_v<Object>) ZAVFormatArgument(const Object& object)
        : value_(ZAVDescription(object)) {}

    /// Appends the argument as the directive asks for it: `directive` is what follows the percent sign.
    void append(std::string_view directive, std::string& text) const;

private:
    std::variant<std::int64_t, std::uint64_t, std::string> value_;
};

/// Formats as printf does, with the directives `%@` (objects, and numbers as they are), `%d` `%u` (32 bits),
/// `%ld`
/// `%lld` `%lu` `%llu` (64 bits) and `%%`. What is no integer is printed as `%@` prints it whatever the
/// directive. A directive without an argument is printed as it stands, and so is what is none; an argument
/// without a directive is left out.
[[nodiscard]] ZAV_EXPORT std::string ZAVStringWithFormatArguments(
    std::string_view format, std::span<const ZAVFormatArgument> arguments);

/// `ZAVStringWithFormatArguments` of whatever a `ZAVFormatArgument` is made from.
template <class... Arguments>
[[nodiscard]] std::string ZAVStringWithFormat(std::string_view format, const Arguments&... arguments) {
    const std::array<ZAVFormatArgument, sizeof...(Arguments)> packed{ZAVFormatArgument(arguments)...};
    return ZAVStringWithFormatArguments(format, packed);
}

}  // namespace zav
