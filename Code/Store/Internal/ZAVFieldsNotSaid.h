#pragma once

#include <cstdint>
#include <optional>

#include <ZAVEventRepository/ZAVEvent.h>

#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {

/// The fields that an event does not say. While this lives they may be those of a stored row.
class ZAVFieldsNotSaid {
public:
    explicit ZAVFieldsNotSaid(ZAVEvent& event)
        : event_(event),
          timestamp_(!event.server_timestampIsSet()),
          clientSeq_(!event.client_seqIsSet()),
          precedingSeq_(!event.preceding_seqIsSet()),
          subtype_(!event.subtypeIsSet()),
          targetSeq_(!event.target_seqIsSet()),
          creatorName_(!event.creator_nameIsSet()),
          memberID_(!event.member_idIsSet()) {}
    ~ZAVFieldsNotSaid() {
        if (timestamp_) {
            event_.set_server_timestamp(0);
            event_.unset_server_timestamp();
        }
        if (clientSeq_) {
            event_.set_client_seq(0);
            event_.unset_client_seq();
        }
        if (precedingSeq_) {
            event_.set_preceding_seq(0);
            event_.unset_preceding_seq();
        }
        if (subtype_) {
            event_.set_subtype(0);
            event_.unset_subtype();
        }
        if (targetSeq_) {
            event_.set_target_seq(0);
            event_.unset_target_seq();
        }
        if (creatorName_) {
            event_.set_creator_name(std::nullopt);
            event_.unset_creator_name();
        }
        if (memberID_) {
            event_.set_member_id(std::nullopt);
            event_.unset_member_id();
        }
    }
    ZAVFieldsNotSaid(const ZAVFieldsNotSaid&) = delete;
    ZAVFieldsNotSaid& operator=(const ZAVFieldsNotSaid&) = delete;

    /// @return false on failure, with the reason in `error`.
    bool takeFrom(FMDatabase& database, ZAVDatabaseIdentifier row, ZAVError* error) const {
        if (!timestamp_ && !clientSeq_ && !precedingSeq_ && !subtype_ && !targetSeq_ && !creatorName_ &&
            !memberID_) {
            return true;
        }
        ZAVError failure;
        auto rows = runQuery(database, &failure,
                             "SELECT timestamp, client_seq, preceding_seq, subtype, target_seq, creator_name,"
                             " member_id FROM events WHERE database_identifier = ?",
                             row);
        if (rows && rows->nextWithError(&failure)) {
            take(*rows);
        }
        if (failure) {
            ZAVStoreError(error, failure);
        }
        return !failure;
    }

private:
    void take(const FMResultSet& row) const {
        if (timestamp_) {
            event_.set_server_timestamp(row.longLongIntForColumnIndex(0));
        }
        if (clientSeq_) {
            event_.set_client_seq(row.intForColumnIndex(1));
        }
        if (precedingSeq_) {
            event_.set_preceding_seq(row.intForColumnIndex(2));
        }
        if (subtype_) {
            event_.set_subtype(static_cast<std::uint8_t>(row.intForColumnIndex(3)));
        }
        if (targetSeq_ && !row.columnIndexIsNull(4)) {
            event_.set_target_seq(row.intForColumnIndex(4));
        }
        if (creatorName_) {
            event_.set_creator_name(row.stringForColumnIndex(5));
        }
        if (memberID_) {
            event_.set_member_id(row.stringForColumnIndex(6));
        }
    }

    ZAVEvent& event_;
    bool timestamp_;
    bool clientSeq_;
    bool precedingSeq_;
    bool subtype_;
    bool targetSeq_;
    bool creatorName_;
    bool memberID_;
};

}  // namespace zav
