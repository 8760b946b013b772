#include <ZAVEventRepository/ZAVStoreWork.h>

#include <utility>

#include "Store/Internal/ZAVQueuedWork.h"

namespace zav {

ZAVPendingWork::ZAVPendingWork(std::shared_ptr<ZAVQueuedWork> work) noexcept : work_(std::move(work)) {}

bool ZAVPendingWork::cancel() const {
    return work_->stop(ZAVWorkControl::Stop::cancelled);
}

}  // namespace zav
