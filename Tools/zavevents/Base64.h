#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <ZAVEventRepository/ZAVData.h>

namespace zavevents {

/// Appends `bytes` in base64 (RFC 4648, with padding).
void appendBase64(std::string_view bytes, std::string& text);

/// The bytes that base64 text stands for; none when it is not well-formed.
[[nodiscard]] std::optional<zav::ZAVData> dataFromBase64(std::string_view text);

}  // namespace zavevents
