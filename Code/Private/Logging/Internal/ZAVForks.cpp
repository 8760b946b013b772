#include "Private/Logging/Internal/ZAVForks.h"

#include <pthread.h>

#include <atomic>

namespace zav {
namespace {

std::atomic<unsigned> forks = 0;

[[maybe_unused]] const int counting = ::pthread_atfork(nullptr, nullptr, []() noexcept { ++forks; });

}  // namespace

unsigned ZAVForks::count() noexcept {
    return forks.load(std::memory_order_relaxed);
}

}  // namespace zav
