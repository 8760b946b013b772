#pragma once

#include <cstddef>
#include <string_view>

#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// Whether `text` is well-formed UTF-8: no overlong form, no surrogate, nothing past U+10FFFF.
[[nodiscard]] ZAV_EXPORT bool ZAVIsUTF8(std::string_view text) noexcept;

/// How many bytes the character takes that `text` begins with; 0 when it begins with no well-formed one.
[[nodiscard]] ZAV_EXPORT std::size_t ZAVUTF8CharacterSize(std::string_view text) noexcept;

}  // namespace zav
