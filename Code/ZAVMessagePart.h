#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVMessage.h>
#include <ZAVEventRepository/ZAVObject.h>

namespace zav {

/// A content part as part of a message.
class ZAV_EXPORT ZAVMessagePart : public ZAVObject {
public:
    /// @param message the message, which the part shares.
    /// @param index position within the message, from 0.
    /// @throws NSInternalInconsistencyException when there is no message.
    ZAVMessagePart(std::shared_ptr<ZAVMessage> message, std::uint64_t index)
        : message_(std::move(message)), index_(index) {
        if (message_ == nullptr) {
            throw NSInternalInconsistencyException("A message part needs a message.");
        }
    }

    /// The message, shared; never null.
    [[nodiscard]] const std::shared_ptr<ZAVMessage>& message() const noexcept { return message_; }

    /// Position within the message, from 0.
    [[nodiscard]] std::uint64_t index() const noexcept { return index_; }

    [[nodiscard]] std::string_view className() const noexcept override { return "ZAVMessagePart"; }

protected:
    void describeFields(std::string& text) const override {
        text += " message=" + message_->description() + " index=" + std::to_string(index_);
    }

private:
    std::shared_ptr<ZAVMessage> message_;
    std::uint64_t index_;
};

}  // namespace zav
