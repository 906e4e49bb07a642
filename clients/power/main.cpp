// keldane-power: reports the state of power and network to the backup daemon, so that the daemon needs no
// D-Bus.
#include <poll.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <ctime>
#include <iostream>
#include <optional>

#include "clients/core/DaemonBundle.h"
#include "clients/core/OwnerLink.h"
#include "clients/power/SystemBus.h"

namespace keldane {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kUsualInterval(60);
constexpr std::chrono::seconds kRetry(5);

volatile std::sig_atomic_t isEnding = 0;
extern "C" void endSoon(int /*number*/) { isEnding = 1; }

void say(const std::string& sentence) { std::cerr << "keldane-power: " << sentence << std::endl; }

/// Prints a sentence when it differs from the last one; an empty sentence means that all is well.
class Complaint {
 public:
  void set(const std::string& sentence) {
    if (sentence != last_ && !sentence.empty()) {
      say(sentence);
    }
    last_ = sentence;
  }

 private:
  std::string last_;
};

PropertyList requestFor(const PowerAndNetwork& state) {
  return PropertyList::dictionary(
      {{"batteryPercent", state.batteryPercent ? PropertyList(*state.batteryPercent) : PropertyList()},
       {"metered", state.metered},
       {"powerSaver", state.powerSaver}});
}

/// Tells the daemon. Returns the time for which the daemon believes the report; absent when it cannot be
/// told.
std::optional<std::chrono::seconds> tell(const std::string& socketPath, const PowerAndNetwork& state) {
  OwnerLink link(socketPath);
  if (!link.connect()) {
    return std::nullopt;
  }
  const PropertyList answer = link.surroundings(requestFor(state));
  const std::int64_t seconds = answer["holdsFor"].longLongValue();
  return seconds > 0 ? std::optional(std::chrono::seconds(seconds)) : std::nullopt;
}

class Watcher {
 public:
  /// The signals that end the program come only while it waits, when just those of `blocked` are blocked. So
  /// none comes between the last look at `isEnding` and the waiting.
  Watcher(std::string socketPath, const sigset_t& blocked)
      : socketPath_(std::move(socketPath)), blocked_(blocked) {}

  void run() {
    while (isEnding == 0) {
      const PowerAndNetwork state = look();
      if (!told_ || state != *told_ || steady_clock::now() >= next_) {
        report(state);
      }
      wait();
    }
    tell(socketPath_, {});  // nobody will report the end of this state, so it is withdrawn
  }

 private:
  PowerAndNetwork look() {
    try {
      if (!bus_) {
        bus_.emplace();
      }
      const PowerAndNetwork state = bus_->read();
      busComplaint_.set("");
      return state;
    } catch (const NoSystemBus& gone) {
      bus_.reset();
      busComplaint_.set(gone.what());
      return {};
    }
  }

  void report(const PowerAndNetwork& state) {
    const std::optional<std::chrono::seconds> holds = tell(socketPath_, state);
    daemonComplaint_.set(holds ? ""
                               : "The backup daemon cannot be told at " + socketPath_ + "; trying again.");
    told_ = holds ? std::optional(state) : std::nullopt;
    next_ = steady_clock::now() + (holds ? std::min(*holds / 3, kUsualInterval) : kRetry);
  }

  void wait() {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(next_ - steady_clock::now());
    const auto time = std::max(left, std::chrono::milliseconds(10));
    try {
      if (bus_) {
        bus_->waitForNews(time, blocked_);
        return;
      }
    } catch (const NoSystemBus& gone) {
      bus_.reset();
      busComplaint_.set(gone.what());
    }
    const auto rest =
        std::chrono::duration_cast<std::chrono::seconds>(std::min<std::chrono::milliseconds>(time, kRetry));
    const timespec sleep{rest.count(), 10'000'000};
    ::ppoll(nullptr, 0, &sleep, &blocked_);
  }

  const std::string socketPath_;
  const sigset_t blocked_;
  std::optional<SystemBus> bus_;
  std::optional<PowerAndNetwork> told_;  // absent: the daemon does not know
  steady_clock::time_point next_;
  Complaint busComplaint_, daemonComplaint_;
};

int show() {
  const PowerAndNetwork state = SystemBus().read();
  std::cout << "On battery        "
            << (state.batteryPercent ? std::to_string(*state.batteryPercent) + " %" : std::string("no"))
            << '\n'
            << "Metered network   " << (state.metered ? "yes" : "no") << '\n'
            << "Power-saver mode  " << (state.powerSaver ? "yes" : "no") << '\n';
  return 0;
}

/// Blocks the signals that end the program and returns the signals that were blocked before.
sigset_t holdSignals() {
  struct sigaction action {};
  action.sa_handler = endSoon;  // without SA_RESTART, so that waiting ends
  sigset_t ending;
  sigemptyset(&ending);
  for (const int number : {SIGTERM, SIGINT}) {
    sigaction(number, &action, nullptr);
    sigaddset(&ending, number);
  }
  sigset_t before;
  sigprocmask(SIG_BLOCK, &ending, &before);
  return before;
}

int run(int argc, char** argv) {
  CLI::App app(
      "Tells the backup daemon how power and network stand: the charge of the battery, a metered network, "
      "and\n"
      "power-saver mode. keldanectl settings says at which of these the backup rests.",
      "keldane-power");
  std::string bundle;
  app.set_version_flag("--version", "keldane-power " KELDANE_VERSION);
  app.add_option("--bundle", bundle,
                 "The bundle that says where the daemon is; else the first that is installed")
      ->type_name("DIR");
  bool showing = false;
  app.add_flag("--show", showing, "Print how power and network stand, and end");
  CLI11_PARSE(app, argc, argv);
  if (showing) {
    return show();
  }
  const sigset_t blocked = holdSignals();
  Watcher(findDaemonBundle(bundle).socketPath, blocked).run();
  return 0;
}

}  // namespace

}  // namespace keldane

int main(int argc, char** argv) {
  try {
    return keldane::run(argc, argv);
  } catch (const std::exception& error) {
    keldane::say(error.what());
    return 1;
  }
}
