#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <ZAVEventRepository/ZAVData.h>
#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// A UUID: 16 bytes in the order of its canonical text, which is also the order in which it is stored.
class ZAV_EXPORT ZAVUUID {
public:
    /// In the order of the canonical text.
    using Bytes = std::array<std::uint8_t, 16>;

    /// The UUID of sixteen zero bytes.
    constexpr ZAVUUID() noexcept = default;

    /// The UUID with these bytes, whatever version they say.
    explicit constexpr ZAVUUID(const Bytes& bytes) noexcept : bytes_(bytes) {}

    /// A new random UUID (version 4).
    [[nodiscard]] static ZAVUUID random();

    /// Reads the canonical form, 36 characters of hexadecimal digits of either case and hyphens; anything
    /// else is not a UUID.
    [[nodiscard]] static std::optional<ZAVUUID> fromString(std::string_view text) noexcept;

    /// The 16 bytes.
    [[nodiscard]] constexpr const Bytes& bytes() const noexcept { return bytes_; }

    /// The canonical form, 36 characters with lower-case digits.
    [[nodiscard]] std::string UUIDString() const;

    /// Whether the bytes are the same.
    friend constexpr bool operator==(const ZAVUUID&, const ZAVUUID&) noexcept = default;

    /// Compares byte by byte, which is the order of the canonical texts.
    // Written out: not every C++ library of C++20 has `<=>` of two arrays.
    friend constexpr std::strong_ordering operator<=>(const ZAVUUID& left, const ZAVUUID& right) noexcept {
        for (std::size_t position = 0; position < left.bytes_.size(); ++position) {
            if (left.bytes_[position] != right.bytes_[position]) {
                return left.bytes_[position] <=> right.bytes_[position];
            }
        }
        return std::strong_ordering::equal;
    }

private:
    Bytes bytes_{};
};

/// The UUID whose 16 bytes `data` holds; none when there is no data or it is not 16 bytes long.
[[nodiscard]] ZAV_EXPORT std::optional<ZAVUUID> ZAVUUIDFromData(const std::optional<ZAVData>& data) noexcept;

/// The 16 bytes of `uuid`; none when there is no UUID.
[[nodiscard]] ZAV_EXPORT std::optional<ZAVData> ZAVDataFromUUID(const std::optional<ZAVUUID>& uuid);

}  // namespace zav
