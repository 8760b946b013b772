#include "Model/Operations.h"
#include "Model/Values.h"
#include "Support/TestStore.h"

/// Operations on events, and on their records.
namespace zav::test {
namespace {

Step inSlot(const char* kind, std::size_t slot, const std::string& what,
            std::function<void(Comparison&)> run) {
    return {kind, "#" + std::to_string(slot) + (what.empty() ? "" : ", " + what), std::move(run)};
}

rc::Gen<Step> newEvent() {
    return rc::gen::exec([] {
        const std::size_t slot = *values::number(Comparison::eventSlots);
        const EventRecord record = *values::event();
        return inSlot("new event", slot, printed(record),
                      [=](Comparison& both) { both.putEvent(slot, record); });
    });
}

rc::Gen<Step> changedEvent() {
    return rc::gen::exec([] {
        const std::size_t slot = *values::number(Comparison::eventSlots);
        const auto fields = *values::eventFields();
        EventRecord changes;
        fields.copy(*values::event(), changes);
        return inSlot("change event", slot, std::string("its ") + fields.name + " to " + printed(changes),
                      [=](Comparison& both) {
                          EventRecord& record = both.eventRecord(slot);
                          if (!record.isBareWireRecord) {
                              fields.copy(changes, record);
                              both.refreshEvent(slot);
                          }
                      });
    });
}

rc::Gen<Step> preparedEvent() {
    return rc::gen::exec([] {
        const std::size_t slot = *values::number(Comparison::eventSlots);
        return inSlot("ZAVPrepareEventContentsForDownload", slot, "", [slot](Comparison& both) {
            if (const auto event = std::dynamic_pointer_cast<ZAVEvent>(both.event(slot))) {
                ZAVPrepareEventContentsForDownload(*event, uuidNumber(77), "ann");
                StoreModel::prepareForDownload(both.eventRecord(slot), uuidNumber(77), "ann");
            }
        });
    });
}

rc::Gen<Step> newPart() {
    return rc::gen::exec([] {
        const std::size_t slot = *values::number(Comparison::partSlots);
        PartRecord record = *values::part();
        record.isBareWireRecord = false;
        return inSlot("new part", slot, printed(record),
                      [=](Comparison& both) { both.putPart(slot, record); });
    });
}

rc::Gen<Step> changedPart() {
    return rc::gen::exec([] {
        const auto place = *values::partPlace();
        const auto fields = *values::partFields();
        PartRecord changes;
        fields.copy(*values::part(), changes);
        return Step{"change part", printed(place) + ", its " + fields.name + " to " + printed(changes),
                    [=](Comparison& both) {
                        if (const auto part = both.part(place)) {
                            fields.copy(changes, both.partRecord(place));
                            assign(both.partRecord(place), *part);
                        }
                    }};
    });
}

/// A query of the event repository.
template <class Call, class Ask, class... Arguments>
rc::Gen<Step> query(const char* kind, Call call, Ask ask, const rc::Gen<Arguments>&... arguments) {
    return drawnStep(kind, &Comparison::repository, call, ask, arguments...);
}

auto keepingEvent(std::optional<std::size_t> slot) {
    return [slot](Comparison& both, const std::shared_ptr<ZAVEvent>& found) {
        if (slot) {
            both.keepEvent(*slot, found);
        }
    };
}

std::string keptIn(std::optional<std::size_t> slot) {
    return slot ? ", to keep as #" + std::to_string(*slot) : "";
}

rc::Gen<Step> eventWithSeq() {
    return rc::gen::exec([] {
        const auto seq = *values::sequence();
        const auto stream = *values::streamUUID();
        const auto slot = *values::slotToKeepIn(Comparison::eventSlots);
        return comparedStep(
            "eventWithSeq", list(seq, stream) + keptIn(slot),
            [=](Comparison& both, ZAVError* error) {
                return both.repository().eventWithSeq(seq, stream, error);
            },
            [=](StoreModel& model) { return model.eventWithSeq(seq, stream); }, keepingEvent(slot));
    });
}

rc::Gen<Step> eventForDatabaseIdentifier() {
    return rc::gen::exec([] {
        const auto row = *values::eventRow();
        const auto slot = *values::slotToKeepIn(Comparison::eventSlots);
        return comparedStep(
            "eventForDatabaseIdentifier", list(row) + keptIn(slot),
            [=](Comparison& both, ZAVError* error) {
                return both.repository().eventForDatabaseIdentifier(row, error);
            },
            [=](StoreModel& model) { return model.eventForDatabaseIdentifier(row); }, keepingEvent(slot));
    });
}

/// A unit of work that is present answers what it answers, after one call; an absent one answers false.
rc::Gen<Step> attemptBlock() {
    return rc::gen::exec([] {
        const bool isPresent = values::usually(3);
        const bool answer = *values::from<bool>({true, false});
        return Step{
            "attemptBlock", isPresent ? answer ? "true" : "false" : "none", [=](Comparison& both) {
                int calls = 0;
                const auto work = [&] {
                    ++calls;
                    return answer;
                };
                both.agree(
                    [&](ZAVError*) {
                        return isPresent ? both.repository().attemptBlock(work)
                                         : both.repository().attemptBlock(nullptr);
                    },
                    [&] { return ModelAnswer<bool>{isPresent && answer}; });
                if (calls != (isPresent ? 1 : 0)) {
                    throw Disagreement("the unit of work was called " + std::to_string(calls) + " times");
                }
            }};
    });
}

/// Deletes of the events in some slots what `call` and `ask` delete.
template <class Call, class Ask>
rc::Gen<Step> deletion(const char* kind, Call call, Ask ask) {
    return rc::gen::exec([=] {
        const auto slots = *values::eventSlots();
        return Step{
            kind, printed(slots), [=](Comparison& both) {
                both.agree(
                    [&](ZAVError* error) { return (both.repository().*call)(both.eventsIn(slots), error); },
                    [&] { return (both.model().*ask)(both.eventRecordsIn(slots)); });
            }};
    });
}

}  // namespace

rc::Gen<Step> persistEvents() {
    return rc::gen::exec([] {
        const auto slots = *values::eventSlots();
        return Step{"persistEvents", printed(slots), [slots](Comparison& both) {
                        both.agree(
                            [&](ZAVError* error) {
                                return both.repository().persistEvents(both.anythingIn(slots), error);
                            },
                            [&] { return both.model().persistEvents(both.anyRecordsIn(slots)); });
                    }};
    });
}

rc::Gen<Step> updateObject() {
    return rc::gen::exec([] {
        const std::size_t slot = *values::number(Comparison::eventSlots);
        return inSlot("updateObject", slot, "", [slot](Comparison& both) {
            if (const auto event = std::dynamic_pointer_cast<ZAVEvent>(both.event(slot))) {
                both.agree([&](ZAVError* error) { return both.repository().updateObject(*event, error); },
                           [&] { return both.model().updateObject(both.eventRecord(slot)); });
            }
        });
    });
}

rc::Gen<Step> deleteUnprocessedEvents() {
    return deletion("deleteUnprocessedEvents", &ZAVEventRepository::deleteUnprocessedEvents,
                    &StoreModel::deleteUnprocessedEvents);
}

rc::Gen<Step> deleteEvents() {
    return deletion("deleteEvents", &ZAVEventRepository::deleteEvents, &StoreModel::deleteEvents);
}

rc::Gen<Step> persistTombstone() {
    return drawnStep("persistTombstoneEventWithTargetSeq", &Comparison::repository,
                     &ZAVEventRepository::persistTombstoneEventWithTargetSeq, &StoreModel::persistTombstone,
                     values::sequence(), values::streamRow());
}

rc::Gen<Step> persistParticipantsSeq() {
    return drawnStep("persistConversationsParticipantsSeq", &Comparison::repository,
                     &ZAVEventRepository::persistConversationsParticipantsSeq,
                     &StoreModel::persistConversationsParticipantsSeq, values::sequence(), values::member(),
                     values::streamUUID());
}

rc::Gen<Step> persistMessageSeq() {
    return drawnStep("persistMessageSeq", &Comparison::repository, &ZAVEventRepository::persistMessageSeq,
                     &StoreModel::persistMessageSeq, values::sequence(), values::eventRow());
}

rc::Gen<Step> persistNewEvent() {
    return rc::gen::exec([] {
        const std::size_t slot = *values::number(Comparison::eventSlots);
        const EventRecord record = *values::event();
        return inSlot("persistEvents", slot, "new " + printed(record), [=](Comparison& both) {
            both.putEvent(slot, record);
            both.agree(
                [&](ZAVError* error) {
                    return both.repository().persistEvents(both.anythingIn({slot}), error);
                },
                [&] { return both.model().persistEvents({&both.eventRecord(slot)}); });
        });
    });
}

WeightedSteps recordSteps() {
    return {{3, newEvent()}, {4, changedEvent()}, {3, preparedEvent()}, {1, newPart()}, {3, changedPart()}};
}

WeightedSteps eventSteps() {
    return {{5, persistNewEvent()},         {6, persistEvents()},    {2, updateObject()},
            {1, deleteUnprocessedEvents()}, {1, deleteEvents()},     {1, persistTombstone()},
            {1, persistParticipantsSeq()},  {1, persistMessageSeq()}};
}

WeightedSteps eventQuerySteps() {
    using Repository = ZAVEventRepository;
    using Model = StoreModel;
    return {{2, query("allEvents", &Repository::allEvents, &Model::allEvents)},
            {1, query("countOfEvents", &Repository::countOfEvents, &Model::countOfEvents)},
            {3, query("publishableEvents", &Repository::publishableEvents, &Model::publishableEvents)},
            {2, query("unpublishableEvents", &Repository::unpublishableEvents, &Model::unpublishableEvents)},
            {3, query("unprocessedEvents", &Repository::unprocessedEvents, &Model::unprocessedEvents)},
            {2, query("postedAndProcessedEvents", &Repository::postedAndProcessedEvents,
                      &Model::postedAndProcessedEvents)},
            {3, query("eventsFromRevivedStreamWithStreamDatabaseIdentifier",
                      &Repository::eventsFromRevivedStreamWithStreamDatabaseIdentifier,
                      &Model::eventsFromRevivedStream, values::streamRow())},
            {3, eventWithSeq()},
            {3, eventForDatabaseIdentifier()},
            {1, attemptBlock()}};
}

}  // namespace zav::test
