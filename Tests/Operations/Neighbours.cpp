#include <ZAVEventRepository/ZAVConversationRepository.h>
#include <ZAVEventRepository/ZAVEventRowRepository.h>
#include <ZAVEventRepository/ZAVKeyedValueRepository.h>
#include <ZAVEventRepository/ZAVMessageRepository.h>
#include <ZAVEventRepository/ZAVStreamRepository.h>
#include <ZAVEventRepository/ZAVSyncedChangeRepository.h>
#include <ZAVEventRepository/ZAVTransaction.h>

#include <iterator>
#include <memory>
#include <set>
#include <utility>
#include <variant>

#include "Operations/Answers.h"
#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Operations/Texts.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

constexpr const char* noRow = "9223372036854775807";

using Streams = ZAVStreamRepository;
using Conversations = ZAVConversationRepository;
using Messages = ZAVMessageRepository;
using KeyedValues = ZAVKeyedValueRepository;
using Changes = ZAVSyncedChangeRepository;
using EventRows = ZAVEventRowRepository;

/// The handle of the repository, which keeps it open meanwhile, for a neighbour.
std::shared_ptr<FMDatabase> on(const ZAVEventRepository& repository) {
    return {std::shared_ptr<void>(), &repository.database()};
}

/// What is not there is no failure: only the error tells.
/// @param describe the text of what was read; it is given none too.
template <class Read, class Describe>
Answer answerOfLookup(ZAVError* error, const Read& read, const Describe& describe) {
    ZAVError own;
    const auto found = read(error == nullptr ? nullptr : &own);
    if (own || (error == nullptr && !found)) {
        ZAVStoreError(error, own);
        return {"none"};
    }
    return {describe(found)};
}

template <class Read>
Answer answerOfSeq(ZAVError* error, const Read& read) {
    return answerOfLookup(error, read, [](const std::optional<ZAVSequence>& seq) {
        return seq ? std::to_string(*seq) : "no sequence";
    });
}

template <class Read>
Answer answerOfStream(ZAVError* error, const Read& read) {
    return answerOfLookup(error, read, [](const std::optional<ZAVRegisteredStream>& stream) {
        return stream && stream->uuid ? std::to_string(stream->row) + " " + stream->uuid->UUIDString()
                                      : "no stream";
    });
}

/// The keyed values of the event in row 1.
ZAVKeyedValuesContext valuesIn(ZAVKeyedValuesTable table) {
    return ZAVKeyedValuesContext::contextWithTable(table, "event", 1, ZAVKeyedValuesKeyTypeTransient);
}

std::vector<Operation> streamOperations() {
    const auto finding = [](const std::string& uuid) {
        return ExpectedStatement{
            .text = "SELECT database_identifier FROM streams WHERE stream_id = ?",
            .values = {uuid},
            .plan = {"SEARCH streams USING COVERING INDEX streams_by_stream_id (stream_id=?)"}};
    };
    const auto inserting = [](const std::string& uuid) {
        return ExpectedStatement{.text = "INSERT INTO streams (stream_id) VALUES (?)", .values = {uuid}};
    };
    const std::string known = "x'111111111111111111111111111111aa'";
    const std::string unknown = "x'111111111111111111111111111111bb'";
    const std::vector<std::string> byRow{"SEARCH streams USING INTEGER PRIMARY KEY (rowid=?)"};
    return {
        {.owner = "ZAVStreamRepository",
         .name = "streamDatabaseIdentifierForUUID",
         .call =
             [](auto& r, auto* error) {
                 return answerOfRow(
                     Streams(on(r)).streamDatabaseIdentifierForUUID(publishedStreamUUID(), error));
             },
         .statements = {finding(known)},
         .needs = {"streams"},
         .answers = {"1", "9223372036854775807", noRow}},
        {.owner = "ZAVStreamRepository",
         .name = "findOrCreateStreamWithUUID",
         .variant = "OfANewStream",
         .call =
             [](auto& r, auto* error) {
                 return answerOfRow(Streams(on(r)).findOrCreateStreamWithUUID(uuidNumber(0xBB), error));
             },
         .statements = {finding(unknown), inserting(unknown)},
         .needs = {"streams"},
         .answers = {"3", "1", noRow}},
        {.owner = "ZAVStreamRepository",
         .name = "findOrCreateStreamWithUUID",
         .variant = "OfAKnownStream",
         .call =
             [](auto& r, auto* error) {
                 return answerOfRow(Streams(on(r)).findOrCreateStreamWithUUID(publishedStreamUUID(), error));
             },
         .statements = {finding(known)},
         .needs = {"streams"},
         .answers = {"1", "1", noRow}},
        {.owner = "ZAVStreamRepository",
         .name = "createStreamWithoutUUID",
         .call = [](auto& r,
                    auto* error) { return answerOfRow(Streams(on(r)).createStreamWithoutUUID(error)); },
         .statements = {inserting("NULL")},
         .needs = {"streams"},
         .answers = {"3", "1", noRow},
         .isRepeatable = false},
        {.owner = "ZAVStreamRepository",
         .name = "setUUID",
         .call =
             [](auto& r, auto* error) {
                 return answer(Streams(on(r)).setUUID(uuidNumber(0xCC), unpublishedStream, error));
             },
         .statements = {{.text = "UPDATE streams SET stream_id = ? WHERE database_identifier = ?",
                         .values = {"x'111111111111111111111111111111cc'", "2"},
                         .plan = byRow}},
         .needs = {"streams"},
         .answers = {"true", "true", "false"}},
        {.owner = "ZAVStreamRepository",
         .name = "setSeq",
         .call = [](auto& r,
                    auto* error) { return answer(Streams(on(r)).setSeq(77, publishedStream, error)); },
         .statements = {{.text = "UPDATE streams SET seq = ? WHERE database_identifier = ?",
                         .values = {"77", "1"},
                         .plan = byRow}},
         .needs = {"streams"},
         .answers = {"true", "true", "false"}},
        {.owner = "ZAVStreamRepository",
         .name = "streamForDatabaseIdentifier",
         .call =
             [](auto& r, auto* error) {
                 return answerOfStream(error, [&](ZAVError* cell) {
                     return Streams(on(r)).streamForDatabaseIdentifier(publishedStream, cell);
                 });
             },
         .statements = {{.text = "SELECT database_identifier, stream_id FROM streams"
                                 " WHERE database_identifier = ?",
                         .values = {"1"},
                         .plan = byRow}},
         .needs = {"streams"},
         .answers = {"1 11111111-1111-1111-1111-1111111111aa", "no stream", "none"}},
        {.owner = "ZAVStreamRepository",
         .name = "streamsAbove",
         .call =
             [](auto& r, auto* error) {
                 const auto streams = Streams(on(r)).streamsAbove(0, error);
                 return streams ? answer(ZAVSize{streams->size()}) : Answer{"none"};
             },
         .statements = {{.text = "SELECT database_identifier, stream_id FROM streams"
                                 " WHERE database_identifier > ? ORDER BY database_identifier",
                         .values = {"0"},
                         .plan = {"SEARCH streams USING INTEGER PRIMARY KEY (rowid>?)"}}},
         .needs = {"streams"},
         .answers = {"2", "0", "none"}},
        {.owner = "ZAVStreamRepository",
         .name = "countOfStreams",
         .call =
             [](auto& r, auto* error) {
                 const auto count = Streams(on(r)).countOfStreams(error);
                 return count ? answer(ZAVSize{*count}) : Answer{"none"};
             },
         .statements = {{.text = "SELECT COUNT(*) FROM streams",
                         .plan = {"SCAN streams USING COVERING INDEX streams_by_stream_id"}}},
         .needs = {"streams"},
         .answers = {"2", "0", "none"}},
    };
}

std::vector<Operation> conversationOperations() {
    return {
        {.owner = "ZAVConversationRepository",
         .name = "findOrCreateConversationWithStreamUUID",
         .call =
             [](auto& r, auto* error) {
                 return answerOfRow(
                     Conversations(on(r)).findOrCreateConversationWithStreamUUID(uuidNumber(0xBB), error));
             },
         .statements =
             {{.text = "SELECT database_identifier FROM conversations WHERE stream_id = ?",
               .values = {"x'111111111111111111111111111111bb'"},
               .plan =
                   {"SEARCH conversations USING COVERING INDEX conversations_by_stream_id (stream_id=?)"}},
              {.text = "INSERT INTO conversations (stream_id) VALUES (?)",
               .values = {"x'111111111111111111111111111111bb'"}}},
         .needs = {"conversations"},
         .answers = {"2", "1", noRow}},
        {.owner = "ZAVConversationRepository",
         .name = "addParticipant",
         .call =
             [](auto& r, auto* error) {
                 return answer(Conversations(on(r)).addParticipant("member-2", 1, error));
             },
         .statements =
             {{.text = "INSERT OR IGNORE INTO conversation_participants (conversation_database_identifier, "
                       "member_id) VALUES (?, ?)",
               .values = {"1", "'member-2'"}}},
         .needs = {"conversation_participants"},
         .answers = {"true", "true", "false"}},
        {.owner = "ZAVConversationRepository",
         .name = "seqOfParticipant",
         .call =
             [](auto& r, auto* error) {
                 return answerOfSeq(error, [&](ZAVError* own) {
                     return Conversations(on(r)).seqOfParticipant("member-1", 1, own);
                 });
             },
         .statements =
             {{.text = "SELECT seq FROM conversation_participants WHERE conversation_database_identifier = ? "
                       "AND member_id = ?",
               .values = {"1", "'member-1'"},
               .plan = {"SEARCH conversation_participants USING INDEX conversation_participants_by_member "
                        "(conversation_database_identifier=? AND member_id=?)"}}},
         .needs = {"conversation_participants"},
         .answers = {"2", "no sequence", "none"}},
        {.owner = "ZAVMessageRepository",
         .name = "findOrCreateMessageForEventDatabaseIdentifier",
         .call =
             [](auto& r, auto* error) {
                 const auto message =
                     Messages(on(r)).findOrCreateMessageForEventDatabaseIdentifier(21, error);
                 return Answer{message ? message->description() : "null"};
             },
         .statements =
             {{.text = "SELECT database_identifier FROM messages WHERE event_database_identifier = ?",
               .values = {"21"},
               .plan =
                   {"SEARCH messages USING COVERING INDEX messages_by_event (event_database_identifier=?)"}},
              {.text = "INSERT INTO messages (event_database_identifier) VALUES (?)", .values = {"21"}}},
         .needs = {"messages"},
         .answers = {"<ZAVMessage databaseIdentifier=21>", "<ZAVMessage databaseIdentifier=1>", "null"}},
        {.owner = "ZAVMessageRepository",
         .name = "seqOfMessage",
         .call =
             [](auto& r, auto* error) {
                 return answerOfSeq(
                     error, [&](ZAVError* own) { return Messages(on(r)).seqOfMessage(ZAVMessage(5), own); });
             },
         .statements = {{.text = "SELECT seq FROM messages WHERE database_identifier = ?",
                         .values = {"5"},
                         .plan = {"SEARCH messages USING INTEGER PRIMARY KEY (rowid=?)"}}},
         .needs = {"messages"},
         .answers = {"5", "no sequence", "none"}},
    };
}

/// The operations on keyed values in one of their two tables.
std::vector<Operation> valueOperations(ZAVKeyedValuesTable table, const std::string& name,
                                       const std::string& variant) {
    const ExpectedStatement stored{
        .text = "SELECT key, value, typeof(value) = 'blob' FROM " + name +
                " WHERE object_database_identifier = ? AND object_type = ? AND key_type = ?",
        .values = {"1", "'event'", "0"},
        .plan = {"SEARCH " + name +
                 " USING PRIMARY KEY (object_database_identifier=? AND object_type=? AND key_type=?)"}};
    // In the filled store only the remote object has values, one of which is not in the new dictionary.
    const bool isRemote = table == ZAVKeyedValuesTableRemote;
    std::vector<ExpectedStatement> setting{
        comparingValues(name, {"1", "'event'", "0"}),
        settingAValue(name, {"1", "'event'", "0", "'key'", "x'ff'", "1700000000.0"}, 2)};
    if (isRemote) {
        setting.push_back(removingAValue(name, {"1", "'event'", "0", "'note'"}));
    }
    return {
        {.owner = "ZAVKeyedValueRepository",
         .name = "setKeyedValuesWithDictionary",
         .variant = variant,
         .call =
             [table](auto& r, auto* error) {
                 const ZAVDictionary values{{"locale", std::string("fr")}, {"key", ZAVData("\xFF", 1)}};
                 return answer(KeyedValues(on(r)).setKeyedValuesWithDictionary(
                     values, ZAVDateFromSecondsSince1970(1700000000), valuesIn(table), error));
             },
         .statements = std::move(setting),
         .needs = {name},
         .answers = {"true", "true", "false"},
         .isAtomic = false},
        {.owner = "ZAVKeyedValueRepository",
         .name = "keyedValuesInContext",
         .variant = variant,
         .call =
             [table](auto& r, auto* error) {
                 const auto values = KeyedValues(on(r)).keyedValuesInContext(valuesIn(table), error);
                 Answer found{values ? "values" : "none"};
                 if (values) {
                     for (const auto& [key, value] : values->keyedValues()) {
                         const auto* const text = std::get_if<std::string>(&value);
                         found.value += " " + key + "=" + (text != nullptr ? *text : "bytes");
                     }
                 }
                 return found;
             },
         .statements = {stored},
         .needs = {name},
         .answers = {isRemote ? "values locale=de note=" + std::string(300, 'n') : "values", "values",
                     "none"}},
    };
}

std::vector<Operation> changeOperations() {
    return {
        {.owner = "ZAVSyncedChangeRepository",
         .name = "recordChange",
         .call =
             [](auto& r, auto* error) {
                 return answer(Changes(on(r)).recordChange("events", 1, ZAVSyncedChangeTypeUpdate, error));
             },
         .statements =
             {{.text =
                   "INSERT INTO synced_changes (table_name, row_identifier, change_type) VALUES (?, ?, ?)",
               .values = {"'events'", "1", "1"}}},
         .needs = {"synced_changes"},
         .answers = {"true", "true", "false"},
         // Each call adds a row.
         .isRepeatable = false},
    };
}

std::vector<Operation> eventRowOperations() {
    return {
        {.owner = "ZAVEventRowRepository",
         .name = "eventsWithoutSeq",
         .call =
             [](auto& r, auto* error) {
                 const auto rows = EventRows(on(r)).eventsWithoutSeq(error);
                 Answer found{rows ? "rows" : "none"};
                 for (const ZAVDatabaseIdentifier row : rows.value_or(std::set<ZAVDatabaseIdentifier>())) {
                     found.value += " " + std::to_string(row);
                 }
                 return found;
             },
         .statements =
             {{.text =
                   "SELECT database_identifier FROM events INDEXED BY events_without_seq WHERE seq IS NULL",
               .plan = {"SCAN events USING INDEX events_without_seq"}}},
         .needs = {"events"},
         .answers = {"rows 21 22 23 24", "rows", "none"}},
        {.owner = "ZAVEventRowRepository",
         .name = "diskUtilization",
         .call =
             [](auto& r, auto* error) {
                 const auto sum = EventRows(on(r)).diskUtilization(error);
                 return Answer{sum ? std::to_string(*sum) : "none"};
             },
         .statements =
             {{.text = "SELECT IFNULL(SUM(size), 0) FROM event_content_parts WHERE transfer_status IN (0, 1, "
                       "4) AND file_path IS NOT NULL AND size IS NOT NULL AND (purged = 0 OR purged IS NULL)",
               .plan = {"SEARCH event_content_parts USING INDEX event_content_parts_by_disk_use "
                        "(transfer_status=? AND size>?)"}}},
         .needs = {"event_content_parts"},
         .answers = {"1800", "0", "none"}},
    };
}

/// Storing events in a transaction.
Operation transactionAroundPersisting() {
    const Operation persisting = eventPersistence().front();
    std::vector<ExpectedStatement> statements{{.text = "BEGIN IMMEDIATE"}};
    statements.insert(statements.end(), persisting.statements.begin(), persisting.statements.end());
    statements.push_back({.text = "COMMIT"});
    return {
        .owner = "ZAVTransaction",
        .name = "begin",
        .variant = "AndPersistEvents",
        .call =
            [persist = persisting.call](const ZAVEventRepository& r, ZAVError* error) {
                auto transaction = ZAVTransaction::begin(r.database(), error);
                return answer(transaction && persist(r, error).value == "true" && transaction->commit(error));
            },
        .log = persisting.log,
        .statements = statements,
        .needs = {"events"},
        .answers = {"true", "raises", "false"}};
}

}  // namespace

std::vector<Operation> neighbours() {
    std::vector<Operation> all = streamOperations();
    for (auto group : {conversationOperations(),
                       valueOperations(ZAVKeyedValuesTableRemote, "keyed_values_remote", "InTheRemoteTable"),
                       valueOperations(ZAVKeyedValuesTableLocal, "keyed_values_local", "InTheLocalTable"),
                       changeOperations(), eventRowOperations()}) {
        all.insert(all.end(), std::make_move_iterator(group.begin()), std::make_move_iterator(group.end()));
    }
    all.push_back(transactionAroundPersisting());
    for (Operation& operation : all) {
        operation.report = FailureReport::outParameterOnly;
    }
    return all;
}

}  // namespace zav::test
