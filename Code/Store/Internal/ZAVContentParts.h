#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <ZAVEventRepository/ZAVContentPath.h>
#include <ZAVEventRepository/ZAVEventContent.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVRepositories.h>
#include <ZAVEventRepository/ZAVURL.h>
#include <ZAVEventRepository/ZAVUUID.h>

#include "Store/Internal/ZAVContentFailure.h"
#include "Store/Internal/ZAVStoreOwner.h"

// What is asked of parts and the places of their files. All of it throws `ZAVContentFailure`.

namespace zav {

/// Why there is no content.
[[nodiscard]] inline ZAVContentFailure ZAVNoContent(const std::string& message) {
    return ZAVContentFailure(ZAVErrorOfStore(ZAVEventStoreErrorNoContent, message));
}

/// What a part is called in messages.
[[nodiscard]] std::string ZAVNameOfPart(ZAVDatabaseIdentifier event, std::int64_t index);

/// A number of a part, by which what was downloaded of it so far is found: the same in all processes, and
/// another for any other part of the store.
[[nodiscard]] std::uint64_t ZAVNumberOfPart(ZAVDatabaseIdentifier event, std::int64_t index) noexcept;

/// Where the library places the file of a part.
[[nodiscard]] ZAVURL ZAVPlacedFile(const ZAVStoreOwner& owner, const std::optional<ZAVUUID>& clientID,
                                   std::uint64_t index);

/// The path that a text says.
[[nodiscard]] ZAVContentPath ZAVParsedContentPath(const std::string& text);

/// The part as it is now; there must be one.
[[nodiscard]] std::shared_ptr<ZAVEventContent> ZAVPartAt(const ZAVRepositories& repositories,
                                                         ZAVDatabaseIdentifier event, std::int64_t index);

}  // namespace zav
