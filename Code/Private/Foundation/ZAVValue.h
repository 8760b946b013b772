#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include <ZAVEventRepository/ZAVData.h>
#include <ZAVEventRepository/ZAVDate.h>

namespace zav {

/// An owned value for a statement's placeholder: null, a number, text, bytes or a date.
class ZAVValue {
public:
    /// What a value may be; a null pointer stands for NULL.
    using Storage = std::variant<std::nullptr_t, std::int64_t, std::uint64_t, std::string, ZAVData, ZAVDate>;

    /// Null.
    ZAVValue() noexcept : storage_(nullptr) {}

    /// Null.
    ZAVValue(std::nullptr_t) noexcept : storage_(nullptr) {}

    /// Text.
    ZAVValue(std::string text) : storage_(std::move(text)) {}

    /// Text, copied.
    ZAVValue(std::string_view text) : storage_(std::string(text)) {}

    /// Text, copied; a null pointer is null.
    ZAVValue(const char* text) : storage_(nullptr) {
        if (text != nullptr) {
            storage_ = std::string(text);
        }
    }

    /// Bytes.
    ZAVValue(ZAVData bytes) : storage_(std::move(bytes)) {}

    /// A date, bound as seconds since 1970.
    ZAVValue(ZAVDate date) : storage_(date) {}

    /// Any integer or enumeration, or a boolean as 0 or 1.
    template <class Number>
    requires(std::is_integral_v<Number> || std::is_enum_v<Number>) ZAVValue(Number number)
    noexcept : storage_(numberStorage(number)) {}

    /// The value.
    [[nodiscard]] const Storage& storage() const noexcept { return storage_; }

    /// Whether kind and value are the same.
    friend bool operator==(const ZAVValue&, const ZAVValue&) = default;

private:
    template <class Number>
    static Storage numberStorage(Number number) noexcept {
        if constexpr (std::is_enum_v<Number>) {
            return numberStorage(static_cast<std::underlying_type_t<Number>>(number));
        } else if constexpr (std::is_signed_v<Number>) {
            return static_cast<std::int64_t>(number);
        } else {
            return static_cast<std::uint64_t>(number);
        }
    }

    Storage storage_;
};

}  // namespace zav
