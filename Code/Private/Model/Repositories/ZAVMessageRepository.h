#pragma once

#include <memory>
#include <optional>

#include <ZAVEventRepository/ZAVDatabaseRepository.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVMessage.h>

namespace zav {

/// The messages that an application shows, each carried by one event. The parts of a message are the content
/// parts of its event; see `ZAVMessagePart` and `ZAVEventRepository::eventContentForMessagePart`.
class ZAV_EXPORT ZAVMessageRepository : public ZAVDatabaseRepository {
public:
    /// Sets a repository on an open handle, which it shares.
    /// @throws NSInternalInconsistencyException when there is none.
    using ZAVDatabaseRepository::ZAVDatabaseRepository;

    /// The message that an event carries, which is recorded when there is none yet; null on failure, with the
    /// reason in `error`.
    [[nodiscard]] std::shared_ptr<ZAVMessage> findOrCreateMessageForEventDatabaseIdentifier(
        ZAVDatabaseIdentifier eventDatabaseIdentifier, ZAVError* error = nullptr) const;

    /// A message's sequence; none while it has none, when there is no such message, and on failure, with the
    /// reason in `error`.
    [[nodiscard]] std::optional<ZAVSequence> seqOfMessage(const ZAVMessage& message,
                                                          ZAVError* error = nullptr) const;
};

}  // namespace zav
