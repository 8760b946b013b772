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

#include "Private/Foundation/ZAVError.h"
#include "Private/Foundation/ZAVExport.h"
#include "Private/Foundation/ZAVObject.h"
#include "Private/Foundation/ZAVSet.h"
#include "Private/Foundation/ZAVURL.h"
#include "Private/Foundation/ZAVUUID.h"

namespace zav {

/// The printable form that `%@` stands for. Something absent prints as "(null)".
[[nodiscard]] inline std::string ZAVDescription(std::string_view text) {
    return std::string(text);
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

/// Decimal digits.
[[nodiscard]] inline std::string ZAVDescription(std::int64_t number) {
    return std::to_string(number);
}

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

/// "{(first, second)}", in the container's order.
template <class Range>
requires requires(const Range& range) {
    ZAVDescription(*range.begin());
} &&(!std::convertible_to<const Range&, std::string_view>) [[nodiscard]] std::string
    ZAVDescription(const Range& range) {
    std::string text = "{(";
    const char* separator = "";
    for (const auto& element : range) {
        text += separator;
        text += ZAVDescription(element);
        separator = ", ";
    }
    return text + ")}";
}

/// One argument of a printf-style format: a number as 64 bits, or an object as its printable form.
class ZAV_EXPORT ZAVFormatArgument {
public:
    /// A number, sign-extended to 64 bits.
    template <std::integral Number>
    ZAVFormatArgument(Number number)
        : value_(static_cast<std::uint64_t>(static_cast<std::int64_t>(number))) {}

    /// An object as its printable form, made at once.
    template <class Object>
    requires(!std::integral<Object>) ZAVFormatArgument(const Object& object)
        : value_(ZAVDescription(object)) {}

    /// Appends the argument as the directive asks for it: `directive` is what follows the percent sign.
    void append(std::string_view directive, std::string& text) const;

private:
    std::variant<std::uint64_t, std::string> value_;
};

/// Formats as printf does, with the directives `%@` (objects), `%d` `%u` (32 bits), `%ld` `%lld` `%lu` `%llu`
/// (64 bits) and `%%`. A directive without an argument is printed as it stands.
[[nodiscard]] ZAV_EXPORT std::string ZAVStringWithFormatArguments(
    std::string_view format, std::span<const ZAVFormatArgument> arguments);

/// `ZAVStringWithFormatArguments` of whatever a `ZAVFormatArgument` is made from.
template <class... Arguments>
[[nodiscard]] std::string ZAVStringWithFormat(std::string_view format, const Arguments&... arguments) {
    const std::array<ZAVFormatArgument, sizeof...(Arguments)> packed{ZAVFormatArgument(arguments)...};
    return ZAVStringWithFormatArguments(format, packed);
}

}  // namespace zav
