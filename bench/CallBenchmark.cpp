// What asking costs: one question between two processes, and the menu cycles that are made of it, against the
// floor and against others. A cycle goes through the plug-in's function table on real files; the daemon of both
// answers at once.
#include <benchmark/benchmark.h>

#include "bench/Allocations.h"
#include "bench/Buses.h"
#include "bench/Floor.h"
#include "hosts/core/MenuHost.h"
#include "log/KeldaneLog.h"
#include "platform/host/Host.h"
#include "tests/support/CannedDaemon.h"
#include "tests/support/PeerProcess.h"
#include "tests/support/PluginBundle.h"
#include "tests/support/Samples.h"

namespace keldane::bench {
namespace {

using namespace keldane::testing;

/// A peer in its own process, and the one client that it has.
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

void callFloor(benchmark::State& state, const char* role, Pieces pieces) {
  Pair<FloorClient> pair(role, pieces, bytesOf(request(), PropertyListSerialization::Format::binary));
  for (auto _ : state) {
    if (pair.client().call() < 2) {
      state.SkipWithError("There was no answer.");
    }
  }
}

// --- Cycles ---

/// The plug-in in this process, with files to ask about and a daemon to ask.
class Scene {
 public:
  static Scene& shared() {
    static Scene scene;
    return scene;
  }

  MenuHost& host() { return host_; }

  /// Nine files to one folder.
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

  /// How often the daemon is asked about the first `count` of them.
  static std::size_t calls(std::size_t count) {
    std::size_t calls = count == 1 ? 1 : 0;  // for the status line
    for (std::size_t i = 0; i < count; ++i) {
      calls += isFolder(i) ? 3 : 5;
    }
    return calls;
  }

 private:
  Scene() : daemon_({KELDANE_BENCH_PEER, "daemon", bundle_.daemonPath()}, bundle_.daemonPath()) {
    Host::shared().setProcess(fourCharCode("MACS"), fourCharCode("FNDR"));
    std::string error;
    if (!host_.load(bundle_.path(), &error)) {
      throw std::runtime_error(error);
    }
  }
  static bool isFolder(std::size_t index) { return index % 10 == 9; }

  PluginBundle bundle_;
  PeerProcess daemon_;
  MenuHost host_;
  std::size_t made_ = 0;
};

void cycle(benchmark::State& state) {
  Scene& scene = Scene::shared();
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
  state.counters["allocations/file"] =
      static_cast<double>(allocations.calls()) / static_cast<double>(count);
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
      {"call/floor-in-one", [](benchmark::State& s) { callFloor(s, "floor-in-one", Pieces::one); }},
      {"call/sd-bus", [](benchmark::State& s) { callWithPath<SdBusClient>(s, "sd-bus"); }},
      {"call/gdbus", [](benchmark::State& s) { callWithPath<GDBusClient>(s, "gdbus"); }},
      {"call/lines", [](benchmark::State& s) { callWithPath<LineClient>(s, "lines"); }},
  };
  for (const auto& [name, run] : calls) {
    benchmark::RegisterBenchmark(name, run)->UseRealTime()->Unit(benchmark::kMicrosecond);
  }
  for (const auto& [files, iterations] : {std::pair(1, 40), {10, 40}, {100, 8}, {1000, 2}, {10000, 1}}) {
    benchmark::RegisterBenchmark("cycle", cycle)
        ->Arg(files)
        ->Iterations(iterations)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  }
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
