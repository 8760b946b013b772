#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zav::bench {

/// A number that two answers share only if they are the same, and how many records went into it.
class Digest {
public:
    void add(std::string_view text) noexcept {
        for (const char character : text) {
            mix(static_cast<unsigned char>(character));
        }
        mix(0x100);  // no byte: "ab", "c" and "a", "bc" differ
    }
    void count() noexcept { ++records_; }

    [[nodiscard]] std::string text() const {
        return std::to_string(records_) + " record(s), digest " + std::to_string(hash_);
    }

private:
    void mix(std::uint64_t value) noexcept { hash_ = (hash_ ^ value) * 0x100000001B3U; }

    std::uint64_t hash_ = 0xCBF29CE484222325U;
    std::size_t records_ = 0;
};

}  // namespace zav::bench
