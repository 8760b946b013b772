#include "Private/Model/Repositories/ZAVEventRepository.h"
#include "Private/Model/Repositories/ZAVMessageRepositoryCache.h"

namespace zav {

void ZAVPrepareEventContentsForDownload(ZAVEvent& event, const ZAVUUID& appID,
                                        std::string_view authenticatedUserID) {
    if (!event.content()) {
        return;
    }
    std::uint64_t index = 0;
    for (const auto& element : *event.content()) {
        const std::uint64_t position = index++;
        auto* const part = dynamic_cast<ZAVEventContent*>(element.get());
        if (part == nullptr || part->external_url().value_or("").empty()) {
            continue;
        }
        part->setTransferStatus(ZAVContentTransferReadyForDownload);
        const auto directory = ZAVMessageRepositoryMakeMessagePartBaseDirectoryURL(
            appID, authenticatedUserID, ZAVUUIDFromData(event.client_id()));
        part->setFileURL(ZAVMessageRepositoryMakeMessagePartFileURL(position, directory));
    }
}

}  // namespace zav
