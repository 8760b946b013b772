#pragma once

#include <ZAVEventRepository/ZAVDictionary.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVKeyedValueRepository.h>
#include <ZAVEventRepository/ZAVStreamRepository.h>
#include <ZAVEventRepository/ZAVSyncedChangeRepository.h>
#include <ZAVEventRepository/ZAVTransaction.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "Model/StoreModel.h"
#include "Model/TableDump.h"
#include "Support/LogCapture.h"

namespace zav::test {

/// Store and model do not agree; the text says on what.
class Disagreement : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What the operations that were compared came to.
struct Outcomes {
    long foundSomething = 0;  ///< queries and lookups that yielded records
    long foundNothing = 0;
    long failed = 0;       ///< with an error, as they should
    long threw = 0;        ///< as they should
    long interrupted = 0;  ///< before they were through
};

/// A store in memory beside its model. Each operation is asked of both, and what they answer is compared.
///
/// Records that operations are given live in numbered slots: the store's objects, and the model's idea of
/// them. They stay the same objects from one operation to the next, as a client's do.
///
/// Both start with the same furniture: streams 1 and 2 with the UUIDs 1 and 2, stream 3 without,
/// stream 1 with a sequence, a
/// conversation with two participants, and messages carried by the events that will have the rows 1 to 4.
class Comparison {
public:
    static constexpr std::size_t eventSlots = 6;
    static constexpr std::size_t partSlots = 3;

    Comparison();
    ~Comparison();
    Comparison(const Comparison&) = delete;
    Comparison& operator=(const Comparison&) = delete;

    [[nodiscard]] const ZAVEventRepository& repository() const { return repository_; }
    [[nodiscard]] const ZAVStreamRepository& streams() const { return streams_; }
    [[nodiscard]] const ZAVSyncedChangeRepository& changes() const { return changes_; }
    [[nodiscard]] const ZAVKeyedValueRepository& keyedValues() const { return keyedValues_; }
    [[nodiscard]] FMDatabase& database() const { return *database_; }
    [[nodiscard]] StoreModel& model() { return model_; }

    /// Calls the store with an error out-parameter, asks the model, and compares: the results, the
    /// out-parameter, which must be untouched unless the model expects an error in it, and what is thrown.
    /// @throws Disagreement
    template <class Call, class Ask>
    void agree(const Call& call, const Ask& ask);

    /// Compares everything that is left: every row of every table, the records in the slots, and that no
    /// cursor stays open.
    /// @throws Disagreement
    void agreeOnEverything();

    [[nodiscard]] const Outcomes& outcomes() const { return outcomes_; }

    /// Runs statements past the library; `change` does the same to the model's tables.
    template <class Change>
    void write(const std::string& sql, const Change& change) {
        if (execute(sql)) {
            change(model_.tables);
        }
    }
    bool execute(const std::string& sql);

    /// @name Records
    /// @{
    [[nodiscard]] EventRecord& eventRecord(std::size_t slot) { return eventRecords_.at(slot); }
    [[nodiscard]] const std::shared_ptr<ZAVTEvent>& event(std::size_t slot) const { return events_.at(slot); }

    /// The events in some slots, each once and in that order, as the library takes them, and as the model
    /// does. The first two leave bare wire records out.
    [[nodiscard]] ZAVSet<ZAVEvent> eventsIn(const std::vector<std::size_t>& slots) const;
    [[nodiscard]] std::vector<EventRecord*> eventRecordsIn(const std::vector<std::size_t>& slots);
    [[nodiscard]] ZAVSet<ZAVTEvent> anythingIn(const std::vector<std::size_t>& slots) const;
    [[nodiscard]] std::vector<EventRecord*> anyRecordsIn(const std::vector<std::size_t>& slots);

    void putEvent(std::size_t slot, const EventRecord& record);
    void keepEvent(std::size_t slot, const std::shared_ptr<ZAVEvent>& event);

    /// Gives the object in a slot the values of its record, which was changed.
    void refreshEvent(std::size_t slot) { assign(eventRecord(slot), *event(slot)); }

    /// A part in a slot of its own, or one of an event's.
    struct PartPlace {
        std::optional<std::size_t> eventSlot;
        std::size_t number = 0;
    };
    /// The part at a place; null when the event has none there, or it is a bare wire record.
    [[nodiscard]] std::shared_ptr<ZAVEventContent> part(const PartPlace& place) const;
    [[nodiscard]] PartRecord& partRecord(const PartPlace& place);
    void putPart(std::size_t slot, const PartRecord& record);
    void keepPart(std::size_t slot, const std::shared_ptr<ZAVEventContent>& part);
    /// @}
    /// @name Transactions
    /// @{
    void begin();
    void commit();
    void rollback();
    /// @}
    /// @name Failures
    /// @{

    /// While it lives, callers give no error out-parameter.
    class WithoutErrorParameter {
    public:
        explicit WithoutErrorParameter(Comparison& both) : both_(both) { both_.givesErrorParameter_ = false; }
        ~WithoutErrorParameter() { both_.givesErrorParameter_ = true; }
        WithoutErrorParameter(const WithoutErrorParameter&) = delete;
        WithoutErrorParameter& operator=(const WithoutErrorParameter&) = delete;

    private:
        Comparison& both_;
    };

    /// While it lives, a trigger refuses some statements, and the model knows.
    class RefusedStatement {
    public:
        RefusedStatement(Comparison& both, Refusal refusal);
        ~RefusedStatement();
        RefusedStatement(const RefusedStatement&) = delete;
        RefusedStatement& operator=(const RefusedStatement&) = delete;

    private:
        Comparison& both_;
    };

    /// While it lives, no statement may touch a table, and the model knows.
    class WithheldTable {
    public:
        WithheldTable(Comparison& both, std::string table);
        ~WithheldTable();
        WithheldTable(const WithheldTable&) = delete;
        WithheldTable& operator=(const WithheldTable&) = delete;

    private:
        Comparison& both_;
        std::string table_;
    };

    /// Runs `work` on the store alone, in a transaction, makes the engine give up on it after some of its
    /// steps, and rolls everything back. How far the work came nobody can tell; afterwards nothing of it may
    /// be left. A transaction that is open is the one that is rolled back.
    template <class Work>
    void interrupt(int steps, const Work& work) {
        beginInterruptibleWork(steps);
        work();
        endInterruptibleWork();
    }
    /// @}

private:
    [[nodiscard]] static ZAVError untouched() { return {"the caller's own", 77, "not to be touched"}; }
    void compareErrors(const ZAVError& error, const std::optional<ErrorCode>& expected,
                       bool isOptional) const;
    void compareThrown(const std::optional<std::string>& thrown,
                       const std::optional<std::string>& expected) const;
    void beginInterruptibleWork(int steps);
    void endInterruptibleWork();

    LogCapture log_;  ///< every line is formatted, and none printed
    std::shared_ptr<FMDatabase> database_;
    ZAVEventRepository repository_;
    ZAVStreamRepository streams_;
    ZAVSyncedChangeRepository changes_;
    ZAVKeyedValueRepository keyedValues_;
    std::unique_ptr<DatabaseReader> reader_;
    std::optional<ZAVTransaction> transaction_;

    StoreModel model_;

    std::vector<std::shared_ptr<ZAVTEvent>> events_;
    std::vector<EventRecord> eventRecords_;
    std::vector<std::shared_ptr<ZAVEventContent>> parts_;
    std::vector<PartRecord> partRecords_;

    Outcomes outcomes_;
    bool givesErrorParameter_ = true;
    bool storeAlone_ = false;
    int stepsLeft_ = 0;
};

/// What is wrong with an observed result; none when it is as expected.
[[nodiscard]] std::optional<std::string> objection(bool observed, bool expected);
[[nodiscard]] std::optional<std::string> objection(std::uint64_t observed, std::uint64_t expected);
[[nodiscard]] std::optional<std::string> objection(ZAVDatabaseIdentifier observed,
                                                   ZAVDatabaseIdentifier expected);
[[nodiscard]] std::optional<std::string> objection(const std::optional<std::uint64_t>& observed,
                                                   const std::optional<std::uint64_t>& expected);
[[nodiscard]] std::optional<std::string> objection(std::uint64_t observed,
                                                   const std::set<std::uint64_t>& expected);
[[nodiscard]] std::optional<std::string> objection(const std::optional<ZAVKeyedValues>& observed,
                                                   const std::optional<Metadata>& expected);
[[nodiscard]] std::optional<std::string> objection(const std::optional<ZAVSet<ZAVEvent>>& observed,
                                                   const StoreModel::Events& expected);
[[nodiscard]] std::optional<std::string> objection(const std::optional<ZAVSet<ZAVEventContent>>& observed,
                                                   const StoreModel::Parts& expected);
[[nodiscard]] std::optional<std::string> objection(const std::shared_ptr<ZAVEvent>& observed,
                                                   const StoreModel::Event& expected);
[[nodiscard]] std::optional<std::string> objection(const std::shared_ptr<ZAVEventContent>& observed,
                                                   const StoreModel::Part& expected);

/// Whether a result says that there is none, as only a failed operation answers.
template <class Result>
[[nodiscard]] bool isNothing(const Result&) {
    return false;
}
template <class T>
[[nodiscard]] bool isNothing(const std::optional<T>& result) {
    return !result;
}

/// Whether there are records to choose from; of other values, nothing is known.
template <class Value>
[[nodiscard]] std::optional<bool> findsSomething(const Value&) {
    return std::nullopt;
}
template <class Record>
[[nodiscard]] std::optional<bool> findsSomething(const Selection<Record>& selection) {
    return std::any_of(selection.tiers.begin(), selection.tiers.end(),
                       [](const auto& tier) { return !tier.empty(); });
}
template <class Record>
[[nodiscard]] std::optional<bool> findsSomething(const std::optional<Selection<Record>>& selection) {
    return selection ? findsSomething(*selection) : std::nullopt;
}

template <class Call, class Ask>
void Comparison::agree(const Call& call, const Ask& ask) {
    using Result = decltype(call(static_cast<ZAVError*>(nullptr)));
    using Expected = decltype(ask());
    ZAVError error = untouched();
    std::optional<Result> result;
    std::optional<std::string> thrown;
    try {
        result = call(givesErrorParameter_ ? &error : nullptr);
    } catch (const NSInternalInconsistencyException& exception) {
        thrown = exception.reason();
    }
    if (storeAlone_) {
        if (result && isNothing(*result) && givesErrorParameter_ && error == untouched()) {
            throw Disagreement("the operation answered nothing and did not say why");
        }
        return;
    }
    std::optional<Expected> expected;
    std::optional<std::string> expectedThrown;
    try {
        expected = ask();
    } catch (const Violation& violation) {
        expectedThrown = violation.reason;
    }
    compareThrown(thrown, expectedThrown);
    if (result && expected) {
        if (const auto wrong = objection(*result, expected->value)) {
            throw Disagreement("the result is not as expected: " + *wrong);
        }
        compareErrors(error, expected->error, expected->errorIsOptional);
        outcomes_.failed += expected->error ? 1 : 0;
        if (const auto found = findsSomething(expected->value)) {
            ++(*found ? outcomes_.foundSomething : outcomes_.foundNothing);
        }
    } else {
        ++outcomes_.threw;
        compareErrors(error, std::nullopt, false);
    }
}

}  // namespace zav::test
