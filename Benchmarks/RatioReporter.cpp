#include "RatioReporter.h"

#include <cstdio>
#include <string>

namespace zav::bench {
namespace {

/// Where the engine does all the work, contenders differ by less than can be told apart.
constexpr double noise = 0.02;

}  // namespace

void setCounters(benchmark::State& state, const Workload& workload, const Comparison::Result& result) {
    state.counters["rounds"] = static_cast<double>(result.rounds);
    state.counters["target"] = workload.target;
    state.counters["floor_us"] = result.floorSeconds * 1e6;
    for (std::size_t index = 0; index < contenderKinds.size(); ++index) {
        state.counters[contenderKinds[index].name] = result.ratios[index];
    }
    state.SetLabel(workload.unit);
}

bool RatioReporter::ReportContext(const Context&) {
    std::printf("Processor time; contenders as multiples of the floor, taken in turn, medians.\n\n");
    std::printf("%-34s %-14s", "workload", "floor");
    for (const ContenderKind& kind : contenderKinds) {
        std::printf(" %9s", kind.name);
    }
    std::printf("  target\n");
    return true;
}

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        report(run);
    }
    std::fflush(stdout);
}

void RatioReporter::report(const Run& run) {
    std::printf("%-34s ", run.run_name.function_name.c_str());
    if (run.error_occurred) {
        anyError_ = true;
        std::printf("ERROR: %s\n", run.error_message.c_str());
        return;
    }
    const auto counter = [&](const char* name) { return run.counters.at(name).value; };
    std::printf("%8.2f us/%-5s", counter("floor_us"), run.report_label.substr(0, 5).c_str());
    const double library = counter(contenderKinds[libraryIndex].name);
    const double target = counter("target");
    std::string missed = library <= target ? "" : "  MISSED";
    for (std::size_t index = 0; index < contenderKinds.size(); ++index) {
        const double ratio = counter(contenderKinds[index].name);
        std::printf(" %9.3f", ratio);
        if (index > floorIndex && library > ratio * (1 - noise)) {
            missed.append(library < ratio * (1 + noise) ? "  level with " : "  SLOWER THAN ");
            missed.append(contenderKinds[index].name);
        }
    }
    std::printf("  %.2f%s\n", target, missed.c_str());
}

}  // namespace zav::bench
