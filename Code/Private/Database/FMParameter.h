#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include <ZAVEventRepository/ZAVData.h>
#include <ZAVEventRepository/ZAVDate.h>
#include <ZAVEventRepository/ZAVUUID.h>
#include <ZAVEventRepository/ZAVValue.h>

namespace zav {

/// A view of one value to bind to a placeholder. It owns nothing: what it was made from must stay alive
/// during the call that it is passed to. Made implicitly from whatever `executeQuery` and `executeUpdate` are
/// given.
class FMParameter {
public:
    /// How the value is bound: the storage classes of the engine.
    enum class Kind : std::uint8_t { null, integer, real, text, blob };

    /// Bound as NULL. Write `nullptr`: the macro `NULL` is the number 0 once it is an argument of a template.
    FMParameter(std::nullptr_t) noexcept {}

    /// Bound as NULL.
    FMParameter(std::nullopt_t) noexcept {}

    /// An integer or enumeration; unsigned 64-bit numbers are stored by their bits. A boolean is 0 or 1.
    template <class Number>
    requires(std::is_integral_v<Number> || std::is_enum_v<Number>) FMParameter(Number number)
    noexcept : kind_(Kind::integer), integer_(static_cast<std::int64_t>(number)) {}

    /// Bound as text, which is UTF-8 and may be of any length.
    FMParameter(std::string_view text) noexcept
        : kind_(Kind::text), bytes_(text.data()), size_(text.size()) {}

    /// Bound as text.
    FMParameter(const std::string& text) noexcept : FMParameter(std::string_view(text)) {}

    /// Bound as text, which a zero byte ends; a null pointer as NULL.
    FMParameter(const char* text) noexcept : FMParameter(nullptr) {
        if (text != nullptr) {
            *this = FMParameter(std::string_view(text));
        }
    }

    /// Bound as a blob, a zero-length one when empty.
    FMParameter(const ZAVData& data) noexcept : kind_(Kind::blob), bytes_(data.data()), size_(data.size()) {}

    /// Bound as its 16 bytes.
    FMParameter(const ZAVUUID& uuid) noexcept
        : kind_(Kind::blob), bytes_(uuid.bytes().data()), size_(uuid.bytes().size()) {}

    /// Bound as seconds since 1970, a floating-point number.
    FMParameter(ZAVDate date) noexcept : kind_(Kind::real), real_(ZAVSecondsSince1970(date)) {}

    /// NULL when absent.
    template <class T>
    FMParameter(const std::optional<T>& value) noexcept : FMParameter(nullptr) {
        if (value) {
            *this = FMParameter(*value);
        }
    }

    /// Bound as what it holds.
    // A ZAVValue always holds a value, since all that it may hold moves without throwing: the visit cannot
    // fail. NOLINTNEXTLINE(bugprone-exception-escape)
    FMParameter(const ZAVValue& value) noexcept : FMParameter(nullptr) {
        std::visit([this](const auto& held) { *this = FMParameter(held); }, value.storage());
    }

    /// Which of the getters below answers.
    [[nodiscard]] Kind kind() const noexcept { return kind_; }

    /// The number of a `Kind::integer`.
    [[nodiscard]] std::int64_t integer() const noexcept { return integer_; }

    /// The number of a `Kind::real`.
    [[nodiscard]] double real() const noexcept { return real_; }

    /// The bytes of a `Kind::text` or `Kind::blob`, which belong to whoever made the parameter.
    [[nodiscard]] const void* bytes() const noexcept { return bytes_; }

    /// How many bytes `bytes` points at.
    [[nodiscard]] std::size_t size() const noexcept { return size_; }

private:
    Kind kind_ = Kind::null;
    union {
        std::int64_t integer_ = 0;
        double real_;
        const void* bytes_;
    };
    std::size_t size_ = 0;
};

}  // namespace zav
