// The cost of asking: one question between two processes, and the menu cycles that consist of such questions,
// compared with the floor and with other systems. A cycle uses the plug-in's function table and real files;
// in both cases the daemon answers at once.
#include <benchmark/benchmark.h>

#include "bench/Allocations.h"
#include "bench/peers/Buses.h"
#include "bench/peers/Floor.h"
#include "hosts/core/MenuHost.h"
#include "log/KeldaneLog.h"
#include "platform/host/Host.h"
#include "tests/support/PluginBundle.h"
#include "tests/support/Samples.h"
#include "tests/support/daemon/CannedDaemon.h"
#include "tests/support/process/PeerProcess.h"

namespace keldane::bench {
namespace {

using namespace keldane::testing;

/// A peer in a process of its own, and its only client.
template <class Client>
class Pair {
 public:
  template <class... Arguments>
  explicit Pair(const std::string& role, Arguments&&... arguments)
      : process_({KELDANE_BENCH_PEER, role, folder_ / "s"}, folder_ / "s"),
        client_(folder_ / "s", std::forward<Arguments>(arguments)...) {}
  Client& client() { return client_; }

 private:
  TemporaryFolder folder_;
  PeerProcess process_;
  Client client_;
};

/// A client of the daemon.
class KeldaneClient {
 public:
  explicit KeldaneClient(const std::string& path) {
    proxy_->setSocket(socket_);
    proxy_->setProtocol(&KeldaneDaemonProtocol);
    socket_->connectToPath(path);
  }
  ~KeldaneClient() {
    proxy_->close();
    socket_->close();
  }
  KeldaneClient(const KeldaneClient&) = delete;
  KeldaneClient& operator=(const KeldaneClient&) = delete;
  std::size_t call(const std::string& file) { return proxy_->dictionaryForPath(file, 0).count(); }

 private:
  std::shared_ptr<KeldaneSocket> socket_ = KeldaneSocket::create();
  std::shared_ptr<KeldaneProxy> proxy_ = KeldaneProxy::create();
};

const std::string kFile = std::string(nodeDictionary(0)["path"].string());

template <class Client>
void callWithPath(benchmark::State& state, const char* role) {
  Pair<Client> pair(role);
  for (auto _ : state) {
    if (pair.client().call(kFile) < 2) {
      state.SkipWithError("There was no answer.");
    }
  }
}

constexpr std::chrono::microseconds kLooking{50};

void callFloor(benchmark::State& state, const char* role, Pieces pieces,
               std::chrono::microseconds looking = std::chrono::microseconds(0)) {
  Pair<FloorClient> pair(role, pieces, bytesOf(request(), PropertyListSerialization::Format::binary),
                         looking);
  for (auto _ : state) {
    if (pair.client().call() < 2) {
      state.SkipWithError("There was no answer.");
    }
  }
}

// --- Cycles ---

/// The plug-in in this process, with files and a daemon to ask.
class Scene {
 public:
  /// With `reference`, the real daemon; otherwise one that answers at once.
  static Scene& shared(bool reference) {
    static Scene scenes[2] = {Scene(false), Scene(true)};
    return scenes[reference ? 1 : 0];
  }

  MenuHost& host() { return host_; }

  /// A selection with one folder for every nine files.
  Selection selection(std::size_t count) {
    namespace fs = std::filesystem;
    Selection selection;
    for (std::size_t i = 0; i < count; ++i) {
      const fs::path path = bundle_.folder().path() / ("Quarterly report " + std::to_string(i) + ".odt");
      if (i >= made_) {
        if (isFolder(i)) {
          fs::create_directory(path);
        } else {
          std::ofstream(path) << i;
        }
        made_ = i + 1;
      }
      selection.paths.push_back(path.string());
    }
    return selection;
  }

  /// The number of questions about the first `count` items.
  static std::size_t calls(std::size_t count) {
    std::size_t calls = count == 1 ? 1 : 0;  // for the status line
    for (std::size_t i = 0; i < count; ++i) {
      calls += isFolder(i) ? 3 : 5;
    }
    return calls;
  }

 private:
  explicit Scene(bool reference) : daemon_(command(reference), bundle_.daemonPath()) {
    Host::shared().setProcess(fourCharCode("MACS"), fourCharCode("FNDR"));
    std::string error;
    if (!host_.load(bundle_.path(), &error)) {
      throw std::runtime_error(error);
    }
  }
  std::vector<std::string> command(bool reference) const {
    const std::string socket = bundle_.daemonPath();
    return reference ? std::vector<std::string>{KELDANED_PROGRAM, "--foreground",
                                                "--socket",       socket,
                                                "--store",        bundle_.folder() / "store",
                                                "--root",         bundle_.folder().path().string()}
                     : std::vector<std::string>{KELDANE_BENCH_PEER, "daemon", socket};
  }
  static bool isFolder(std::size_t index) { return index % 10 == 9; }

  PluginBundle bundle_;
  PeerProcess daemon_;
  MenuHost host_;
  std::size_t made_ = 0;
};

void cycle(benchmark::State& state, bool reference) {
  Scene& scene = Scene::shared(reference);
  const auto count = static_cast<std::size_t>(state.range(0));
  const Selection selection = scene.selection(count);
  const auto run = [&] {
    const MenuHost::Examination examination = scene.host().examine(selection);
    scene.host().cleanup();
    if (examination.menu.empty()) {
      state.SkipWithError("There was no menu.");
    }
  };
  for (auto _ : state) {
    run();
  }
  const AllocationCount allocations;
  run();
  state.counters["allocations/file"] = static_cast<double>(allocations.calls()) / static_cast<double>(count);
  state.counters["calls"] = static_cast<double>(Scene::calls(count));
}

// --- The log that is off ---

std::atomic<bool> flag = false;

void logSwitchedOff(benchmark::State& state) {
  for (auto _ : state) {
    KeldaneCLog("ConnectionController: connected %ld", 1L);
    benchmark::ClobberMemory();
  }
}

void byteTest(benchmark::State& state) {
  for (auto _ : state) {
    if (flag.load(std::memory_order_relaxed)) {
      std::abort();
    }
    benchmark::ClobberMemory();
  }
}

void registerAll() {
  using Run = void (*)(benchmark::State&);
  const std::pair<const char*, Run> calls[] = {
      {"call/keldane", [](benchmark::State& s) { callWithPath<KeldaneClient>(s, "daemon"); }},
      {"call/keldane-to-floor", [](benchmark::State& s) { callWithPath<KeldaneClient>(s, "floor"); }},
      {"call/floor", [](benchmark::State& s) { callFloor(s, "floor", Pieces::four); }},
      {"call/floor-ahead", [](benchmark::State& s) { callFloor(s, "floor-ahead", Pieces::ahead); }},
      {"call/floor-in-one", [](benchmark::State& s) { callFloor(s, "floor-in-one", Pieces::one); }},
      {"call/floor-looking", [](benchmark::State& s) { callFloor(s, "floor", Pieces::four, kLooking); }},
      {"call/floor-slow", [](benchmark::State& s) { callFloor(s, "slow-floor", Pieces::four); }},
      {"call/floor-slow-looking",
       [](benchmark::State& s) { callFloor(s, "slow-floor", Pieces::four, kLooking); }},
      {"call/sd-bus", [](benchmark::State& s) { callWithPath<SdBusClient>(s, "sd-bus"); }},
      {"call/gdbus", [](benchmark::State& s) { callWithPath<GDBusClient>(s, "gdbus"); }},
      {"call/lines", [](benchmark::State& s) { callWithPath<LineClient>(s, "lines"); }},
  };
  for (const auto& [name, run] : calls) {
    benchmark::RegisterBenchmark(name, run)->MeasureProcessCPUTime()->UseRealTime()->Unit(
        benchmark::kMicrosecond);
  }
  for (const auto& [files, iterations] : {std::pair(1, 40), {10, 40}, {100, 8}, {1000, 2}, {10000, 1}}) {
    benchmark::RegisterBenchmark("cycle", [](benchmark::State& s) { cycle(s, false); })
        ->Arg(files)
        ->Iterations(iterations)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  }
  benchmark::RegisterBenchmark("cycle-reference", [](benchmark::State& s) { cycle(s, true); })
      ->Arg(100)
      ->Iterations(8)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("log/off", logSwitchedOff);
  benchmark::RegisterBenchmark("log/byte-test", byteTest);
}

}  // namespace
}  // namespace keldane::bench

int main(int argc, char** argv) {
  keldane::bench::registerAll();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
