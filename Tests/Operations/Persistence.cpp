#include "Operations/Answers.h"
#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Operations/Statements.h"

namespace zav::test {
namespace {

const LogTexts persistingThree{.function = "-[ZAVEventRepository persistEvents:error:]",
                               .verboseFormat = "persisting %lu event(s)",
                               .verboseMessage = "persisting 3 event(s)",
                               .failureFormat = "failed to persist events:%@ with %@",
                               .failureMessage = "failed to persist events:"};

const ExpectedStatement streamByItsUUID{
    .text = "SELECT * FROM streams WHERE stream_id = ? LIMIT 1",
    .plan = {"SEARCH streams USING INDEX streams_by_stream_id (stream_id=?)"}};

const ExpectedStatement insertion{
    .text =
        "INSERT OR IGNORE INTO events (database_identifier, type, creator_id, seq, timestamp, preceding_seq, "
        "client_seq, subtype, member_id, target_seq, stream_database_identifier, client_id, creator_name) VALUES "
        "(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"};

const ExpectedStatement collidingEvent{
    .text = "SELECT * FROM events WHERE stream_database_identifier = ? AND seq = ? LIMIT 1",
    .plan = {"SEARCH events USING INDEX events_by_stream_and_seq (stream_database_identifier=? AND seq=?)"}};

const ExpectedStatement update{
    .text =
        "UPDATE events SET type = ?, creator_id = ?, seq = ?, timestamp = ?, preceding_seq = ?, client_seq = ?, "
        "subtype = ?, member_id = ?, target_seq = ?, stream_database_identifier = ?, client_id = ?, creator_name = "
        "? WHERE database_identifier = ?",
    .plan = {"SEARCH events USING INTEGER PRIMARY KEY (rowid=?)"}};

const ExpectedStatement storedValues{
    .text =
        "SELECT key, value, typeof(value) = 'blob', timestamp, typeof(key) = 'text' AND typeof(value) IN ('text', "
        "'blob') AND typeof(timestamp) IN ('real', 'null') FROM keyed_values_remote WHERE "
        "object_database_identifier = ? AND object_type = ? AND key_type = ?",
    .plan = {
        "SEARCH keyed_values_remote USING PRIMARY KEY (object_database_identifier=? AND object_type=? AND "
        "key_type=?)"}};

const ExpectedStatement setting{
    .text =
        "INSERT OR REPLACE INTO keyed_values_remote (object_database_identifier, object_type, key_type, key, value, "
        "timestamp) VALUES (?, ?, ?, ?, ?, ?)"};

const ExpectedStatement removal{
    .text =
        "DELETE FROM keyed_values_remote WHERE object_database_identifier = ? AND object_type = ? AND key_type = ? AND "
        "key = ?",
    .plan = {
        "SEARCH keyed_values_remote USING PRIMARY KEY (object_database_identifier=? AND object_type=? AND key_type=? "
        "AND key=?)"}};

const ExpectedStatement part{
    .text =
        "INSERT OR IGNORE INTO event_content_parts (event_content_part_id, event_database_identifier, type, value, "
        "access_expiration, url, size, transfer_status, file_path, last_accessed, purged) VALUES (?, ?, ?, ?, ?, ?, "
        "?, ?, ?, ?, ?)"};

/// One that is stored already, one at a new sequence and one without.
ZAVSet<ZAVTEvent> threeEvents() {
    return {fullEvent(3, 3), fullEvent(90, 90), draft(91)};
}

/// An event that is stored already, named by its stream's row, with other metadata.
ZAVSet<ZAVTEvent> eventWithOtherMetadata() {
    auto event = std::make_shared<ZAVEvent>(ZAVDatabaseIdentifierNotSet, publishedStream);
    event->set_type(EventType_MESSAGE);
    event->set_seq(1);
    event->set_client_id(ZAVDataFromUUID(publishedStreamUUID()));
    event->set_transient_metadata(ZAVDictionary{{"other", std::string("value")}});
    return {event};
}

}  // namespace

std::vector<Operation> eventPersistence() {
    using R = ZAVEventRepository;
    LogTexts persistingOne = persistingThree;
    persistingOne.verboseMessage = "persisting 1 event(s)";
    return {
        {.owner = "ZAVEventRepository",
         .name = "persistEvents",
         .call = [](const R& r, ZAVError* error) { return answer(r.persistEvents(threeEvents(), error)); },
         .log = persistingThree,
         .statements = {streamByItsUUID, insertion, collidingEvent, update, storedValues, part, setting},
         .brokenWithout = "events",
         .report = FailureReport::errorLine,
         .answerOnFailure = "false",
         .isAtomic = false,
         // An insertion that is ignored uses up a row identifier: the second time, events get later rows.
         .isRepeatable = false},
        {.owner = "ZAVEventRepository",
         .name = "persistEvents",
         .variant = "WithOtherMetadata",
         .call = [](const R& r,
                    ZAVError* error) { return answer(r.persistEvents(eventWithOtherMetadata(), error)); },
         .log = persistingOne,
         .statements = {{.text = "SELECT * FROM streams WHERE database_identifier = ? LIMIT 1",
                         .plan = {"SEARCH streams USING INTEGER PRIMARY KEY (rowid=?)"}},
                        insertion,
                        collidingEvent,
                        update,
                        storedValues,
                        setting,
                        removal},
         .brokenWithout = "events",
         .report = FailureReport::errorLine,
         .answerOnFailure = "false",
         .isAtomic = false},
    };
}

}  // namespace zav::test
