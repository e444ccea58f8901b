#pragma once

// Each benchmark here measures the library's way and a baseline doing the same work
// directly, interleaved in one run, and reports both as the counters "library" and
// "baseline" (seconds per call). After Google Benchmark's own table, each is printed as a
// ratio with its target:
//
//     displayPrice warm cache: library / baseline = 1.08x (target at most 1.30x) ok

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace velquist::bench {

// Runs the library's way and the baseline in turns, `batch` calls each per iteration,
// alternating which goes first, and reports both as counters (seconds per call) of the
// one run: interleaving keeps both under the same conditions (caches, clock speed, load).
template <class Library, class Baseline>
void interleaved(benchmark::State& state, int batch, Library library, Baseline baseline) {
  using Clock = std::chrono::steady_clock;
  Clock::duration libraryTotal{};
  Clock::duration baselineTotal{};
  bool libraryFirst = false;
  for (auto _ : state) {
    const auto runLibrary = [&] {
      const auto start = Clock::now();
      for (int i = 0; i < batch; ++i) library();
      libraryTotal += Clock::now() - start;
    };
    const auto runBaseline = [&] {
      const auto start = Clock::now();
      for (int i = 0; i < batch; ++i) baseline();
      baselineTotal += Clock::now() - start;
    };
    libraryFirst = !libraryFirst;
    if (libraryFirst) {
      runLibrary();
      runBaseline();
    } else {
      runBaseline();
      runLibrary();
    }
  }
  const double calls = static_cast<double>(state.iterations()) * batch;
  state.counters["library"] = std::chrono::duration<double>(libraryTotal).count() / calls;
  state.counters["baseline"] = std::chrono::duration<double>(baselineTotal).count() / calls;
}

struct RatioTarget {
  std::string name;       // the benchmark's name
  double limit;           // the target ratio; 0 for a ratio reported without a target
  bool libraryIsSlower;   // true: library / baseline at most `limit`; false: baseline / library at least `limit`
};

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  explicit RatioReporter(std::vector<RatioTarget> targets) : targets_(std::move(targets)) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      const auto library = run.counters.find("library");
      const auto baseline = run.counters.find("baseline");
      if (run.run_type != Run::RT_Iteration || library == run.counters.end() || baseline == run.counters.end()) {
        continue;
      }
      measured_[run.run_name.function_name] = {library->second.value, baseline->second.value};
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\nRatios (interleaved in the same run):\n");
    for (const RatioTarget& target : targets_) {
      const auto found = measured_.find(target.name);
      if (found == measured_.end()) continue;
      const auto [library, baseline] = found->second;
      if (target.limit <= 0) {
        std::printf("  %s: library / baseline = %.2fx (reported, no target)\n", target.name.c_str(), library / baseline);
      } else if (target.libraryIsSlower) {
        const double ratio = library / baseline;
        std::printf("  %s: library / baseline = %.2fx (target at most %.2fx) %s\n", target.name.c_str(), ratio,
                    target.limit, ratio <= target.limit ? "ok" : "MISSED");
      } else {
        const double ratio = baseline / library;
        std::printf("  %s: baseline / library = %.2fx faster (target at least %.2fx) %s\n", target.name.c_str(),
                    ratio, target.limit, ratio >= target.limit ? "ok" : "MISSED");
      }
    }
  }

 private:
  std::vector<RatioTarget> targets_;
  std::map<std::string, std::pair<double, double>> measured_;
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
