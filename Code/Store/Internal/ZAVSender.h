#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVSending.h>

#include "Store/Internal/ZAVStoreHandle.h"
#include "Store/Internal/ZAVStoreOwner.h"

namespace zav {

/// Stores what the user sends, until the service has it.
class ZAVSender {
public:
    ZAVSender(const ZAVStoreHandle& handle, const ZAVStoreOwner& owner) noexcept
        : handle_(handle), repositories_(handle.repositories()), owner_(owner) {}

    /// Stores an event that waits for its sequence, in a transaction that holds the write lock.
    /// @return false on failure, with the reason in `error`.
    bool send(ZAVEvent& event, ZAVSentEvent& answer, ZAVError* error) const;

    /// The events that can go to the service, in their order.
    [[nodiscard]] std::optional<std::vector<std::shared_ptr<ZAVEvent>>> outbox(
        const ZAVOutboxOptions& options, ZAVError* error) const;

    /// Gives a stream its identifier; when another stream has it already, its events move there.
    /// @return the row of the stream that has it now; none on failure, with the reason in `error`.
    [[nodiscard]] std::optional<ZAVDatabaseIdentifier> nameStream(ZAVDatabaseIdentifier stream,
                                                                  const ZAVUUID& uuid, ZAVError* error) const;

private:
    [[nodiscard]] ZAVError objectionTo(const ZAVEvent& event) const;
    bool findStream(ZAVEvent& event, ZAVError* error) const;
    [[nodiscard]] std::optional<std::int64_t> countOfSent(ZAVDatabaseIdentifier stream,
                                                          ZAVError* error) const;
    bool setCountOfSent(ZAVDatabaseIdentifier stream, std::int64_t count, ZAVError* error) const;

    const ZAVStoreHandle& handle_;
    const ZAVRepositories& repositories_;
    const ZAVStoreOwner& owner_;
};

}  // namespace zav
