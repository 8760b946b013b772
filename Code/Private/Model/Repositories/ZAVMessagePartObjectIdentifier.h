#pragma once

#include <cstdint>
#include <optional>

#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVURL.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

/// The object identifier of a message part: a URL that names an event by its `client_id` and a part by its
/// index, `zav:///messages/<client_id>/parts/<index>`.
[[nodiscard]] ZAV_EXPORT ZAVURL ZAVMakeMessagePartObjectIdentifier(const ZAVUUID& eventClientID,
                                                                   std::uint32_t index);

/// The `client_id` in an object identifier; none for any other URL.
[[nodiscard]] ZAV_EXPORT std::optional<ZAVUUID> ZAVClientIdentifierForObjectIdentifier(
    const ZAVURL& objectIdentifier);

/// The part index in an object identifier; 0 for any other URL.
[[nodiscard]] ZAV_EXPORT std::int64_t ZAVPartIndexForObjectIdentifier(const ZAVURL& objectIdentifier);

}  // namespace zav
