#include "Private/Database/Internal/ZAVCompactionCourse.h"

#include <algorithm>

namespace zav {
namespace {

/// The least that is worth a call.
constexpr double smallestShare = 0.001;

/// In bytes; the smallest copies have pages that are half full.
constexpr std::int64_t slack = 1 << 20;

}  // namespace

double ZAVCompactionCourse::Part::share() const noexcept {
    return expected <= 0 ? 1.0 : std::min(1.0, static_cast<double>(done) / static_cast<double>(expected));
}

/// Calls a function of the caller's.
template <class Call>
void ZAVCompactionCourse::callOut(const Call& call) noexcept {
    try {
        call();
    } catch (...) {
        thrown_ = std::current_exception();
        isCancelled_ = true;
    }
}

bool ZAVCompactionCourse::mayGoOn() noexcept {
    if (!isCancelled_ && cancel_) {
        callOut([this] { isCancelled_ = cancel_(); });
    }
    return !isCancelled_;
}

bool ZAVCompactionCourse::mayWrite(ZAVWatchedFiles::Kind kind, std::int64_t size, std::int64_t end) noexcept {
    using Kind = ZAVWatchedFiles::Kind;
    switch (kind) {
        case Kind::temporary:
            temporary_.done = std::max(temporary_.done, end);
            isEndless_ = isEndless_ || end > 2 * temporary_.expected + slack;
            break;
        case Kind::log:
            temporary_.done = temporary_.expected;  // what fits in memory is never written
            log_.done += size;
            break;
        case Kind::database:
            database_.done += size;
            break;
        case Kind::other:
            break;
    }
    report((temporary_.share() + log_.share() + database_.share()) / 3);
    if (!mayRefuse_ || (mayGoOn() && !isEndless_)) {
        return true;
    }
    // What follows a failed write is the engine's way back.
    mayRefuse_ = false;
    return false;
}

void ZAVCompactionCourse::report(double share) noexcept {
    const bool isWorthIt = share >= reported_ + smallestShare || (share >= 1 && reported_ < 1);
    if (!progress_ || !isWorthIt || isCancelled_) {
        return;
    }
    reported_ = share;
    callOut([&] { progress_(share); });
}

void ZAVCompactionCourse::rethrow() const {
    if (thrown_) {
        std::rethrow_exception(thrown_);
    }
}

}  // namespace zav
