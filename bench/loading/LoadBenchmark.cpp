// The time from dlopen to the first menu, each time in a new process, compared with an empty C++ shared
// object.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "tests/support/PluginBundle.h"
#include "tests/support/process/PeerProcess.h"

namespace keldane::bench {
namespace {

using namespace keldane::testing;

void load(benchmark::State& state, const std::string& arguments) {
  double pages = 0;
  for (auto _ : state) {
    FILE* output = ::popen((std::string(KELDANE_BENCH_LOADER) + " " + arguments).c_str(), "r");
    long time = 0;
    long touched = 0;
    if (std::fscanf(output, "%ld %ld", &time, &touched) != 2 || ::pclose(output) != 0) {
      state.SkipWithError("There was no menu.");
      return;
    }
    state.SetIterationTime(static_cast<double>(time) * 1e-9);
    pages = static_cast<double>(touched);
  }
  state.counters["pages"] = pages;
}

}  // namespace
}  // namespace keldane::bench

int main(int argc, char** argv) {
  using namespace keldane::bench;
  const PluginBundle bundle;
  const PeerProcess daemon({KELDANE_BENCH_PEER, "daemon", bundle.daemonPath()}, bundle.daemonPath());
  const std::string file = bundle.folder().write("report.odt", "text");
  const std::string menu = KELDANE_BENCH_FIRST_MENU " " + bundle.path() + " " + file;
  for (const auto& [name, arguments] :
       {std::pair("load/first-menu", menu), std::pair("load/empty", std::string(KELDANE_BENCH_EMPTY))}) {
    benchmark::RegisterBenchmark(name,
                                 [arguments = arguments](benchmark::State& state) { load(state, arguments); })
        ->Iterations(10)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
