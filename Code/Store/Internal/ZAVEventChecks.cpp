#include "Store/Internal/ZAVEventChecks.h"

#include <memory>

namespace zav {

ZAVError ZAVObjectionToEvent(const ZAVEvent& event) {
    constexpr std::size_t bytesOfUUID = 16;
    if (event.type() == 0) {
        return ZAVErrorOfUnusableEvent("it has no type");
    }
    if (!event.client_id() || event.client_id()->size() != bytesOfUUID) {
        return ZAVErrorOfUnusableEvent("it has no client_id of 16 bytes");
    }
    if (event.stream_id() && event.stream_id()->size() != bytesOfUUID) {
        return ZAVErrorOfUnusableEvent("its stream_id has not 16 bytes");
    }
    for (const auto& part : event.contentParts()) {
        if (part == nullptr) {
            return ZAVErrorOfUnusableEvent("a part of its content is not a ZAVEventContent");
        }
        if (part->size() < 0) {
            return ZAVErrorOfUnusableEvent("a part of its content has the negative size " +
                                           std::to_string(part->size()));
        }
    }
    return {};
}

bool ZAVPersistEvent(const ZAVEventRepository& repository, ZAVEvent& event, ZAVError* error) {
    return repository.persistEvents({std::shared_ptr<ZAVTEvent>(std::shared_ptr<void>(), &event)}, error);
}

}  // namespace zav
