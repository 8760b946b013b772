#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// An owned, resizable-by-assignment byte string.
///
/// Sixteen bytes or fewer live inside the object: nearly every byte string that passes through the event
/// store is the binary form of a UUID, and two heap blocks for every event read would cost more than reading
/// its columns.
class ZAV_EXPORT ZAVData {
public:
    /// The size in bytes up to which no heap block is needed.
    static constexpr std::size_t inlineCapacity = 16;

    /// Empty.
    ZAVData() noexcept : size_(0) {}

    /// Copies `size` bytes from `bytes`, which may be null when `size` is 0.
    ZAVData(const void* bytes, std::size_t size);

    /// Copies `bytes`.
    explicit ZAVData(std::span<const std::uint8_t> bytes) : ZAVData(bytes.data(), bytes.size()) {}

    /// Copies the bytes of `text`.
    [[nodiscard]] static ZAVData fromText(std::string_view text) { return ZAVData(text.data(), text.size()); }

    /// Copies the bytes.
    ZAVData(const ZAVData& other) : ZAVData(other.data(), other.size_) {}

    /// Takes the bytes over and leaves `other` empty.
    ZAVData(ZAVData&& other) noexcept;

    /// Replaces the bytes by a copy of others.
    ZAVData& operator=(const ZAVData& other);

    /// Replaces the bytes by others, taken over from `other`, which is left empty.
    ZAVData& operator=(ZAVData&& other) noexcept;
    ~ZAVData() { release(); }

    /// Never null, also when empty.
    [[nodiscard]] const std::uint8_t* data() const noexcept { return isInline() ? inline_ : heap_; }

    /// How many bytes there are.
    [[nodiscard]] std::size_t size() const noexcept { return size_; }

    /// Whether it is empty.
    [[nodiscard]] bool empty() const noexcept { return size_ == 0; }

    /// The first byte; valid until this object changes.
    [[nodiscard]] const std::uint8_t* begin() const noexcept { return data(); }

    /// One past the last byte.
    [[nodiscard]] const std::uint8_t* end() const noexcept { return data() + size_; }

    /// The bytes as they are, seen as characters; valid until this object changes.
    [[nodiscard]] std::string_view asText() const noexcept {
        return {reinterpret_cast<const char*>(data()), size_};
    }

    /// Whether the bytes are the same.
    friend bool operator==(const ZAVData& left, const ZAVData& right) noexcept {
        return left.asText() == right.asText();
    }

    /// Compares byte by byte, unsigned; a prefix comes first.
    // By `compare`: not every C++ library of C++20 has `<=>` of two views.
    friend std::strong_ordering operator<=>(const ZAVData& left, const ZAVData& right) noexcept {
        return left.asText().compare(right.asText()) <=> 0;
    }

private:
    [[nodiscard]] bool isInline() const noexcept { return size_ <= inlineCapacity; }
    void release() noexcept;
    void takeFrom(ZAVData& other) noexcept;

    union {
        // Plain storage: a std::array could be used only while it is the active member.
        // NOLINTNEXTLINE(modernize-avoid-c-arrays)
        std::uint8_t inline_[inlineCapacity];
        std::uint8_t* heap_;
    };
    std::size_t size_;
};

}  // namespace zav
