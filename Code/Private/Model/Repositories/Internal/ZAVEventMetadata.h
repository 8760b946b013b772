#pragma once

#include <ZAVEventRepository/ZAVDictionary.h>
#include <ZAVEventRepository/ZAVKeyedValuesContext.h>

namespace zav {

/// Where the transient metadata of an event are.
[[nodiscard]] inline ZAVKeyedValuesContext ZAVContextOfEventMetadata(ZAVDatabaseIdentifier event) noexcept {
    return ZAVKeyedValuesContext::contextWithTable(ZAVKeyedValuesTableRemote, "event", event,
                                                   ZAVKeyedValuesKeyTypeTransient);
}

/// Metadata as they are stored: bytes as the text that they encode, and not at all when they encode none.
[[nodiscard]] ZAVDictionary ZAVStorableMetadata(const ZAVDictionary& metadata);

}  // namespace zav
