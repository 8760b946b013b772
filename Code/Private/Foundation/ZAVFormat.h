#pragma once

#include <array>
#include <concepts>
#include <cstddef>
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

/// The directives that take an argument, in the order in which they are looked for.
inline constexpr std::array<std::string_view, 7> ZAVFormatDirectives = {"@",  "d",   "u",  "ld",
                                                                        "lu", "lld", "llu"};

/// The directive that `text`, which follows a percent sign, begins with; empty when it begins with none.
[[nodiscard]] constexpr std::string_view ZAVFormatDirectiveAt(std::string_view text) noexcept {
    for (const std::string_view directive : ZAVFormatDirectives) {
        if (text.starts_with(directive)) {
            return directive;
        }
    }
    return {};
}

/// Formats as printf does, with the directives `%@` (objects, and numbers as they are), `%d` `%u` (32 bits),
/// `%ld` `%lld` `%lu` `%llu` (64 bits) and `%%`. An argument that is not an integer is printed as `%@` prints
/// it whatever the directive. A directive without an argument is printed as it stands, and so is a percent
/// sign that begins no directive; an argument without a directive is left out.
[[nodiscard]] ZAV_EXPORT std::string ZAVStringWithFormatArguments(
    std::string_view format, std::span<const ZAVFormatArgument> arguments);

/// A format that is known only at run time: its directives are not compared with its arguments.
struct ZAVRuntimeFormat {
    /// @param format the text; it must outlive the call that it is handed to.
    explicit constexpr ZAVRuntimeFormat(std::string_view format) noexcept : text(format) {}

    std::string_view text;  ///< the format
};

/// What a format is refused for. Nothing defines these functions: a compiler that has to evaluate a call of
/// one, as it compiles a call with a wrong format, reports its name.
namespace ZAVFormatMistakes {
void percentSignBeginsNoDirective();           ///< and is not doubled
void formatHasMoreDirectivesThanArguments();   ///< an argument is missing
void formatHasFewerDirectivesThanArguments();  ///< an argument would not be printed
void directiveDoesNotFitItsArgument();         ///< that is not an integer, or too long a one
}  // namespace ZAVFormatMistakes

/// The format of a call with these arguments. Made of a constant text, a literal as a rule, it is compared
/// with them while the call is compiled: a call does not compile that has more or fewer arguments than
/// directives, an object, a floating-point number or an absent one where the directive wants an integer, an
/// integer of 64 bits where it wants one of 32, or a percent sign that begins no directive. The sign of an
/// integer is the directive's to choose. A text that is not a constant is handed over as a
/// `ZAVRuntimeFormat`.
template <class... Arguments>
class ZAVFormatString {
public:
    /// Compares a constant text with the arguments.
    template <std::convertible_to<std::string_view> Text>
    consteval ZAVFormatString(const Text& text) : text_(text) {
        check();
    }

    /// Takes the text as it is.
    constexpr ZAVFormatString(ZAVRuntimeFormat format) noexcept : text_(format.text) {}

    /// The format, printable as it stands.
    [[nodiscard]] constexpr std::string_view text() const noexcept { return text_; }

private:
    /// The bits of an integer, and of whatever else none.
    template <class Argument>
    static constexpr std::size_t bitsOf = std::integral<Argument> || std::is_enum_v<Argument>
                                              ? 8 * sizeof(Argument)
                                              : 0;

    consteval void check() const {
        constexpr std::array<std::size_t, sizeof...(Arguments)> bits{bitsOf<Arguments>...};
        std::size_t used = 0;
        for (std::size_t percent = text_.find('%'); percent != std::string_view::npos;) {
            const std::string_view rest = text_.substr(percent + 1);
            const std::string_view directive = rest.starts_with('%') ? "%" : ZAVFormatDirectiveAt(rest);
            if (directive.empty()) {
                ZAVFormatMistakes::percentSignBeginsNoDirective();
            }
            if (directive != "%") {
                if (used == bits.size()) {
                    ZAVFormatMistakes::formatHasMoreDirectivesThanArguments();
                }
                const std::size_t widest = directive == "d" || directive == "u" ? 32 : 64;
                if (directive != "@" && (bits[used] == 0 || bits[used] > widest)) {
                    ZAVFormatMistakes::directiveDoesNotFitItsArgument();
                }
                ++used;
            }
            percent = text_.find('%', percent + 1 + directive.size());
        }
        if (used != bits.size()) {
            ZAVFormatMistakes::formatHasFewerDirectivesThanArguments();
        }
    }

    std::string_view text_;
};

/// `ZAVStringWithFormatArguments` of whatever a `ZAVFormatArgument` is made from.
template <class... Arguments>
[[nodiscard]] std::string ZAVStringWithFormat(ZAVFormatString<std::type_identity_t<Arguments>...> format,
                                              const Arguments&... arguments) {
    const std::array<ZAVFormatArgument, sizeof...(Arguments)> packed{ZAVFormatArgument(arguments)...};
    return ZAVStringWithFormatArguments(format.text(), packed);
}

}  // namespace zav
