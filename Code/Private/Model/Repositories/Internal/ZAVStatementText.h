#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "Private/Database/Internal/ZAVSQL.h"

namespace zav {

/// The text of a statement, put together while the library is compiled. It lies in the program's own data,
/// where nothing makes it and nothing destroys it: a thread that still reads while the process ends finds it
/// as it was.
template <std::size_t Size>
class ZAVStatementText {
public:
    constexpr ZAVStatementText() noexcept = default;

    // NOLINTNEXTLINE(modernize-avoid-c-arrays): a literal is one
    constexpr explicit ZAVStatementText(const char (&literal)[Size + 1]) noexcept {
        std::copy_n(&literal[0], Size, characters_.begin());
    }

    constexpr operator std::string_view() const noexcept { return {characters_.data(), Size}; }
    consteval operator ZAVSQL() const noexcept { return ZAVSQL::literal(*this); }

    template <std::size_t OtherSize>
    [[nodiscard]] constexpr auto operator+(const ZAVStatementText<OtherSize>& other) const noexcept {
        ZAVStatementText<Size + OtherSize> sum;
        std::copy_n(other.characters_.begin(), OtherSize,
                    std::copy_n(characters_.begin(), Size, sum.characters_.begin()));
        return sum;
    }

    template <std::size_t LiteralSize>
    // NOLINTNEXTLINE(modernize-avoid-c-arrays)
    [[nodiscard]] constexpr auto operator+(const char (&literal)[LiteralSize]) const noexcept {
        return *this + ZAVStatementText<LiteralSize - 1>(literal);
    }

private:
    template <std::size_t>
    friend class ZAVStatementText;

    std::array<char, Size> characters_{};
};

template <std::size_t LiteralSize>
// NOLINTNEXTLINE(modernize-avoid-c-arrays)
ZAVStatementText(const char (&)[LiteralSize])->ZAVStatementText<LiteralSize - 1>;

}  // namespace zav
