#include "Store/Internal/ZAVContentParts.h"

#include <utility>

#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>

#include "Private/Model/Repositories/Internal/ZAVCacheDirectoryOfThread.h"

namespace zav {

std::string ZAVNameOfPart(ZAVDatabaseIdentifier event, std::int64_t index) {
    return "part " + std::to_string(index) + " of event " + std::to_string(event);
}

std::uint64_t ZAVNumberOfPart(ZAVDatabaseIdentifier event, std::int64_t index) noexcept {
    std::uint64_t number = 0xcbf29ce484222325;  // FNV-1a, which spreads small numbers over all digits
    for (const auto value : {static_cast<std::uint64_t>(event), static_cast<std::uint64_t>(index)}) {
        for (unsigned shift = 0; shift < 64; shift += 8) {
            number = (number ^ (value >> shift & 0xff)) * 0x100000001b3;
        }
    }
    return number;
}

ZAVURL ZAVPlacedFile(const ZAVStoreOwner& owner, const std::optional<ZAVUUID>& clientID,
                     std::uint64_t index) {
    if (!owner.userID || !owner.appID) {
        throw ZAVContentFailure(ZAVErrorOfStore(
            ZAVEventStoreErrorBadOption,
            "the store was opened without userID or appID, which say where files of content go"));
    }
    const ZAVURL directory = owner.contentDirectoryURL();
    const ZAVCacheDirectoryOfThread ofThisThread(&directory);
    auto file = ZAVMessageRepositoryMakeMessagePartFileURL(
        index, ZAVMessageRepositoryMakeMessagePartBaseDirectoryURL(*owner.appID, *owner.userID, clientID));
    if (!file) {
        throw ZAVNoContent("the event has no client_id that is a UUID, after which its files are called");
    }
    return *std::move(file);
}

ZAVContentPath ZAVParsedContentPath(const std::string& text) {
    std::string fault;
    auto path = ZAVContentPath::parse(text, &fault);
    if (!path) {
        throw ZAVContentFailure(ZAVErrorOfContent(text, fault));
    }
    return *std::move(path);
}

std::shared_ptr<ZAVEventContent> ZAVPartAt(const ZAVRepositories& repositories, ZAVDatabaseIdentifier event,
                                           std::int64_t index) {
    ZAVError failure;
    auto part = repositories.events.eventContentForEventDatabaseIdentifier(event, index, &failure);
    if (failure) {
        throw ZAVContentFailure(failure);
    }
    if (part == nullptr) {
        throw ZAVNoContent("there is no " + ZAVNameOfPart(event, index));
    }
    return part;
}

}  // namespace zav
