#pragma once

#include <cstdint>
#include <string_view>

namespace zav {

/// What a text is as an RFC 3986 reference.
enum class ZAVReferenceForm : std::uint8_t {
    unknown,   ///< a parser has to say
    relative,  ///< without a scheme
    absolute,  ///< with a scheme
};

/// Recognises the references that nearly all stored texts are: a scheme, the name of a host, a path and a
/// query, or a path alone, of characters that stand for themselves. To parse one costs more than to read its
/// row.
[[nodiscard]] ZAVReferenceForm ZAVFormOfPlainReference(std::string_view text) noexcept;

}  // namespace zav
