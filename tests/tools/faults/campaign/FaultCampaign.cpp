// fault-campaign: runs thousands of menu cycles against the daemon. Each runs over a link with faults of its
// own and is followed by a clean cycle. Prints the outcome of each kind of fault. Fails when a host dies,
// shows a menu that its link cannot have told it, leaks a resource, or has no clean menu afterwards.
//
// The hosts are separate processes that run in parallel, because a call whose link has ended returns a second
// later. The seed and the cycle's number determine everything except which of two processes is quicker.
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/files/Descriptor.h"
#include "tests/tools/faults/campaign/CampaignHost.h"
#include "tests/tools/faults/campaign/CampaignReport.h"
#include "tests/tools/faults/campaign/CampaignScene.h"
#include "tests/tools/faults/campaign/ChildProcess.h"

namespace keldane::testing {
namespace {

// Every host says something within this time: a call whose link ends takes a second.
constexpr int kSilenceLimit = 60000;  // milliseconds

// Memory is taken for the bytes that arrive, whatever length a message announces. The limit includes the
// sanitizers' memory.
constexpr long kMemoryLimit = 1L << 20;  // KiB

struct Options {
  std::uint64_t seed = 1;
  std::uint32_t cycles = 2000;
  std::uint32_t lanes = 80;
  std::optional<std::uint32_t> only;
  std::uint32_t times = 1;
};

class Campaign {
 public:
  explicit Campaign(const Options& options) : options_(options), report_(options.seed) {}

  int run() {
    std::cout << "Seed " << options_.seed << ", " << (options_.only ? options_.times : options_.cycles)
              << " cycles in " << lanes() << " hosts." << std::endl;
    const auto start = std::chrono::steady_clock::now();
    Scene scene(hosts());
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
      throw std::runtime_error("there is no pipe");
    }
    const Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    std::vector<pid_t> processes;
    for (std::uint32_t lane = 0; lane < lanes(); ++lane) {
      processes.push_back(startChild([&] { return runLane(scene, lane, writing.get()); }));
    }
    writing = Descriptor();
    const bool silent = !listen(reading.get());
    for (std::uint32_t lane = 0; lane < lanes(); ++lane) {
      if (silent) {
        kill(processes[lane], SIGKILL);
      }
      int status = 0;
      rusage used{};
      wait4(processes[lane], &status, 0, &used);
      if (used.ru_maxrss > kMemoryLimit) {
        report_.fail(lane, "the host has taken " + std::to_string(used.ru_maxrss) + " KiB");
      }
      if (status != 0 && !report_.hasFailed(lane)) {
        report_.fail(lane, silent ? "the host hangs"
                           : WIFSIGNALED(status)
                               ? "the host was killed by signal " + std::to_string(WTERMSIG(status))
                               : "the host ended with status " + std::to_string(WEXITSTATUS(status)));
      }
    }
    if (const std::string wrong = scene.end(); !wrong.empty()) {
      report_.fail(wrong);
    }
    report_.printTable();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    std::printf("%u cycles, %zu failures, %.1f s.\n", report_.done(), report_.failures(), took.count());
    return report_.failures() == 0 && report_.done() == (options_.only ? options_.times : options_.cycles)
               ? 0
               : 1;
  }

 private:
  std::uint32_t lanes() const { return options_.only ? 1 : hosts(); }

  std::uint32_t hosts() const {
    // A lane always has the same subject.
    return std::max<std::uint32_t>(options_.lanes / kSubjects, 1) * kSubjects;
  }

  int runLane(const Scene& scene, std::uint32_t lane, int pipe) const {
    std::uint32_t cycle = options_.only.value_or(lane);
    try {
      say(pipe, "begin", lane, cycle);
      CampaignHost host(scene, options_.seed, cycle);
      for (std::uint32_t i = 0; options_.only ? i < options_.times : cycle < options_.cycles; ++i) {
        say(pipe, "begin", lane, cycle);
        say(pipe, "end", lane, cycle, std::to_string(static_cast<int>(host.run(cycle))));
        cycle += options_.only ? 0 : lanes();
      }
      return 0;
    } catch (const std::exception& error) {
      say(pipe, "fail", lane, cycle, error.what());
      return 1;
    }
  }

  /// Listens until all lanes have ended. Returns false when they are silent instead.
  bool listen(int pipe) {
    std::string unread;
    for (;;) {
      pollfd source{pipe, POLLIN, 0};
      char block[65536];
      if (poll(&source, 1, kSilenceLimit) == 0) {
        return false;
      }
      const ssize_t got = read(pipe, block, sizeof(block));
      if (got <= 0) {
        return true;
      }
      unread.append(block, static_cast<std::size_t>(got));
      for (std::size_t end = 0; (end = unread.find('\n')) != std::string::npos; unread.erase(0, end + 1)) {
        report_.hear(unread.substr(0, end));
      }
    }
  }

  const Options options_;
  CampaignReport report_;
};

}  // namespace
}  // namespace keldane::testing

int main(int argc, char** argv) {
  keldane::testing::Options options;
  CLI::App app(
      "Shows menus over links with faults. The menus are \"whole\" (the right one), \"fewer\" (some of its "
      "items),\n"
      "\"none\", or \"other\" (what a changed or misplaced answer says).\n\n"
      "Exit status: 0 all is well, 1 something is not.",
      "fault-campaign");
  app.add_option("--seed", options.seed, "Settles the faults of every cycle")->capture_default_str();
  app.add_option("--cycles", options.cycles, "How many faulty cycles, each followed by a clean one")
      ->capture_default_str();
  app.add_option("--hosts", options.lanes, "How many processes show them")->capture_default_str();
  app.add_option("--only", options.only, "This cycle alone");
  app.add_option("--times", options.times, "So often")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  try {
    return keldane::testing::Campaign(options).run();
  } catch (const std::exception& error) {
    std::cerr << "fault-campaign: " << error.what() << std::endl;
    return 1;
  }
}
