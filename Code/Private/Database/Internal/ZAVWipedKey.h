#pragma once

#include <optional>
#include <string>

namespace zav {

/// Overwrites a key.
inline void ZAVWipeKey(std::optional<std::string>& key) noexcept {
    if (key) {
        // A compiler may leave out what is written to memory that is about to be freed.
        for (char& byte : *key) {
            static_cast<volatile char&>(byte) = '\0';
        }
    }
}

/// A key that is wiped at the end.
class ZAVWipedKey {
public:
    /// Calls `make`, whose answer is built in place: a key that is moved may stay where it was, too.
    template <class Make>
    explicit ZAVWipedKey(const Make& make) : key_(make()) {}
    ~ZAVWipedKey() { ZAVWipeKey(key_); }
    ZAVWipedKey(const ZAVWipedKey&) = delete;
    ZAVWipedKey& operator=(const ZAVWipedKey&) = delete;

    [[nodiscard]] const std::optional<std::string>& key() const noexcept { return key_; }

private:
    std::optional<std::string> key_;
};

}  // namespace zav
