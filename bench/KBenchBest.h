// Console reporter that also keeps the best CPU time per iteration of each
// benchmark (by function name), for the ratio lines a benchmark prints last.
#ifndef KELVOR_KBENCHBEST_H
#define KELVOR_KBENCHBEST_H

#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

class CBestReporter : public benchmark::ConsoleReporter {
public:
  explicit CBestReporter(OutputOptions opts = OO_Defaults) : ConsoleReporter(opts) {}
  std::map<std::string, double> best;  // nanoseconds
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.error_occurred || r.run_type != Run::RT_Iteration) continue;
      const double ns = r.GetAdjustedCPUTime() *
                        benchmark::GetTimeUnitMultiplier(benchmark::kNanosecond) /
                        benchmark::GetTimeUnitMultiplier(r.time_unit);
      auto it = best.find(r.run_name.function_name);
      if (it == best.end() || ns < it->second) best[r.run_name.function_name] = ns;
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

#endif  // KELVOR_KBENCHBEST_H
