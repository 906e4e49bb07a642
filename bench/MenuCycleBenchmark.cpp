// What a menu costs: one whole cycle, examination to clean-up, through the function table against the
// reference daemon on real files.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <thread>

#include "hosts/core/MenuHost.h"
#include "platform/host/Host.h"

namespace keldane {
namespace {

namespace fs = std::filesystem;

/// A daemon, a bundle that names its socket, and files, in a folder that goes with it.
class Scene {
 public:
  Scene() {
    std::string pattern = (fs::temp_directory_path() / "keldane-bench-XXXXXX").string();
    place_ = mkdtemp(pattern.data());
    const std::string socket = (place_ / "d.sock").string();
    fs::create_directory(place_ / "files");
    fs::copy(KELDANE_BUNDLE, place_ / "Keldane.plugin", fs::copy_options::recursive);
    const fs::path info = place_ / "Keldane.plugin/Contents/Info.plist";
    fs::permissions(info, fs::perms::owner_write, fs::perm_options::add);
    std::ifstream read(info);
    std::string text{std::istreambuf_iterator<char>(read), {}};
    const std::size_t value = text.find("<string>", text.find("<key>DaemonPath</key>")) + 8;
    text.replace(value, text.find("</string>", value) - value, socket);
    std::ofstream(info) << text;

    const std::string store = (place_ / "store").string();
    const std::string root = (place_ / "files").string();
    const char* arguments[] = {KELDANED_PROGRAM, "--foreground", "--socket",   socket.c_str(), "--store",
                               store.c_str(),    "--root",       root.c_str(), nullptr};
    if (posix_spawn(&daemon_, arguments[0], nullptr, nullptr, const_cast<char**>(arguments), environ) != 0) {
      throw std::runtime_error("keldaned cannot be started");
    }
    while (!fs::exists(socket)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    Host::shared().setProcess(fourCharCode("MACS"), fourCharCode("FNDR"));
    std::string error;
    if (!host_.load((place_ / "Keldane.plugin").string(), &error)) {
      throw std::runtime_error(error);
    }
  }
  ~Scene() {
    kill(daemon_, SIGTERM);
    waitpid(daemon_, nullptr, 0);
    std::error_code ignored;
    fs::remove_all(place_, ignored);
  }
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  MenuHost& host() { return host_; }
  Selection files(std::size_t count) {
    Selection selection;
    for (std::size_t i = 0; i < count; ++i) {
      const fs::path file = place_ / "files" / ("file " + std::to_string(i) + ".txt");
      std::ofstream(file) << i;
      selection.paths.push_back(file.string());
    }
    return selection;
  }

 private:
  fs::path place_;
  pid_t daemon_ = 0;
  MenuHost host_;
};

void menuCycle(benchmark::State& state) {
  Scene scene;
  const auto count = static_cast<std::size_t>(state.range(0));
  const Selection selection = scene.files(count);
  for (auto _ : state) {
    const MenuHost::Examination examination = scene.host().examine(selection);
    scene.host().cleanup();
    if (examination.menu.empty()) {
      state.SkipWithError("There was no menu.");
    }
  }
  state.counters["per file"] =
      benchmark::Counter(static_cast<double>(count),
                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

BENCHMARK(menuCycle)->Arg(1)->Arg(100)->Arg(1000)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace keldane

BENCHMARK_MAIN();
