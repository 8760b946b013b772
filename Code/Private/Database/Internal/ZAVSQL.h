#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zav {

/// The text of a statement, and whether it is part of the program: such a text is known by where it stands.
class ZAVSQL {
public:
    template <std::size_t Size>
    // NOLINTNEXTLINE(modernize-avoid-c-arrays): a literal is one
    consteval ZAVSQL(const char (&literal)[Size]) noexcept : ZAVSQL({literal, Size - 1}, true) {}

    constexpr ZAVSQL(std::string_view text) noexcept : ZAVSQL(text, false) {}
    ZAVSQL(const std::string& text) noexcept : ZAVSQL(text, false) {}

    /// A text that is put together while the program is compiled.
    [[nodiscard]] static consteval ZAVSQL literal(std::string_view text) noexcept { return {text, true}; }

    [[nodiscard]] constexpr std::string_view text() const noexcept { return text_; }
    [[nodiscard]] constexpr bool isLiteral() const noexcept { return isLiteral_; }

private:
    constexpr ZAVSQL(std::string_view text, bool isLiteral) noexcept : text_(text), isLiteral_(isLiteral) {}

    std::string_view text_;
    bool isLiteral_;
};

}  // namespace zav
