#pragma once

#include <optional>
#include <string_view>

#include <ZAVEventRepository/ZAVDatabaseRepository.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

/// The conversations of this device, and who takes part in them. A conversation shows one stream; how far
/// each participant has progressed in it is recorded by
/// `ZAVEventRepository::persistConversationsParticipantsSeq`.
class ZAV_EXPORT ZAVConversationRepository : public ZAVDatabaseRepository {
public:
    /// Sets a repository on an open handle, which it shares.
    /// @throws NSInternalInconsistencyException when there is none.
    using ZAVDatabaseRepository::ZAVDatabaseRepository;

    /// Row of the conversation that shows a stream, which is made when there is none;
    /// `ZAVDatabaseIdentifierNotSet` on failure, with the reason in `error`.
    ZAVDatabaseIdentifier findOrCreateConversationWithStreamUUID(const ZAVUUID& streamUUID,
                                                                 ZAVError* error = nullptr) const;

    /// Adds a participant; one that is recorded already stays as it is.
    /// @return whether the statement ran.
    bool addParticipant(std::string_view memberID, ZAVDatabaseIdentifier conversationDatabaseIdentifier,
                        ZAVError* error = nullptr) const;

    /// How far a participant has progressed; none for a participant without a sequence, for somebody who is
    /// no participant, and on failure, with the reason in `error`.
    [[nodiscard]] std::optional<ZAVSequence> seqOfParticipant(
        std::string_view memberID, ZAVDatabaseIdentifier conversationDatabaseIdentifier,
        ZAVError* error = nullptr) const;
};

}  // namespace zav
