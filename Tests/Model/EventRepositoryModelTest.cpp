#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <map>
#include <numeric>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Model/Comparison.h"
#include "Model/Operations.h"
#include "Operations/Catalogue.h"
#include "Support/TestEffort.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

/// Operations one after the other, from a store that has its furniture only.
struct Sequence {
    std::vector<Step> steps;
};

void showValue(const Sequence& sequence, std::ostream& stream) {
    for (std::size_t index = 0; index < sequence.steps.size(); ++index) {
        stream << "\n  " << index + 1 << ". " << sequence.steps[index];
    }
}

/// Some events are stored first, so that there is something to find.
rc::Gen<Sequence> sequences(const Mixture& mixture) {
    const auto upTo = [](int count, const rc::Gen<Step>& steps) {
        return rc::gen::resize(
            count, rc::gen::container<std::vector<Step>>(rc::gen::resize(rc::kNominalSize, steps)));
    };
    return rc::gen::map(rc::gen::pair(upTo(12, persistNewEvent()), upTo(120, anyStep(mixture))),
                        [](const std::pair<std::vector<Step>, std::vector<Step>>& parts) {
                            Sequence sequence{parts.first};
                            sequence.steps.insert(sequence.steps.end(), parts.second.begin(),
                                                  parts.second.end());
                            return sequence;
                        });
}

/// What was compared, and what came of it.
struct Tally {
    std::map<std::string, long> kinds;
    Outcomes outcomes;

    void add(const Outcomes& others) {
        outcomes.foundSomething += others.foundSomething;
        outcomes.foundNothing += others.foundNothing;
        outcomes.failed += others.failed;
        outcomes.threw += others.threw;
        outcomes.interrupted += others.interrupted;
    }
    [[nodiscard]] long operations() const {
        return std::accumulate(kinds.begin(), kinds.end(), 0L,
                               [](long sum, const auto& kind) { return sum + kind.second; });
    }
};

void compare(const Sequence& sequence, Tally& tally) {
    Comparison both;
    std::string where = "at the start";
    try {
        for (std::size_t index = 0; index < sequence.steps.size(); ++index) {
            const Step& step = sequence.steps[index];
            where = "operation " + std::to_string(index + 1) + ", " + step.kind;
            step.run(both);
            both.agreeOnEverything();
            ++tally.kinds[step.kind];
        }
        where = "when the transaction ended";
        both.rollback();
        both.agreeOnEverything();
        tally.add(both.outcomes());
    } catch (const std::exception& failure) {
        throw Disagreement(where + ": " + failure.what());
    }
}

/// Whether the caller chose what to run.
bool isRepetition() {
    return std::getenv("RC_PARAMS") != nullptr;
}

rc::detail::TestParams parameters(int cases, std::uint64_t ordinarySeed) {
    if (isRepetition()) {
        return rc::detail::configuration().testParams;
    }
    rc::detail::TestParams parameters;
    parameters.seed = runsAtLength() ? std::random_device()() : ordinarySeed;
    parameters.maxSuccess = cases;
    return parameters;
}

/// Compares so many sequences, which are the same in every ordinary run and others in every long one; fails
/// with the shortest one on which store and model do not agree.
Tally expectAgreement(const std::string& subject, const Mixture& mixture, int cases,
                      std::uint64_t ordinarySeed) {
    const auto params = parameters(cases, ordinarySeed);
    Tally tally;
    const rc::detail::TestMetadata metadata{subject, subject};
    const auto result =
        rc::detail::checkTestable([&] { compare(*sequences(mixture), tally); }, metadata, params);
    if (!result.is<rc::detail::SuccessResult>()) {
        std::ostringstream message;
        rc::detail::printResultMessage(result, message);
        ADD_FAILURE() << "store and model do not agree\n"
                      << message.str() << "\nTo repeat: RC_PARAMS=\"seed=" << params.seed
                      << " max_success=" << params.maxSuccess << "\"";
        return tally;
    }
    const Outcomes& outcomes = tally.outcomes;
    reportSweep(std::to_string(tally.operations()) + " operations " + subject + " in " +
                std::to_string(params.maxSuccess) + " sequences agreed with the model (seed " +
                std::to_string(params.seed) + "); of the queries " + std::to_string(outcomes.foundSomething) +
                " found something and " + std::to_string(outcomes.foundNothing) + " nothing, " +
                std::to_string(outcomes.failed) + " operations failed and " + std::to_string(outcomes.threw) +
                " threw as they should, and " + std::to_string(outcomes.interrupted) + " were interrupted");
    return tally;
}

TEST(EventStore, DoesWhatItsModelDoes) {
    const Tally tally = expectAgreement("of every kind",
                                        {.records = 4,
                                         .events = 8,
                                         .eventQueries = 5,
                                         .lookups = 3,
                                         .transfers = 5,
                                         .neighbours = 4,
                                         .transactions = 1,
                                         .disturbances = 2},
                                        rounds(40, 400), 1);
    if (!HasFailure() && !isRepetition()) {
        std::set<std::string> names{"attemptBlock", "ZAVPrepareEventContentsForDownload"};
        for (const Operation& operation : operationsOfTheEventRepository()) {
            names.insert(operation.name);
        }
        for (const std::string& name : names) {
            EXPECT_GT(tally.kinds.count(name), 0U) << "no sequence tried " << name;
        }
    }
}

TEST(EventStore, DoesWhatItsModelDoesWithEventsThatCollide) {
    expectAgreement("on events",
                    {.records = 5,
                     .events = 12,
                     .eventQueries = 6,
                     .lookups = 1,
                     .transfers = 0,
                     .neighbours = 4,
                     .transactions = 1,
                     .disturbances = 1},
                    rounds(30, 400), 2);
}

TEST(EventStore, DoesWhatItsModelDoesWithContentOnItsWay) {
    expectAgreement("on content",
                    {.records = 4,
                     .events = 6,
                     .eventQueries = 1,
                     .lookups = 4,
                     .transfers = 12,
                     .neighbours = 3,
                     .transactions = 1,
                     .disturbances = 1},
                    rounds(40, 400), 3);
}

TEST(EventStore, DoesWhatItsModelDoesWhenTheEngineFails) {
    expectAgreement("among failing ones",
                    {.records = 3,
                     .events = 5,
                     .eventQueries = 1,
                     .lookups = 1,
                     .transfers = 1,
                     .neighbours = 2,
                     .transactions = 2,
                     .disturbances = 12},
                    rounds(40, 400), 4);
}

}  // namespace
}  // namespace zav::test
