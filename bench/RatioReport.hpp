// Shared by the benchmark programs: the loop over a fixed input table, and a
// reporter that prints, after the usual table, each "ours / peer" ratio of
// CPU time per iteration measured in this same run, so that a run is its own
// comparison.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kvbench {

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  // With --benchmark_repetitions the ratio is of the medians (an
  // iteration run never replaces a median already seen); otherwise of the
  // single run.
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      // In the run's time unit, ns here.
      const std::string name = run.run_name.str();
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
        nanos_[name] = run.GetAdjustedCPUTime();
        medians_.insert(name);
      } else if (run.run_type == Run::RT_Iteration && run.iterations > 0 &&
                 medians_.count(name) == 0) {
        nanos_[name] = run.GetAdjustedCPUTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  // Prints "ours / peer = r (goal)" for each pair; missing names are skipped
  // (a filtered run).
  struct Pair {
    std::string ours, peer, goal;
  };
  void printRatios(const std::vector<Pair>& pairs) const {
    std::printf(
        "\nRatios of CPU time per operation (ours / peer), this run:\n");
    for (const Pair& p : pairs) {
      const auto a = nanos_.find(p.ours), b = nanos_.find(p.peer);
      if (a == nanos_.end() || b == nanos_.end()) continue;
      std::printf("  %-44s / %-40s = %6.2f   %s\n", p.ours.c_str(),
                  p.peer.c_str(), a->second / b->second, p.goal.c_str());
    }
  }

 private:
  std::map<std::string, double> nanos_;
  std::set<std::string> medians_;
};

// One operation per iteration on element i & (N - 1) of a fixed input table
// (N a power of two), its result kept alive: the loop every program shares.
template <std::size_t N, typename Inputs, typename F>
void loopOver(benchmark::State& state, const Inputs& in, F&& f) {
  static_assert((N & (N - 1)) == 0, "the table size must be a power of two");
  std::size_t i = 0;
  for (auto _ : state) {
    auto result = f(in, i & (N - 1));
    benchmark::DoNotOptimize(result);
    ++i;
  }
}

// Runs the registered benchmarks with the ratio reporter, then the ratios.
inline int runWithRatios(int argc, char** argv,
                         const std::vector<RatioReporter::Pair>& pairs) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios(pairs);
  benchmark::Shutdown();
  return 0;
}

}  // namespace kvbench
