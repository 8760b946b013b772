#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVStoreWork.h>

#include "Store/Internal/ZAVStoreErrors.h"

namespace zav {

/// Carries the error of an operation on content to where it is answered.
class ZAVContentFailure : public std::runtime_error {
public:
    explicit ZAVContentFailure(ZAVError error)
        : std::runtime_error(error.message()), error_(std::move(error)) {}

    [[nodiscard]] const ZAVError& error() const noexcept { return error_; }

private:
    ZAVError error_;
};

/// @param failure why the work did not want what it wrote, if that may be.
/// @throws ZAVContentFailure unless a work of the store is done.
inline void ZAVExpectDone(const ZAVWorkOutcome& outcome, const ZAVError& failure = {}) {
    if (outcome.state != ZAVWorkOutcome::State::done) {
        throw ZAVContentFailure(outcome.error ? outcome.error : failure);
    }
}

/// Why a file, or the way to it, cannot be used.
[[nodiscard]] inline std::string ZAVReasonOf(const std::system_error& failure) {
    const bool isNoDirectory = failure.code() == std::errc::too_many_symbolic_link_levels ||
                               failure.code() == std::errc::not_a_directory;
    return isNoDirectory ? "leads through what is no directory of the cache" : failure.code().message();
}

/// The error of a file of content.
[[nodiscard]] inline ZAVError ZAVErrorOfContent(const std::string& path, const std::string& reason) {
    return ZAVErrorOfStore(ZAVEventStoreErrorContent, path + ": " + reason);
}

/// Does what throws, and stores why it failed, of the file or directory at `place`. Answers whether it did
/// not.
template <class Work>
bool ZAVSucceeds(const std::string& place, ZAVError* error, const Work& work) {
    try {
        work();
        return true;
    } catch (const ZAVContentFailure& failure) {
        ZAVStoreError(error, failure.error());
    } catch (const std::system_error& failure) {
        ZAVStoreError(error, ZAVErrorOfContent(place, failure.code().message()));
    }
    return false;
}

/// The same for what answers something: none when it failed.
template <class Work>
auto ZAVAnswerOf(const std::string& place, ZAVError* error, const Work& work) {
    std::optional<decltype(work())> answer;
    ZAVSucceeds(place, error, [&] { answer = work(); });
    return answer;
}

}  // namespace zav
