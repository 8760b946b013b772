#include "Store/Internal/ZAVWorkOnThread.h"

namespace zav {
namespace {

thread_local const ZAVWorkOnThread* innermost = nullptr;

}  // namespace

ZAVWorkOnThread::ZAVWorkOnThread(const void* store, Kind kind, ZAVStoreHandle& handle,
                                 ZAVWorkControl& control, const ZAVURL* directory) noexcept
    : store_(store),
      kind_(kind),
      handle_(handle),
      control_(control),
      outer_(innermost),
      directory_(directory) {
    innermost = this;
}

ZAVWorkOnThread::~ZAVWorkOnThread() {
    innermost = outer_;
}

const ZAVWorkOnThread* ZAVWorkOnThread::innermostOf(const void* store) noexcept {
    const ZAVWorkOnThread* work = innermost;
    while (work != nullptr && work->store_ != store) {
        work = work->outer_;
    }
    return work;
}

}  // namespace zav
