#pragma once

#include <rapidcheck.h>

#include <functional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "Model/Comparison.h"

namespace zav::test {

/// One operation with its arguments, to be run on a store and its model.
struct Step {
    std::string kind;
    std::string arguments;
    std::function<void(Comparison&)> run;
};

std::ostream& operator<<(std::ostream& stream, const Step& step);

/// A kind of operation and how often it is drawn.
struct WeightedStep {
    std::size_t weight;
    rc::Gen<Step> step;
};
using WeightedSteps = std::vector<WeightedStep>;

/// How often operations of each family are drawn, in relation to each other.
struct Mixture {
    std::size_t records = 1;       ///< making and changing records, in memory
    std::size_t events = 1;        ///< storing, updating, deleting events
    std::size_t eventQueries = 1;  ///< reading events
    std::size_t lookups = 1;       ///< finding content parts
    std::size_t transfers = 1;     ///< queues, updates and accounting of content parts
    std::size_t neighbours = 1;    ///< streams, changes, keyed values, and rows of other components
    std::size_t transactions = 1;  ///< beginning, committing and rolling back
    std::size_t disturbances = 1;  ///< operations that are made to fail
};

[[nodiscard]] rc::Gen<Step> anyStep(const Mixture& mixture);

/// @name The families
/// @{
[[nodiscard]] WeightedSteps recordSteps();
[[nodiscard]] WeightedSteps eventSteps();
[[nodiscard]] WeightedSteps eventQuerySteps();
[[nodiscard]] WeightedSteps lookupSteps();
[[nodiscard]] WeightedSteps transferSteps();
[[nodiscard]] WeightedSteps neighbourSteps();
[[nodiscard]] WeightedSteps transactionSteps();
[[nodiscard]] WeightedSteps disturbanceSteps();
/// @}

/// @name Operations that are drawn for themselves as well
/// @{

/// Stores an event that is made at the same time.
[[nodiscard]] rc::Gen<Step> persistNewEvent();
[[nodiscard]] rc::Gen<Step> persistEvents();
[[nodiscard]] rc::Gen<Step> updateObject();
[[nodiscard]] rc::Gen<Step> deleteUnprocessedEvents();
[[nodiscard]] rc::Gen<Step> deleteEvents();
[[nodiscard]] rc::Gen<Step> persistTombstone();
[[nodiscard]] rc::Gen<Step> persistParticipantsSeq();
[[nodiscard]] rc::Gen<Step> persistMessageSeq();

/// Records what a transfer has come to for the part at a position of an event.
[[nodiscard]] rc::Gen<Step> persistNewContentUpdate();

/// Writes a column of a content part as the library would not.
[[nodiscard]] rc::Gen<Step> foreignPartValue();
/// @}

/// One of several, by weight.
[[nodiscard]] rc::Gen<Step> oneOf(const WeightedSteps& steps);

/// Arguments as they are printed in a sequence.
[[nodiscard]] std::string printed(const std::string& text);
[[nodiscard]] std::string printed(const std::optional<std::string>& text);
[[nodiscard]] std::string printed(const std::optional<Bytes>& bytes);
[[nodiscard]] std::string printed(const ZAVUUID& uuid);
[[nodiscard]] std::string printed(std::int64_t number);
[[nodiscard]] std::string printed(std::uint64_t number);
[[nodiscard]] std::string printed(std::int32_t number);
[[nodiscard]] std::string printed(std::uint32_t number);
[[nodiscard]] std::string printed(const std::vector<std::size_t>& slots);
[[nodiscard]] std::string printed(const std::optional<std::set<std::string>>& texts);
[[nodiscard]] std::string printed(const Metadata& metadata);
[[nodiscard]] std::string printed(const EventRecord& event);
[[nodiscard]] std::string printed(const PartRecord& part);
[[nodiscard]] std::string printed(const Comparison::PartPlace& place);

[[nodiscard]] inline std::string list() {
    return "";
}
template <class First, class... Others>
[[nodiscard]] std::string list(const First& first, const Others&... others) {
    return (printed(first) + ... + (", " + printed(others)));
}

/// An operation that is asked of both: `call` gets the comparison and the error out-parameter, `ask` the
/// model.
template <class Call, class Ask>
[[nodiscard]] Step comparedStep(std::string kind, std::string arguments, Call call, Ask ask) {
    return {std::move(kind), std::move(arguments), [call, ask](Comparison& both) {
                both.agree([&](ZAVError* error) { return call(both, error); },
                           [&] { return ask(both.model()); });
            }};
}

/// The same with arguments that are drawn: `call` is a member of the repository that `owner` names, and `ask`
/// one of the model; both take the arguments in this order.
template <class Owner, class Call, class Ask, class... Arguments>
[[nodiscard]] rc::Gen<Step> drawnStep(const char* kind, Owner owner, Call call, Ask ask,
                                      const rc::Gen<Arguments>&... arguments) {
    return rc::gen::exec([=] {
        // Between braces, so that they are drawn in their order.
        const std::tuple<Arguments...> drawn{*arguments...};
        return std::apply(
            [&](const Arguments&... values) {
                return comparedStep(
                    kind, list(values...),
                    [=](Comparison& both, ZAVError* error) {
                        return std::invoke(call, std::invoke(owner, both), values..., error);
                    },
                    [=](StoreModel& model) { return std::invoke(ask, model, values...); });
            },
            drawn);
    });
}

/// A step that is compared, for an operation that finds a record, which may be kept in a slot.
template <class Call, class Ask, class Keep>
[[nodiscard]] Step comparedStep(std::string kind, std::string arguments, Call call, Ask ask, Keep keep) {
    return {std::move(kind), std::move(arguments), [call, ask, keep](Comparison& both) {
                decltype(call(both, nullptr)) found;
                both.agree([&](ZAVError* error) { return found = call(both, error); },
                           [&] { return ask(both.model()); });
                keep(both, found);
            }};
}

}  // namespace zav::test
