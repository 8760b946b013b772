#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "Private/Foundation/ZAVExport.h"

namespace zav {

/// An owned, resizable-by-assignment byte string.
///
/// Sixteen bytes or fewer live inside the object: nearly every byte string that passes through the event
/// store is the binary form of a UUID, and two heap blocks for every event read would cost more than reading
/// its columns.
class ZAV_EXPORT ZAVData {
public:
    static constexpr std::size_t inlineCapacity = 16;

    ZAVData() noexcept : size_(0) {}

    /// Copies `size` bytes from `bytes`, which may be null when `size` is 0.
    ZAVData(const void* bytes, std::size_t size);

    explicit ZAVData(std::span<const std::uint8_t> bytes) : ZAVData(bytes.data(), bytes.size()) {}

    /// Copies the bytes of `text`.
    [[nodiscard]] static ZAVData fromText(std::string_view text) { return ZAVData(text.data(), text.size()); }

    ZAVData(const ZAVData& other) : ZAVData(other.data(), other.size_) {}
    ZAVData(ZAVData&& other) noexcept;
    ZAVData& operator=(const ZAVData& other);
    ZAVData& operator=(ZAVData&& other) noexcept;
    ~ZAVData() { release(); }

    /// Never null, also when empty.
    [[nodiscard]] const std::uint8_t* data() const noexcept { return isInline() ? inline_ : heap_; }
    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    [[nodiscard]] bool empty() const noexcept { return size_ == 0; }
    [[nodiscard]] const std::uint8_t* begin() const noexcept { return data(); }
    [[nodiscard]] const std::uint8_t* end() const noexcept { return data() + size_; }

    /// The bytes as they are, seen as characters; valid until this object changes.
    [[nodiscard]] std::string_view asText() const noexcept {
        return {reinterpret_cast<const char*>(data()), size_};
    }

    friend bool operator==(const ZAVData& left, const ZAVData& right) noexcept {
        return left.asText() == right.asText();
    }
    friend auto operator<=>(const ZAVData& left, const ZAVData& right) noexcept {
        return left.asText() <=> right.asText();
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
