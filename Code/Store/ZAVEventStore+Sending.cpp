#include <ZAVEventRepository/ZAVEventStore.h>

#include "Store/Internal/ZAVEventChecks.h"
#include "Store/Internal/ZAVRecordsBefore.h"
#include "Store/Internal/ZAVSender.h"
#include "Store/Internal/ZAVStoreCore.h"

namespace zav {

std::optional<ZAVSentEvent> ZAVEventStore::send(const std::shared_ptr<ZAVEvent>& event, ZAVError* error) {
    if (event == nullptr) {
        ZAVStoreError(error, ZAVErrorOfUnusableEvent("there is no record"));
        return std::nullopt;
    }
    ZAVSentEvent answer;
    ZAVRecordsBefore before({&event, 1});
    const auto send = [&](const ZAVRepositories&) {
        return ZAVSender(core_->handleOfWork(), core_->owner()).send(*event, answer, error);
    };
    if (!write(send, error)) {
        return std::nullopt;
    }
    before.forget();
    return answer;
}

std::optional<std::vector<std::shared_ptr<ZAVEvent>>> ZAVEventStore::outbox(const ZAVOutboxOptions& options,
                                                                            ZAVError* error) {
    std::optional<std::vector<std::shared_ptr<ZAVEvent>>> events;
    ZAVError failure;
    const auto look = [&](const ZAVRepositories&) {
        events = ZAVSender(core_->handleOfWork(), core_->owner()).outbox(options, &failure);
    };
    if (!read(look, &failure) || !events) {
        ZAVStoreError(error, failure);
        return std::nullopt;
    }
    return events;
}

std::optional<ZAVDatabaseIdentifier> ZAVEventStore::streamPosted(ZAVDatabaseIdentifier stream,
                                                                 const ZAVUUID& uuid, ZAVError* error) {
    std::optional<ZAVDatabaseIdentifier> row;
    const auto name = [&](const ZAVRepositories&) {
        row = ZAVSender(core_->handleOfWork(), core_->owner()).nameStream(stream, uuid, error);
        return row.has_value();
    };
    return write(name, error) ? row : std::nullopt;
}

}  // namespace zav
