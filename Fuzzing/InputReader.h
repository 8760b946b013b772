#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace zav::fuzzing {

/// Takes an input apart from its start. What the input no longer holds reads as zeros and as empty texts.
class InputReader {
public:
    InputReader(const std::uint8_t* data, std::size_t size)
        : rest_(reinterpret_cast<const char*>(data), size) {}

    [[nodiscard]] bool atEnd() const { return rest_.empty(); }

    /// A number in the machine's own form.
    template <class Number>
    Number number() {
        Number value{};
        const std::string_view bytes = text(sizeof value);
        std::memcpy(&value, bytes.data(), bytes.size());
        return value;
    }

    std::uint8_t byte() { return number<std::uint8_t>(); }

    /// The next `length` bytes, or as many as there are.
    std::string_view text(std::size_t length) {
        const std::string_view taken = rest_.substr(0, std::min(length, rest_.size()));
        rest_.remove_prefix(taken.size());
        return taken;
    }

    std::string_view rest() { return text(rest_.size()); }

private:
    std::string_view rest_;
};

}  // namespace zav::fuzzing
