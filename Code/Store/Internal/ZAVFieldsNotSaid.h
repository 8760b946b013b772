#pragma once

#include <bitset>
#include <cstddef>
#include <type_traits>

#include <ZAVEventRepository/ZAVEvent.h>

#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {

/// The fields that an event does not say. While this lives they may be those of a stored row.
class ZAVFieldsNotSaid {
public:
    explicit ZAVFieldsNotSaid(ZAVEvent& event) : event_(event) {
        forEachField(
            [&](std::size_t field, auto isSet, auto, auto) { areNotSaid_[field] = !(event_.*isSet)(); });
    }
    ~ZAVFieldsNotSaid() {
        forEachField([&](std::size_t field, auto, auto set, auto unset) {
            if (areNotSaid_[field]) {
                (event_.*set)({});
                (event_.*unset)();
            }
        });
    }
    ZAVFieldsNotSaid(const ZAVFieldsNotSaid&) = delete;
    ZAVFieldsNotSaid& operator=(const ZAVFieldsNotSaid&) = delete;

    /// @return false on failure, with the reason in `error`.
    bool takeFrom(FMDatabase& database, ZAVDatabaseIdentifier row, ZAVError* error) const {
        const auto take = [&](const FMResultSet& stored) {
            forEachField([&](std::size_t field, auto, auto set, auto) {
                if (areNotSaid_[field]) {
                    takeField(stored, static_cast<int>(field), set);
                }
            });
        };
        return areNotSaid_.none() ||
               visitRows(database, error,
                         "SELECT timestamp, client_seq, preceding_seq, subtype, target_seq, creator_name,"
                         " member_id FROM events WHERE database_identifier = ?",
                         take, row);
    }

private:
    static constexpr std::size_t fieldCount = 7;
    static constexpr int targetSeq = 4;

    /// Calls `visit` with each field: its column in the query, and how it is asked for, set and unset.
    template <class Visit>
    static void forEachField(const Visit& visit) {
        using Event = ZAVTEvent;
        visit(0, &Event::server_timestampIsSet, &Event::set_server_timestamp, &Event::unset_server_timestamp);
        visit(1, &Event::client_seqIsSet, &Event::set_client_seq, &Event::unset_client_seq);
        visit(2, &Event::preceding_seqIsSet, &Event::set_preceding_seq, &Event::unset_preceding_seq);
        visit(3, &Event::subtypeIsSet, &Event::set_subtype, &Event::unset_subtype);
        visit(targetSeq, &Event::target_seqIsSet, &Event::set_target_seq, &Event::unset_target_seq);
        visit(5, &Event::creator_nameIsSet, &Event::set_creator_name, &Event::unset_creator_name);
        visit(6, &Event::member_idIsSet, &Event::set_member_id, &Event::unset_member_id);
    }

    template <class Value>
    void takeField(const FMResultSet& stored, int column, void (ZAVTEvent::*set)(Value)) const {
        if (column == targetSeq && stored.columnIndexIsNull(column)) {
            return;  // no target, and not that at the sequence 0
        }
        if constexpr (std::is_integral_v<Value>) {
            (event_.*set)(static_cast<Value>(stored.longLongIntForColumnIndex(column)));
        } else {
            (event_.*set)(stored.stringForColumnIndex(column));
        }
    }

    ZAVEvent& event_;
    std::bitset<fieldCount> areNotSaid_;
};

}  // namespace zav
