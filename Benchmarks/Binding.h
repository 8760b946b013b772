#pragma once

#include <ZAVEventRepository/ZAVData.h>
#include <ZAVEventRepository/ZAVDate.h>
#include <ZAVEventRepository/ZAVUUID.h>

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace zav::bench {

enum class Kind { integer, real, text, blob };

template <class T>
struct Unwrapped {
    using Type = T;
};
template <class T>
struct Unwrapped<std::optional<T>> {
    using Type = T;
};

/// Whether a value is bytes without a class of their own.
template <class T>
concept isPlainBytes = std::is_same_v<T, std::vector<std::uint8_t>> || std::is_same_v<T, ZAVUUID::Bytes>;

/// How a value of type `T`, or an optional one, is stored.
template <class T>
constexpr Kind kindOf() {
    using Value = typename Unwrapped<T>::Type;
    if constexpr (std::is_integral_v<Value> || std::is_enum_v<Value>) {
        return Kind::integer;
    } else if constexpr (std::is_same_v<Value, ZAVDate>) {
        return Kind::real;
    } else if constexpr (std::is_same_v<Value, std::string>) {
        return Kind::text;
    } else if constexpr (std::is_floating_point_v<Value>) {
        return Kind::real;
    } else {
        static_assert(std::is_same_v<Value, ZAVData> || std::is_same_v<Value, ZAVUUID> ||
                      isPlainBytes<Value>);
        return Kind::blob;
    }
}

/// Hands a value to the one of a binder's functions that is made for its kind. Text and bytes are not copied
/// here: they stay the caller's until the statement has run.
template <class Binder, class T>
void bindValue(Binder& binder, int position, const T& value) {
    if constexpr (!std::is_same_v<typename Unwrapped<T>::Type, T>) {
        if (value) {
            bindValue(binder, position, *value);
        } else {
            binder.null(position, kindOf<T>());
        }
    } else if constexpr (kindOf<T>() == Kind::integer) {
        binder.integer(position, static_cast<std::int64_t>(value));
    } else if constexpr (kindOf<T>() == Kind::real) {
        if constexpr (std::is_floating_point_v<T>) {
            binder.real(position, value);
        } else {
            binder.real(position, ZAVSecondsSince1970(value));
        }
    } else if constexpr (kindOf<T>() == Kind::text) {
        binder.text(position, value);
    } else if constexpr (std::is_same_v<T, ZAVUUID>) {
        binder.blob(position, value.bytes().data(), value.bytes().size());
    } else {
        binder.blob(position, value.data(), value.size());
    }
}

/// Hands all values to a binder, positions counted from 1.
template <class Binder, class... Values>
void bindValues(Binder& binder, const Values&... values) {
    int position = 0;
    (bindValue(binder, ++position, values), ...);
}

}  // namespace zav::bench
