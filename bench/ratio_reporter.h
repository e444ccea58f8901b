#pragma once

// Benchmarks here are measured in pairs: the library's way and a baseline doing the same
// work directly, run in the same process one after the other. After Google Benchmark's own
// table, each pair is printed as a ratio of CPU time per iteration, with its target:
//
//     displayPrice warm cache: library / baseline = 1.08x (target at most 1.30x) ok
//
// Pairs are named "<case>/library" and "<case>/baseline".

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace velquist::bench {

struct RatioTarget {
  std::string name;       // the case, without "/library" or "/baseline"
  double limit;           // the target ratio
  bool libraryIsSlower;   // true: library / baseline at most `limit`; false: baseline / library at least `limit`
};

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  explicit RatioReporter(std::vector<RatioTarget> targets) : targets_(std::move(targets)) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && run.iterations > 0) {
        cpuPerIteration_[run.run_name.function_name] = run.GetAdjustedCPUTime();
      }
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\nRatios (CPU time per iteration, same run):\n");
    for (const RatioTarget& target : targets_) {
      const auto library = cpuPerIteration_.find(target.name + "/library");
      const auto baseline = cpuPerIteration_.find(target.name + "/baseline");
      if (library == cpuPerIteration_.end() || baseline == cpuPerIteration_.end()) continue;
      if (target.libraryIsSlower) {
        const double ratio = library->second / baseline->second;
        std::printf("  %s: library / baseline = %.2fx (target at most %.2fx) %s\n", target.name.c_str(), ratio,
                    target.limit, ratio <= target.limit ? "ok" : "MISSED");
      } else {
        const double ratio = baseline->second / library->second;
        std::printf("  %s: baseline / library = %.2fx faster (target at least %.2fx) %s\n", target.name.c_str(),
                    ratio, target.limit, ratio >= target.limit ? "ok" : "MISSED");
      }
    }
  }

 private:
  std::vector<RatioTarget> targets_;
  std::map<std::string, double> cpuPerIteration_;
};

inline int runWithRatios(int argc, char** argv, std::vector<RatioTarget> targets) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter(std::move(targets));
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}

}  // namespace velquist::bench
