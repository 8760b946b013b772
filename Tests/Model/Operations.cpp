#include "Model/Operations.h"

#include <sstream>

#include "Model/Values.h"

namespace zav::test {
namespace {

template <class T>
std::string streamed(const T& value) {
    std::ostringstream stream;
    stream << value;
    return stream.str();
}

/// Rows are mostly small; the marker deserves its name.
std::string named(std::int64_t number) {
    return number == ZAVDatabaseIdentifierNotSet ? "the largest" : std::to_string(number);
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const Step& step) {
    return stream << step.kind << '(' << step.arguments << ')';
}

rc::Gen<Step> oneOf(const WeightedSteps& steps) {
    std::vector<std::size_t> kinds;
    for (std::size_t kind = 0; kind < steps.size(); ++kind) {
        kinds.insert(kinds.end(), steps[kind].weight, kind);
    }
    return rc::gen::mapcat(rc::gen::elementOf(kinds), [steps](std::size_t kind) { return steps[kind].step; });
}

rc::Gen<Step> anyStep(const Mixture& mixture) {
    return oneOf({{mixture.records, oneOf(recordSteps())},
                  {mixture.events, oneOf(eventSteps())},
                  {mixture.eventQueries, oneOf(eventQuerySteps())},
                  {mixture.lookups, oneOf(lookupSteps())},
                  {mixture.transfers, oneOf(transferSteps())},
                  {mixture.neighbours, oneOf(neighbourSteps())},
                  {mixture.transactions, oneOf(transactionSteps())},
                  {mixture.disturbances, oneOf(disturbanceSteps())}});
}

std::string printed(const std::string& text) {
    return quoted(text);
}
std::string printed(const std::optional<std::string>& text) {
    return text ? quoted(*text) : "none";
}
std::string printed(const std::optional<Bytes>& bytes) {
    return bytes ? streamed(*bytes) : "none";
}
std::string printed(const ZAVUUID& uuid) {
    return uuid.UUIDString();
}
std::string printed(std::int64_t number) {
    return named(number);
}
std::string printed(std::uint64_t number) {
    return std::to_string(number);
}
std::string printed(std::int32_t number) {
    return std::to_string(number);
}
std::string printed(std::uint32_t number) {
    return std::to_string(number);
}
std::string printed(const std::vector<std::size_t>& slots) {
    std::string text;
    for (const std::size_t slot : slots) {
        text += (text.empty() ? "#" : ", #") + std::to_string(slot);
    }
    return "{" + text + "}";
}
std::string printed(const std::optional<std::set<std::string>>& texts) {
    if (!texts) {
        return "none";
    }
    std::string text;
    for (const std::string& element : *texts) {
        text += (text.empty() ? "" : ", ") + quoted(element);
    }
    return "{" + text + "}";
}
std::string printed(const Metadata& metadata) {
    return streamed(metadata);
}
std::string printed(const EventRecord& event) {
    return streamed(event);
}
std::string printed(const PartRecord& part) {
    return streamed(part);
}
std::string printed(const Comparison::PartPlace& place) {
    return place.eventSlot
               ? "part " + std::to_string(place.number) + " of event #" + std::to_string(*place.eventSlot)
               : "part #" + std::to_string(place.number);
}

}  // namespace zav::test
