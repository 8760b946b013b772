#include <benchmark/benchmark.h>

#include <cstdlib>
#include <exception>
#include <optional>
#include <string_view>

#include "Comparison.h"
#include "RatioReporter.h"
#include "Support/TemporaryDirectory.h"

namespace zav::bench {
namespace {

/// Takes `--seconds=N` out of the arguments: how long each workload is compared.
double takeSeconds(int& count, char** arguments) {
    constexpr std::string_view option = "--seconds=";
    double seconds = 6;
    int kept = 0;
    for (int index = 0; index < count; ++index) {
        if (std::string_view(arguments[index]).starts_with(option)) {
            seconds = std::atof(arguments[index] + option.size());
        } else {
            arguments[kept++] = arguments[index];
        }
    }
    count = kept;
    return seconds;
}

int run(int count, char** arguments) {
    const double seconds = takeSeconds(count, arguments);
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) {
        return 2;
    }
    const test::TemporaryDirectory directory;
    std::optional<Comparison> comparison;
    for (const Workload& workload : makeWorkloads()) {
        benchmark::RegisterBenchmark(workload.name.c_str(),
                                     [&comparison, &directory, workload, seconds](benchmark::State& state) {
                                         for ([[maybe_unused]] const auto& turn : state) {
                                             try {
                                                 if (!comparison) {
                                                     comparison.emplace(directory.path());
                                                 }
                                                 const auto result = comparison->run(workload, seconds);
                                                 state.SetIterationTime(result.floorSeconds);
                                                 setCounters(state, workload, result);
                                             } catch (const std::exception& exception) {
                                                 state.SkipWithError(exception.what());
                                                 break;
                                             }
                                         }
                                     })
            ->Iterations(1)
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.anyError() ? 1 : 0;
}

}  // namespace
}  // namespace zav::bench

int main(int count, char** arguments) {
    return zav::bench::run(count, arguments);
}
