#include "Store/Internal/ZAVContentSession.h"

#include "Store/Internal/ZAVContentFailure.h"

namespace zav {

ZAVContentSession::ZAVContentSession(ZAVStoreCore& core)
    : core_(core), directory_(core.owner().contentDirectoryPath()) {}

void ZAVContentSession::underLock(const Work& work) {
    ZAVExpectDone(core_.write([&](const ZAVRepositories& repositories) {
        if (!rows_) {
            rows_.emplace(repositories.events.database(), directory_.path());
        }
        rows_->refresh();
        work(*rows_);
        return true;
    }));
}

void ZAVContentSession::inSnapshot(const Work& work) {
    ZAVExpectDone(core_.read([&](const ZAVRepositories& repositories) {
        ZAVContentRows rows(repositories.events.database(), directory_.path());
        rows.refresh();
        work(rows);
    }));
}

}  // namespace zav
