// The cost of the first velquist_display_price call in a fresh process (ICU data, the
// shared price formatter and the locale made on first use) against the same call once the
// process is warm. Each iteration starts a fresh copy of this program, which times its
// first call and then a warm one and prints both; both counts are taken in the same run.
// Reported for users choosing a build; there is no target.
//
//     first call: "library" (seconds), pre-warmed call: "baseline" (seconds)

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "ratio_reporter.h"
#include "velquist/velquist.h"

namespace {

constexpr const char* childFlag = "--velquist-first-call-child";

double callSeconds() {
  char* text = nullptr;
  const auto start = std::chrono::steady_clock::now();
  const int status = velquist_display_price("1234.567", "en_US", "down", &text);
  const auto end = std::chrono::steady_clock::now();
  velquist_string_free(text);
  if (status != VELQUIST_OK) return -1;
  return std::chrono::duration<double>(end - start).count();
}

// In the fresh process: the first call, then the median-free mean of 1000 warm ones.
int runChild() {
  const double first = callSeconds();
  double warm = 0;
  for (int index = 0; index < 1000; ++index) warm += callSeconds();
  std::printf("%.9f %.9f\n", first, warm / 1000);
  return first < 0 ? 1 : 0;
}

void firstCall(benchmark::State& state) {
  // popen runs a shell, so the program's own path is read before.
  const std::string command = "'" + std::filesystem::read_symlink("/proc/self/exe").string() + "' " + childFlag;
  double first = 0, warm = 0;
  for (auto _ : state) {
    FILE* child = popen(command.c_str(), "r");
    double childFirst = -1, childWarm = -1;
    if (!child || std::fscanf(child, "%lf %lf", &childFirst, &childWarm) != 2 || pclose(child) != 0) {
      state.SkipWithError("the child process failed");
      return;
    }
    state.SetIterationTime(childFirst);
    first += childFirst;
    warm += childWarm;
  }
  state.counters["library"] = first / static_cast<double>(state.iterations());
  state.counters["baseline"] = warm / static_cast<double>(state.iterations());
}
BENCHMARK(firstCall)->Name("velquist_display_price first call vs pre-warmed")->UseManualTime()->Iterations(20);

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::strcmp(argv[1], childFlag) == 0) return runChild();
  return velquist::bench::runWithRatios(argc, argv, {});
}
