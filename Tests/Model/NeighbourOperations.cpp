#include <ZAVEventRepository/ZAVKeyedValuesContext.h>

#include "Model/Operations.h"
#include "Model/Values.h"
#include "Support/TestStore.h"

/// What surrounds the event repository: the repositories beside it, rows that other components write,
/// transactions of a caller, and an engine that fails.
namespace zav::test {
namespace {

using Streams = ZAVStreamRepository;

rc::Gen<Step> streamWithUUID() {
    return drawnStep("streamDatabaseIdentifierForUUID", &Comparison::streams,
                     &Streams::streamDatabaseIdentifierForUUID, &StoreModel::streamWithUUID,
                     values::streamUUID());
}

rc::Gen<Step> findOrCreateStream() {
    return drawnStep("findOrCreateStreamWithUUID", &Comparison::streams, &Streams::findOrCreateStreamWithUUID,
                     &StoreModel::findOrCreateStream, values::streamUUID());
}

rc::Gen<Step> createStreamWithoutUUID() {
    return drawnStep("createStreamWithoutUUID", &Comparison::streams, &Streams::createStreamWithoutUUID,
                     &StoreModel::createStreamWithoutUUID);
}

rc::Gen<Step> countOfStreams() {
    return drawnStep("countOfStreams", &Comparison::streams, &Streams::countOfStreams,
                     &StoreModel::countOfStreams);
}

rc::Gen<Step> setStreamUUID() {
    return drawnStep("setUUID", &Comparison::streams, &Streams::setUUID, &StoreModel::setStreamUUID,
                     values::from<ZAVUUID>({uuidNumber(3), uuidNumber(1), uuidNumber(2), uuidNumber(9)}),
                     values::mostly<Tables::Row>({3, 3, 4}, {1, 2, 0, ZAVDatabaseIdentifierNotSet}, 3));
}

rc::Gen<Step> setStreamSeq() {
    return drawnStep("setSeq", &Comparison::streams, &Streams::setSeq, &StoreModel::setStreamSeq,
                     values::sequence(), values::streamRow());
}

rc::Gen<Step> recordChange() {
    return drawnStep(
        "recordChange", &Comparison::changes,
        [](const ZAVSyncedChangeRepository& changes, const std::string& table, Tables::Row row,
           std::int32_t type, ZAVError* error) {
            return changes.recordChange(table, row, static_cast<ZAVSyncedChangeType>(type), error);
        },
        &StoreModel::recordChange, values::mostly<std::string>({"events"}, {"messages", "EVENTS"}, 5),
        values::eventRow(), values::mostly<std::int32_t>({0}, {1, 2}, 3));
}

/// Records changes of the event in a slot, which is then one that exists more often than not.
rc::Gen<Step> recordChangesOfEvent() {
    return rc::gen::exec([] {
        const std::size_t slot = *values::number(Comparison::eventSlots);
        const std::size_t times = *values::from<std::size_t>({1, 2, 3});
        return Step{"recordChange",
                    "insertion of event #" + std::to_string(slot) + ", " + std::to_string(times) + " times",
                    [=](Comparison& both) {
                        const auto row = both.eventRecord(slot).databaseIdentifier;
                        for (std::size_t time = 0; time < times; ++time) {
                            both.agree(
                                [&](ZAVError* error) {
                                    return both.changes().recordChange(ZAVSyncedChangeTableNameEvents, row,
                                                                       ZAVSyncedChangeTypeInsert, error);
                                },
                                [&] { return both.model().recordChange("events", row, 0); });
                        }
                    }};
    });
}

/// Whose dictionary: mostly an event's transient metadata.
struct Dictionary {
    bool isRemote = true;
    Tables::Owner owner;

    [[nodiscard]] ZAVKeyedValuesContext context() const {
        const auto& [object, objectType, keyType] = owner;
        return ZAVKeyedValuesContext::contextWithTable(
            isRemote ? ZAVKeyedValuesTableRemote : ZAVKeyedValuesTableLocal, objectType, object,
            static_cast<ZAVKeyedValuesKeyType>(keyType));
    }
    [[nodiscard]] std::string text() const {
        const auto& [object, objectType, keyType] = owner;
        return (isRemote ? "remote, " : "local, ") + list(objectType, object, keyType);
    }
};

rc::Gen<Dictionary> dictionary() {
    return rc::gen::exec([] {
        Dictionary dictionary;
        dictionary.isRemote = !values::onceIn(4);
        dictionary.owner = {
            *values::eventRow(), values::onceIn(5) ? "message" : "event",
            values::onceIn(5) ? ZAVKeyedValuesKeyTypeSyncable : ZAVKeyedValuesKeyTypeTransient};
        return dictionary;
    });
}

rc::Gen<Step> setKeyedValues() {
    return rc::gen::exec([] {
        const auto dictionary = *test::dictionary();
        const auto metadata = *values::metadata();
        const auto timestamp = *values::from<std::optional<double>>({std::nullopt, 0, 12.5});
        return comparedStep(
            "setKeyedValuesWithDictionary",
            dictionary.text() + ", " + printed(metadata) +
                (timestamp ? ", at " + std::to_string(*timestamp) : ""),
            [=](Comparison& both, ZAVError* error) {
                return both.keyedValues().setKeyedValuesWithDictionary(
                    makeDictionary(metadata),
                    timestamp ? std::optional(ZAVDateFromSecondsSince1970(*timestamp)) : std::nullopt,
                    dictionary.context(), error);
            },
            [=](StoreModel& model) {
                return model.setKeyedValues(dictionary.isRemote, dictionary.owner, metadata, timestamp);
            });
    });
}

rc::Gen<Step> keyedValues() {
    return rc::gen::exec([] {
        const auto dictionary = *test::dictionary();
        return comparedStep(
            "keyedValuesInContext", dictionary.text(),
            [=](Comparison& both, ZAVError* error) {
                return both.keyedValues().keyedValuesInContext(dictionary.context(), error);
            },
            [=](StoreModel& model) { return model.keyedValues(dictionary.isRemote, dictionary.owner); });
    });
}

// --- Rows that other components write, or have written
// ------------------------------------------------------

rc::Gen<Step> message() {
    return rc::gen::exec([] {
        const auto event = *values::eventRow();
        return Step{"a message", "of event " + printed(event), [event](Comparison& both) {
                        if (both.database().executeUpdate(
                                "INSERT INTO messages (event_database_identifier) VALUES (?)", event)) {
                            both.model().insertMessage(event);
                        }
                    }};
    });
}

rc::Gen<Step> conversation() {
    return rc::gen::exec([] {
        const auto stream = *values::streamUUID();
        return Step{"a conversation", "of stream " + printed(stream), [stream](Comparison& both) {
                        if (both.database().executeUpdate("INSERT INTO conversations (stream_id) VALUES (?)",
                                                          stream)) {
                            both.model().insertConversation(bytesOf(stream));
                        }
                    }};
    });
}

rc::Gen<Step> participant() {
    return rc::gen::exec([] {
        const auto conversation = *values::smallRow();
        const auto member = *values::member();
        return Step{
            "a participant", list(conversation, member), [=](Comparison& both) {
                const bool inserted = both.database().executeUpdate(
                    "INSERT INTO conversation_participants (conversation_database_identifier, member_id) "
                    "VALUES (?, ?)",
                    conversation, member);
                if (inserted != both.model().insertParticipant(conversation, member)) {
                    throw Disagreement("a participant could not be made, or was made twice");
                }
            }};
    });
}

rc::Gen<Step> lostStream() {
    return rc::gen::exec([] {
        const auto row = *values::from<Tables::Row>({3, 4, 2, 1});
        return Step{"lose the stream", printed(row), [row](Comparison& both) {
                        both.write("DELETE FROM streams WHERE database_identifier = " + std::to_string(row),
                                   [row](Tables& tables) { tables.streams.erase(row); });
                    }};
    });
}

/// A column that something else has written, as SQL and as the model has it.
template <class Row>
struct ForeignValue {
    const char* assignment;
    void (*apply)(Row& row);
};

template <class Row>
rc::Gen<Step> foreignValue(const char* table, std::map<Tables::Row, Row> Tables::*rows,
                           const std::vector<ForeignValue<Row>>& values) {
    return rc::gen::exec([=] {
        const auto row = *values::smallRow();
        const auto value = *values::from(values);
        return Step{"overwrite", std::string(value.assignment) + " in row " + printed(row) + " of " + table,
                    [=](Comparison& both) {
                        both.write(std::string("UPDATE ") + table + " SET " + value.assignment +
                                       " WHERE database_identifier = " + std::to_string(row),
                                   [&](Tables& tables) {
                                       if (const auto found = (tables.*rows).find(row);
                                           found != (tables.*rows).end()) {
                                           value.apply(found->second);
                                       }
                                   });
                    }};
    });
}

rc::Gen<Step> foreignEventValue() {
    using Event = Tables::Event;
    return foreignValue<Event>("events", &Tables::events,
                               {{"preceding_seq = NULL", [](Event& event) { event.preceding_seq.reset(); }},
                                {"subtype = 257", [](Event& event) { event.subtype = 257; }},
                                {"timestamp = NULL", [](Event& event) { event.timestamp.reset(); }},
                                {"client_seq = NULL", [](Event& event) { event.client_seq.reset(); }},
                                {"stream_database_identifier = NULL",
                                 [](Event& event) { event.stream_database_identifier.reset(); }}});
}

}  // namespace

rc::Gen<Step> foreignPartValue() {
    using Part = Tables::Part;
    return foreignValue<Part>(
        "event_content_parts", &Tables::parts,
        {{"purged = NULL", [](Part& part) { part.purged.reset(); }},
         {"purged = 2", [](Part& part) { part.purged = 2; }},
         {"size = NULL", [](Part& part) { part.size.reset(); }},
         {"transfer_status = NULL", [](Part& part) { part.transfer_status.reset(); }},
         {"type = NULL", [](Part& part) { part.type.reset(); }},
         {"file_path = 'no path'", [](Part& part) { part.file_path = "no path"; }},
         {"file_path = 'https://f.example/x'", [](Part& part) { part.file_path = "https://f.example/x"; }},
         {"access_expiration = NULL", [](Part& part) { part.access_expiration.reset(); }}});
}

namespace {

rc::Gen<Step> foreignStreamValue() {
    return rc::gen::exec([] {
        const auto row = *values::from<Tables::Row>({1, 2, 3});
        return Step{
            "overwrite", "stream_id = x'' in row " + printed(row) + " of streams", [row](Comparison& both) {
                // Only one stream can have it.
                both.write(
                    "UPDATE streams SET stream_id = x'' WHERE database_identifier = " + std::to_string(row),
                    [row](Tables& tables) {
                        if (const auto stream = tables.streams.find(row); stream != tables.streams.end()) {
                            stream->second.stream_id = Bytes{};
                        }
                    });
            }};
    });
}

// --- Failures ----------------------------------------------------------------------------------------------

/// Any operation of the library.
rc::Gen<Step> anyOperation() {
    return oneOf({{5, oneOf(eventSteps())},
                  {3, oneOf(eventQuerySteps())},
                  {1, oneOf(lookupSteps())},
                  {2, oneOf(transferSteps())},
                  {2, oneOf({{1, findOrCreateStream()},
                             {1, createStreamWithoutUUID()},
                             {1, setStreamUUID()},
                             {1, setStreamSeq()},
                             {1, recordChange()},
                             {1, setKeyedValues()},
                             {1, keyedValues()}})}});
}

std::string within(const Step& step) {
    std::ostringstream text;
    text << step;
    return text.str();
}

rc::Gen<Step> withoutErrorParameter() {
    return rc::gen::map(anyOperation(), [](const Step& step) {
        return Step{"without an error parameter", within(step), [run = step.run](Comparison& both) {
                        const Comparison::WithoutErrorParameter none(both);
                        run(both);
                    }};
    });
}

rc::Gen<Step> withRefusedStatement() {
    struct Choice {
        Refusal refusal;
        const char* text;
        rc::Gen<Step> step;
    };
    const auto persisting = oneOf({{2, persistNewEvent()}, {1, persistEvents()}});
    const auto updating = oneOf({{2, persistEvents()}, {1, updateObject()}, {1, persistTombstone()}});
    // A statement is worth refusing to an operation that runs it.
    const std::vector<Choice> choices = {
        {Refusal::insertOfEvent, "no insert of an event", persisting},
        {Refusal::insertOfEventSilently, "each insert of an event ignored", persisting},
        {Refusal::updateOfEvent, "no update of an event", updating},
        {Refusal::deletionOfEventInEvenRow, "no deletion of an event in an even row", deleteEvents()},
        {Refusal::insertOfSecondPart, "no insert of a second part", persisting},
        {Refusal::updateOfPart, "no update of a part", persistNewContentUpdate()},
        {Refusal::insertOfMetadataB, "no insert of metadata 'b'", persisting},
        {Refusal::insertOfMetadataB, "no insert of metadata 'b'", setKeyedValues()},
        {Refusal::deletionOfMetadata, "no deletion of metadata", persistEvents()},
        {Refusal::deletionOfMetadata, "no deletion of metadata", setKeyedValues()},
        {Refusal::insertOfChange, "no insert of a change", recordChange()},
        {Refusal::deletionOfChange, "no deletion of a change", deleteUnprocessedEvents()},
        {Refusal::updateOfMessage, "no update of a message", persistMessageSeq()},
        {Refusal::updateOfParticipant, "no update of a participant", persistParticipantsSeq()},
        {Refusal::insertOfStream, "no insert of a stream",
         oneOf({{1, findOrCreateStream()}, {1, createStreamWithoutUUID()}})},
        {Refusal::updateOfStream, "no update of a stream",
         oneOf({{1, setStreamUUID()}, {1, setStreamSeq()}})},
    };
    return rc::gen::exec([choices] {
        const auto& choice = choices[*values::number(choices.size())];
        const Step step = *choice.step;
        return Step{"refused", std::string(choice.text) + ": " + within(step),
                    [refusal = choice.refusal, run = step.run](Comparison& both) {
                        const Comparison::RefusedStatement refused(both, refusal);
                        run(both);
                    }};
    });
}

rc::Gen<Step> withWithheldTable() {
    return rc::gen::exec([] {
        const auto table = *values::mostly<std::string>(
            {"keyed_values_remote", "events", "event_content_parts", "keyed_values_remote"},
            {"streams", "synced_changes", "messages", "conversations", "conversation_participants"}, 2);
        const Step step = *anyOperation();
        return Step{"withheld", table + ": " + within(step), [table, run = step.run](Comparison& both) {
                        const Comparison::WithheldTable withheld(both, table);
                        run(both);
                    }};
    });
}

rc::Gen<Step> interrupted() {
    return rc::gen::exec([] {
        const int steps = *rc::gen::inRange(1, 150);
        const Step step = *anyOperation();
        return Step{"interrupted", "after " + std::to_string(steps) + " steps: " + within(step),
                    [steps, run = step.run](Comparison& both) { both.interrupt(steps, [&] { run(both); }); }};
    });
}

}  // namespace

WeightedSteps neighbourSteps() {
    return {{1, streamWithUUID()},
            {2, findOrCreateStream()},
            {1, createStreamWithoutUUID()},
            {1, countOfStreams()},
            {3, setStreamUUID()},
            {3, setStreamSeq()},
            {3, recordChange()},
            {5, recordChangesOfEvent()},
            {2, setKeyedValues()},
            {1, keyedValues()},
            {2, message()},
            {1, conversation()},
            {1, participant()},
            {1, lostStream()},
            {2, foreignEventValue()},
            {3, foreignPartValue()},
            {1, foreignStreamValue()}};
}

WeightedSteps transactionSteps() {
    return {{2, rc::gen::just(Step{"begin", "", [](Comparison& both) { both.begin(); }})},
            {1, rc::gen::just(Step{"commit", "", [](Comparison& both) { both.commit(); }})},
            {1, rc::gen::just(Step{"rollback", "", [](Comparison& both) { both.rollback(); }})}};
}

WeightedSteps disturbanceSteps() {
    return {{2, withoutErrorParameter()},
            {6, withRefusedStatement()},
            {6, withWithheldTable()},
            {4, interrupted()}};
}

}  // namespace zav::test
