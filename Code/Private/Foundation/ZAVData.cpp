#include <ZAVEventRepository/ZAVData.h>

#include <cstring>
#include <utility>

namespace zav {

ZAVData::ZAVData(const void* bytes, std::size_t size) : size_(size) {
    std::uint8_t* destination = inline_;
    if (!isInline()) {
        heap_ = destination = new std::uint8_t[size];
    }
    if (size != 0) {
        std::memcpy(destination, bytes, size);
    }
}

ZAVData::ZAVData(ZAVData&& other) noexcept : size_(0) {
    takeFrom(other);
}

ZAVData& ZAVData::operator=(const ZAVData& other) {
    if (this != &other) {
        *this = ZAVData(other);
    }
    return *this;
}

ZAVData& ZAVData::operator=(ZAVData&& other) noexcept {
    if (this != &other) {
        release();
        takeFrom(other);
    }
    return *this;
}

void ZAVData::release() noexcept {
    if (!isInline()) {
        delete[] heap_;
    }
}

void ZAVData::takeFrom(ZAVData& other) noexcept {
    std::memcpy(inline_, other.inline_, inlineCapacity);  // the pointer too: it shares the storage
    size_ = std::exchange(other.size_, 0);
}

}  // namespace zav
