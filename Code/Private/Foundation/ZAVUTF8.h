#pragma once

#include <string_view>

namespace zav {

/// Whether `text` is well-formed UTF-8: no overlong form, no surrogate, nothing past U+10FFFF.
[[nodiscard]] bool ZAVIsUTF8(std::string_view text) noexcept;

}  // namespace zav
