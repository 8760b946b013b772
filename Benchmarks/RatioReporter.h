#pragma once

#include <benchmark/benchmark.h>

#include <vector>

#include "Comparison.h"

namespace zav::bench {

/// Puts what a comparison found into a benchmark's counters.
void setCounters(benchmark::State& state, const Workload& workload, const Comparison::Result& result);

/// Prints the comparisons as a table: the floor's time, each contender as a multiple of it, and the targets
/// that the library misses.
class RatioReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;

    [[nodiscard]] bool anyError() const noexcept { return anyError_; }

private:
    void report(const Run& run);

    bool anyError_ = false;
};

}  // namespace zav::bench
