#include "Model/Comparison.h"

#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>
#include <sqlite3.h>

#include <algorithm>
#include <sstream>
#include <string_view>
#include <utility>

#include "Support/TestStore.h"

namespace zav::test {
namespace {

std::shared_ptr<FMDatabase> openInMemory() {
    ZAVError error;
    auto database = ZAVDatabaseSchema::openDatabase(":memory:", {}, &error);
    if (!database) {
        throw std::runtime_error("cannot open a database in memory: " + error.description());
    }
    return database;
}

template <class T>
std::string text(const T& value) {
    std::ostringstream stream;
    stream << value;
    return stream.str();
}
std::string text(bool value) {
    return value ? "true" : "false";
}
std::string text(const std::optional<std::uint64_t>& value) {
    return value ? std::to_string(*value) : "none";
}
std::string text(const std::optional<Metadata>& value) {
    return value ? text(*value) : "none";
}

template <class Observed, class Expected>
std::optional<std::string> unlessEqual(const Observed& observed, const Expected& expected) {
    if (observed == expected) {
        return std::nullopt;
    }
    return text(observed) + " instead of " + text(expected);
}

template <class Record>
std::string list(const std::vector<Record>& records) {
    std::string lines;
    for (const Record& record : records) {
        lines += "\n    " + text(record);
    }
    return lines.empty() ? "\n    nothing" : lines;
}

std::uint64_t sizeOf(const PartRecord& part) {
    return static_cast<std::uint64_t>(part.size.value);
}
std::uint64_t sizeOf(const EventRecord&) {
    return 0;
}

/// How many records a selection holds when they come in the order in which they were observed.
template <class Record>
std::size_t countOf(const Selection<Record>& selection, const std::vector<Record>& observed) {
    std::size_t available = 0;
    for (const auto& tier : selection.tiers) {
        available += tier.size();
    }
    if (selection.limit) {
        available = static_cast<std::size_t>(std::min<std::uint64_t>(available, *selection.limit));
    }
    if (selection.bytes) {
        std::uint64_t sum = 0;
        for (std::size_t index = 0; index < std::min(available, observed.size()); ++index) {
            sum += sizeOf(observed[index]);
            if (sum > *selection.bytes) {
                return index + 1;
            }
        }
    }
    return available;
}

template <class Record>
std::optional<std::string> objectionTo(const std::vector<Record>& observed,
                                       const Selection<Record>& expected) {
    const auto complain = [&](const std::string& what) {
        std::string wanted;
        for (const auto& tier : expected.tiers) {
            wanted += list(tier) + (expected.tiers.size() > 1 ? "\n    --" : "");
        }
        return what + "\n  found:" + list(observed) + "\n  to choose from:" + wanted +
               (expected.limit ? "\n  at most " + std::to_string(*expected.limit) : "") +
               (expected.bytes ? "\n  until more than " + std::to_string(*expected.bytes) + " bytes" : "");
    };
    if (const std::size_t count = countOf(expected, observed); observed.size() != count) {
        return complain(std::to_string(observed.size()) + " record(s) instead of " + std::to_string(count));
    }
    std::size_t position = 0;
    for (auto tier : expected.tiers) {
        for (; !tier.empty() && position < observed.size(); ++position) {
            const auto found = std::find(tier.begin(), tier.end(), observed[position]);
            if (found == tier.end()) {
                return complain("record " + std::to_string(position + 1) + " should not be where it is");
            }
            tier.erase(found);
        }
    }
    return std::nullopt;
}

template <class Record, class T>
std::optional<std::string> objectionToSet(const std::optional<ZAVSet<T>>& observed,
                                          const std::optional<Selection<Record>>& expected) {
    if (observed.has_value() != expected.has_value()) {
        return std::string(observed ? "a set" : "no set") + " instead of " + (expected ? "a set" : "no set");
    }
    if (!observed) {
        return std::nullopt;
    }
    std::vector<Record> records;
    for (const auto& object : *observed) {
        records.push_back(recordOf(*object));
    }
    return objectionTo(records, *expected);
}

template <class Record, class T>
std::optional<std::string> objectionToOne(const std::shared_ptr<T>& observed,
                                          const Selection<Record>& expected) {
    std::vector<Record> records;
    if (observed != nullptr) {
        records.push_back(recordOf(*observed));
    }
    return objectionTo(records, expected);
}

/// The trigger that refuses a statement.
std::string triggerFor(Refusal refusal) {
    const auto trigger = [](const std::string& when, const std::string& condition,
                            const std::string& raise = "RAISE(ABORT, 'refused')") {
        return "CREATE TEMP TRIGGER refusal BEFORE " + when +
               (condition.empty() ? "" : " WHEN " + condition) + " BEGIN SELECT " + raise + "; END";
    };
    switch (refusal) {
        case Refusal::insertOfEvent:
            return trigger("INSERT ON main.events", "");
        case Refusal::insertOfEventSilently:
            return trigger("INSERT ON main.events", "", "RAISE(IGNORE)");
        case Refusal::updateOfEvent:
            return trigger("UPDATE ON main.events", "");
        case Refusal::deletionOfEventInEvenRow:
            return trigger("DELETE ON main.events", "OLD.database_identifier % 2 = 0");
        case Refusal::insertOfSecondPart:
            return trigger("INSERT ON main.event_content_parts", "NEW.event_content_part_id = 1");
        case Refusal::updateOfPart:
            return trigger("UPDATE ON main.event_content_parts", "");
        case Refusal::insertOfMetadataB:
            return trigger("INSERT ON main.keyed_values_remote", "NEW.key = 'b'");
        case Refusal::deletionOfMetadata:
            return trigger("DELETE ON main.keyed_values_remote", "");
        case Refusal::insertOfChange:
            return trigger("INSERT ON main.synced_changes", "");
        case Refusal::deletionOfChange:
            return trigger("DELETE ON main.synced_changes", "");
        case Refusal::updateOfMessage:
            return trigger("UPDATE ON main.messages", "");
        case Refusal::updateOfParticipant:
            return trigger("UPDATE ON main.conversation_participants", "");
        case Refusal::insertOfStream:
            return trigger("INSERT ON main.streams", "");
        case Refusal::updateOfStream:
            return trigger("UPDATE ON main.streams", "");
    }
    throw std::logic_error("a refusal without a trigger");
}

int denyTable(void* context, int action, const char* table, const char*, const char*, const char*) {
    const bool touches = action == SQLITE_READ || action == SQLITE_INSERT || action == SQLITE_UPDATE ||
                         action == SQLITE_DELETE;
    return touches && *static_cast<const std::string*>(context) == table ? SQLITE_DENY : SQLITE_OK;
}

int countDown(void* context) {
    return --*static_cast<int*>(context) == 0 ? 1 : 0;
}

const EventRecord& firstEvent() {
    static const EventRecord record = [] {
        EventRecord event;
        event.stream_id = uuidBytes(1);
        event.type.set(EventType_MESSAGE);
        event.client_id.set(uuidBytes(21));
        return event;
    }();
    return record;
}

}  // namespace

Comparison::Comparison()
    : database_(openInMemory()),
      repository_(database_),
      streams_(database_),
      changes_(database_),
      keyedValues_(database_),
      reader_(std::make_unique<DatabaseReader>(*database_)) {
    ZAVSetMessageRepositoryCacheBaseDirectoryURL(ZAVURL::fileURLWithDirectoryPath("/cache"));
    for (int number : {1, 2}) {
        agree([&](ZAVError* error) { return streams_.findOrCreateStreamWithUUID(uuidNumber(number), error); },
              [&] { return model_.findOrCreateStream(uuidNumber(number)); });
    }
    agree([&](ZAVError* error) { return streams_.createStreamWithoutUUID(error); },
          [&] { return model_.createStreamWithoutUUID(); });
    agree([&](ZAVError* error) { return streams_.setSeq(5, 1, error); },
          [&] { return model_.setStreamSeq(5, 1); });
    database_->executeUpdate("INSERT INTO conversations (stream_id) VALUES (?)", uuidNumber(1));
    model_.insertConversation(uuidBytes(1));
    for (const char* member : {"ann", "bob"}) {
        database_->executeUpdate(
            "INSERT INTO conversation_participants (conversation_database_identifier, member_id) VALUES (1, ?)",
            member);
        model_.insertParticipant(1, member);
    }
    for (const Tables::Row row : {1, 2, 3, 4}) {
        database_->executeUpdate("INSERT INTO messages (event_database_identifier) VALUES (?)", row);
        model_.insertMessage(row);
    }
    events_.resize(eventSlots);
    eventRecords_.resize(eventSlots);
    for (std::size_t slot = 0; slot < eventSlots; ++slot) {
        putEvent(slot, firstEvent());
    }
    parts_.resize(partSlots);
    partRecords_.resize(partSlots);
    for (std::size_t slot = 0; slot < partSlots; ++slot) {
        putPart(slot, PartRecord());
    }
    agreeOnEverything();
}

Comparison::~Comparison() {
    transaction_.reset();
    reader_.reset();
}

void Comparison::agreeOnEverything() {
    if (database_->openResultSets() != 0) {
        throw Disagreement("the operation left a cursor open");
    }
    if (database_->inTransaction() != model_.inTransaction()) {
        throw Disagreement(database_->inTransaction() ? "the operation left a transaction open"
                                                      : "the operation ended the transaction");
    }
    if (const auto difference = firstDifference(reader_->dump(), dumpOf(model_.tables))) {
        throw Disagreement("afterwards " + *difference);
    }
    for (std::size_t slot = 0; slot < eventSlots; ++slot) {
        if (const auto record = recordOf(*events_[slot]); record != eventRecords_[slot]) {
            throw Disagreement("afterwards event #" + std::to_string(slot) + "\n  is        " + text(record) +
                               "\n  should be " + text(eventRecords_[slot]));
        }
    }
    for (std::size_t slot = 0; slot < partSlots; ++slot) {
        if (const auto record = recordOf(*parts_[slot]); record != partRecords_[slot]) {
            throw Disagreement("afterwards part #" + std::to_string(slot) + "\n  is        " + text(record) +
                               "\n  should be " + text(partRecords_[slot]));
        }
    }
}

bool Comparison::execute(const std::string& sql) {
    return database_->executeStatements(sql);
}

void Comparison::compareErrors(const ZAVError& error, const std::optional<ErrorCode>& expected,
                               bool isOptional) const {
    const bool isUntouched = error == untouched();
    if (!givesErrorParameter_ || (isUntouched && (!expected || isOptional))) {
        return;
    }
    if (!expected) {
        throw Disagreement("the error out-parameter received " + error.description() +
                           ", though nothing should have failed");
    }
    if (isUntouched) {
        throw Disagreement("the error out-parameter received nothing instead of an error with the code " +
                           std::to_string(expected->code));
    }
    if (error.domain() != expected->domain || error.code() != expected->code) {
        throw Disagreement("the error out-parameter received " + error.description() +
                           " instead of an error with the code " + std::to_string(expected->code));
    }
    const bool isOfTheRepository = error.domain() == "ZAVDatabase" && error.code() == 14;
    if (!isOfTheRepository && error != database_->lastError()) {
        throw Disagreement("the error out-parameter received " + error.description() +
                           ", but the handle's last error is " + database_->lastError().description());
    }
}

void Comparison::compareThrown(const std::optional<std::string>& thrown,
                               const std::optional<std::string>& expected) const {
    if (thrown != expected) {
        throw Disagreement((thrown ? "thrown was\n  " + *thrown : "nothing was thrown") + "\ninstead of\n  " +
                           expected.value_or("nothing"));
    }
}

// --- Records -----------------------------------------------------------------------------------------------

ZAVSet<ZAVEvent> Comparison::eventsIn(const std::vector<std::size_t>& slots) const {
    ZAVSet<ZAVEvent> set;
    for (const std::size_t slot : slots) {
        if (auto event = std::dynamic_pointer_cast<ZAVEvent>(events_.at(slot))) {
            set.insert(std::move(event));
        }
    }
    return set;
}

ZAVSet<ZAVTEvent> Comparison::anythingIn(const std::vector<std::size_t>& slots) const {
    ZAVSet<ZAVTEvent> set;
    for (const std::size_t slot : slots) {
        set.insert(events_.at(slot));
    }
    return set;
}

std::vector<EventRecord*> Comparison::anyRecordsIn(const std::vector<std::size_t>& slots) {
    std::vector<EventRecord*> records;
    for (const std::size_t slot : slots) {
        if (std::find(records.begin(), records.end(), &eventRecords_.at(slot)) == records.end()) {
            records.push_back(&eventRecords_.at(slot));
        }
    }
    return records;
}

std::vector<EventRecord*> Comparison::eventRecordsIn(const std::vector<std::size_t>& slots) {
    auto records = anyRecordsIn(slots);
    std::erase_if(records, [](const EventRecord* record) { return record->isBareWireRecord; });
    return records;
}

void Comparison::putEvent(std::size_t slot, const EventRecord& record) {
    eventRecords_.at(slot) = record;
    events_.at(slot) = makeEvent(record);
}

void Comparison::keepEvent(std::size_t slot, const std::shared_ptr<ZAVEvent>& event) {
    if (event != nullptr && !storeAlone_) {
        events_.at(slot) = event;
        eventRecords_.at(slot) = recordOf(*event);
    }
}

std::shared_ptr<ZAVEventContent> Comparison::part(const PartPlace& place) const {
    if (!place.eventSlot) {
        return parts_.at(place.number);
    }
    const auto& content = events_.at(*place.eventSlot)->content();
    return content && place.number < content->size()
               ? std::dynamic_pointer_cast<ZAVEventContent>((*content)[place.number])
               : nullptr;
}

PartRecord& Comparison::partRecord(const PartPlace& place) {
    return place.eventSlot ? eventRecords_.at(*place.eventSlot).content.value->at(place.number)
                           : partRecords_.at(place.number);
}

void Comparison::putPart(std::size_t slot, const PartRecord& record) {
    partRecords_.at(slot) = record;
    parts_.at(slot) = std::dynamic_pointer_cast<ZAVEventContent>(makePart(record));
}

void Comparison::keepPart(std::size_t slot, const std::shared_ptr<ZAVEventContent>& part) {
    if (part != nullptr && !storeAlone_) {
        parts_.at(slot) = part;
        partRecords_.at(slot) = recordOf(*part);
    }
}

// --- Transactions ------------------------------------------------------------------------------------------

void Comparison::begin() {
    if (!model_.inTransaction()) {
        transaction_.reset();  // one that the engine has ended is no longer anybody's
    }
    agree(
        [&](ZAVError* error) {
            auto transaction = ZAVTransaction::begin(*database_, error);
            const bool began = transaction.has_value();
            if (began) {
                transaction_.emplace(std::move(*transaction));
            }
            return began;
        },
        [&] { return model_.begin(); });
}

void Comparison::commit() {
    if (transaction_) {
        agree([&](ZAVError* error) { return transaction_->commit(error); }, [&] { return model_.commit(); });
        transaction_.reset();
    }
}

void Comparison::rollback() {
    transaction_.reset();
    model_.rollback();
}

// --- Failures ----------------------------------------------------------------------------------------------

Comparison::RefusedStatement::RefusedStatement(Comparison& both, Refusal refusal) : both_(both) {
    if (!both_.execute(triggerFor(refusal))) {
        throw std::runtime_error("no trigger: " + both_.database().lastError().description());
    }
    both_.model().refusal = refusal;
}

Comparison::RefusedStatement::~RefusedStatement() {
    both_.execute("DROP TRIGGER temp.refusal");
    both_.model().refusal.reset();
}

Comparison::WithheldTable::WithheldTable(Comparison& both, std::string table)
    : both_(both), table_(std::move(table)) {
    sqlite3_set_authorizer(both_.database().sqliteHandle(), denyTable, &table_);
    both_.model().withheldTable = table_;
}

Comparison::WithheldTable::~WithheldTable() {
    sqlite3_set_authorizer(both_.database().sqliteHandle(), nullptr, nullptr);
    both_.model().withheldTable.reset();
}

void Comparison::beginInterruptibleWork(int steps) {
    if (!model_.inTransaction()) {
        begin();
    }
    storeAlone_ = true;
    stepsLeft_ = steps;
    sqlite3_progress_handler(database_->sqliteHandle(), 1, countDown, &stepsLeft_);
}

void Comparison::endInterruptibleWork() {
    sqlite3_progress_handler(database_->sqliteHandle(), 0, nullptr, nullptr);
    storeAlone_ = false;
    rollback();
    // What the work wrote onto the records before it was interrupted stays on them.
    for (std::size_t slot = 0; slot < eventSlots; ++slot) {
        eventRecords_[slot] = recordOf(*events_[slot]);
    }
    outcomes_.interrupted += stepsLeft_ <= 0 ? 1 : 0;
}

// --- Results -----------------------------------------------------------------------------------------------

std::optional<std::string> objection(bool observed, bool expected) {
    return unlessEqual(observed, expected);
}
std::optional<std::string> objection(std::uint64_t observed, std::uint64_t expected) {
    return unlessEqual(observed, expected);
}
std::optional<std::string> objection(ZAVDatabaseIdentifier observed, ZAVDatabaseIdentifier expected) {
    return unlessEqual(observed, expected);
}
std::optional<std::string> objection(const std::optional<std::uint64_t>& observed,
                                     const std::optional<std::uint64_t>& expected) {
    return unlessEqual(observed, expected);
}
std::optional<std::string> objection(std::uint64_t observed, const std::set<std::uint64_t>& expected) {
    if (expected.contains(observed)) {
        return std::nullopt;
    }
    std::string totals;
    for (const std::uint64_t total : expected) {
        totals += (totals.empty() ? "" : " or ") + std::to_string(total);
    }
    return std::to_string(observed) + " instead of " + totals;
}
std::optional<std::string> objection(const std::optional<ZAVKeyedValues>& observed,
                                     const std::optional<Metadata>& expected) {
    return unlessEqual(observed ? std::optional(recordOf(observed->keyedValues())) : std::nullopt, expected);
}
std::optional<std::string> objection(const std::optional<ZAVSet<ZAVEvent>>& observed,
                                     const StoreModel::Events& expected) {
    return objectionToSet<EventRecord>(observed, expected);
}
std::optional<std::string> objection(const std::optional<ZAVSet<ZAVEventContent>>& observed,
                                     const StoreModel::Parts& expected) {
    return objectionToSet<PartRecord>(observed, expected);
}
std::optional<std::string> objection(const std::shared_ptr<ZAVEvent>& observed,
                                     const StoreModel::Event& expected) {
    return objectionToOne<EventRecord>(observed, expected);
}
std::optional<std::string> objection(const std::shared_ptr<ZAVEventContent>& observed,
                                     const StoreModel::Part& expected) {
    return objectionToOne<PartRecord>(observed, expected);
}

}  // namespace zav::test
