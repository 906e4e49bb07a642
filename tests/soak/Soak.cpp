// Compresses a day of a file manager and its plug-in into minutes: menus, clients that connect, ask and
// leave, preferences, and restarts of the daemon, in an order that a seed determines. At intervals everything
// is released, and the resources of the two processes must then be the same as before.
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <random>
#include <stdexcept>

#include "client-state/BackupState.h"
#include "client-state/DefaultsDB.h"
#include "hosts/core/MenuHost.h"
#include "platform/host/Host.h"
#include "platform/syslog/SystemLog.h"
#include "tests/soak/Samples.h"
#include "tests/support/PluginBundle.h"
#include "tests/support/UserPreferences.h"
#include "tests/support/Wait.h"

namespace keldane::soak {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kFiles = 20;
constexpr std::size_t kMostClients = 4;

// Each sample waits until the daemon has released its clients, a second after they have left.
constexpr std::chrono::duration<double> kRest{1.1};
constexpr std::chrono::duration<double> kLeastWork{0.3};

#if defined(KELDANE_SANITIZED)  // the allocator is the sanitizer's, and keeps freed memory
constexpr bool kMemoryTells = false;
#else
constexpr bool kMemoryTells = true;
#endif

std::atomic<bool> gInterrupted = false;

struct Options {
  double seconds = 300;
  int intervals = 30;  ///< each ends with a sample
  std::uint64_t seed = 1;
};

/// A keldaned with its own socket and store, and the bundle that leads to it. The daemon ends with its owner,
/// even if the owner dies.
class DaemonProcess {
 public:
  explicit DaemonProcess(const std::string& root) : root_(root) { start(); }
  ~DaemonProcess() {
    if (process_ != 0) {
      kill(process_, SIGKILL);
      waitpid(process_, nullptr, 0);
    }
  }
  DaemonProcess(const DaemonProcess&) = delete;
  DaemonProcess& operator=(const DaemonProcess&) = delete;

  /// Asks the daemon to end, or kills it. Throws unless it ends as it should.
  void end(int signal) {
    kill(process_, signal);
    int status = 0;
    waitpid(std::exchange(process_, 0), &status, 0);
    const bool asItShould = signal == SIGKILL ? WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL
                                              : WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!asItShould) {
      throw std::runtime_error("A daemon ended with the status " + std::to_string(status) + ".");
    }
  }

  /// Starts the daemon and waits until it serves.
  void start() {
    const std::string store = bundle_.folder() / "store";
    const std::string socket = bundle_.daemonPath();
    const char* arguments[] = {KELDANED_PROGRAM, "--foreground", "--socket",    socket.c_str(), "--store",
                               store.c_str(),    "--root",       root_.c_str(), nullptr};
    process_ = fork();
    if (process_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      execv(arguments[0], const_cast<char**>(arguments));
      _exit(127);
    }
    const auto serves = [&] {
      const auto probe = KeldaneSocket::create();
      const bool connected = probe->connectToPath(socket);
      probe->close();
      return connected;
    };
    if (process_ < 0 || !testing::eventually(serves)) {
      throw std::runtime_error("A daemon cannot be started.");
    }
  }

  pid_t process() const { return process_; }
  std::string bundlePath() const { return bundle_.path(); }

 private:
  const testing::PluginBundle bundle_;
  const std::string root_;
  pid_t process_ = 0;
};

class Soak {
 public:
  explicit Soak(const Options& options) : options_(options), random_(options.seed) {
    // The diagnostic log may be on for this computer. It would hide the table, so it is dropped.
    setLogReceiver([](std::string_view) {});
    Host::shared().setProcess(fourCharCode("MACS"), fourCharCode("FNDR"));
    Host::shared().setFileOpener([](const std::optional<std::string>&) { return true; });
    for (Side& side : sides_) {
      loadPlugIn(side);
    }
    // Everything is done once, so that the first sample is representative.
    for (Side& side : sides_) {
      showMenu(side);
      clients_.push_back(newClient(side));
      askClient(*clients_.back());
    }
    usePreferences();
    restartDaemon();
    endClients();
  }
  ~Soak() {
    endClients();
    setLogReceiver({});
  }
  Soak(const Soak&) = delete;
  Soak& operator=(const Soak&) = delete;

  /// Runs to the end and returns the findings.
  std::vector<std::string> run() {
    const Clock::time_point start = Clock::now();
    const std::chrono::duration<double> interval(options_.seconds / options_.intervals);
    const auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - start); };
    std::cout << tableHeading() << std::endl;
    takeSample(0);
    for (int i = 1; i <= options_.intervals && !gInterrupted; ++i) {
      const std::chrono::duration<double> end = std::max(i * interval - kRest, elapsed() + kLeastWork);
      do {
        step();
      } while (elapsed() < end && !gInterrupted);
      takeSample(elapsed().count());
    }
    if (gInterrupted) {
      return {"It was interrupted."};
    }
    steady_.end(SIGTERM);
    restarted_.end(SIGTERM);
    std::cout << menus_ << " menus, " << connections_ << " connections, " << questions_ << " questions, "
              << restarts_ << " restarts of a daemon" << std::endl;
    return findings(samples_, kMemoryTells);
  }

 private:
  /// A daemon, and the plug-in that uses it.
  struct Side {
    DaemonProcess& daemon;
    std::unique_ptr<MenuHost> host;
  };

  static std::vector<std::string> writeFiles(const testing::TemporaryFolder& folder) {
    std::vector<std::string> files;
    for (std::size_t i = 0; i < kFiles; ++i) {
      const std::string name = "file " + std::to_string(i) + (i % 2 == 0 ? ".txt" : ".csv");
      files.push_back(folder.write("files/" + name, std::string(100 * i, 'x')));
    }
    return files;
  }

  std::size_t below(std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_);
  }
  Side& anySide() { return sides_[below(std::size(sides_))]; }

  void step() {
    ++steps_;
    const std::size_t chance = below(1000);
    if (chance < 600) {
      showMenu(anySide());
    } else if (chance < 800) {
      if (!clients_.empty()) {
        askClient(*clients_[below(clients_.size())]);
      }
    } else if (chance < 900) {
      if (clients_.size() < kMostClients && below(2) == 0) {
        clients_.push_back(newClient(anySide()));
      } else if (!clients_.empty()) {
        endClient(below(clients_.size()));
      }
    } else if (chance < 960) {
      usePreferences();
    } else if (chance < 985) {
      RunLoop::main().run(RunLoop::Seconds(0.001 * static_cast<double>(below(20))));
    } else if (chance < 997) {
      loadPlugIn(anySide());
    } else {
      restartDaemon();
    }
  }

  void loadPlugIn(Side& side) {
    std::string error;
    side.host = std::make_unique<MenuHost>();
    if (!side.host->load(side.daemon.bundlePath(), &error)) {
      throw std::runtime_error(error);
    }
  }

  void showMenu(Side& side) {
    Selection selection;
    for (std::size_t count = 1 + below(3); count > 0; --count) {
      selection.paths.push_back(files_[below(files_.size())]);
    }
    const MenuHost::Examination examination = side.host->examine(selection);
    if (examination.status != kNoErr || examination.menu.empty()) {
      throw std::runtime_error("There was no menu.");
    }
    std::vector<std::uint32_t> commands;
    for (const MenuItem& item : examination.menu.front().items) {
      if (item.isChoosable()) {
        commands.push_back(item.command);
      }
    }
    if (!commands.empty() && below(2) == 0) {
      side.host->select(selection, commands[below(commands.size())]);
    }
    side.host->cleanup();
    ++menus_;
  }

  std::unique_ptr<BackupState> newClient(Side& side) {
    auto client = std::make_unique<BackupState>();
    client->setBundle(Bundle::bundleWithPath(side.daemon.bundlePath()));
    if (below(2) == 0) {
      client->setWantsStateChangedNotifications();
    }
    client->onBegin();
    if (!client->connected()) {
      throw std::runtime_error("A client did not get through to its daemon.");
    }
    client->setStateHandler();
    ++connections_;
    return client;
  }

  void askClient(BackupState& client) {
    client.updateDaemonState();
    // Its connection may have failed with its daemon; then it answers with remembered values.
    if (client.connected() && client.daemonState().isAbsent()) {
      throw std::runtime_error("A daemon has no state.");
    }
    client.serverURL();
    client.userEmail();
    client.computerNumber();
    client.dictionaryForPath(files_[below(files_.size())], true);
    client.isQuotaLimited();
    ++questions_;
  }

  void endClient(std::size_t index) {
    clients_[index]->onEnd();
    clients_.erase(clients_.begin() + static_cast<std::ptrdiff_t>(index));
  }

  void endClients() {
    while (!clients_.empty()) {
      endClient(clients_.size() - 1);
    }
  }

  void usePreferences() {
    const std::string key = "soak" + std::to_string(below(5));
    const auto value = static_cast<std::int32_t>(below(1000));
    DefaultsDB::setIntProperty(value, key);
    if (DefaultsDB::intProperty(key, true) != value || !DefaultsDB::lastReadOK()) {
      throw std::runtime_error("The preferences do not hold what was written.");
    }
    DefaultsDB::stringProperty(LAST_SERVER_URL_STRING, true);
  }

  /// While the daemon is away a menu is shown, which may be empty.
  void restartDaemon() {
    restarted_.end(below(2) == 0 ? SIGTERM : SIGKILL);
    sides_[1].host->examine({{files_.front()}});
    sides_[1].host->cleanup();
    restarted_.start();
    ++restarts_;
  }

  void takeSample(double seconds) {
    endClients();
    Sample sample;
    const auto settled = [&] {
      sample = {seconds, steps_, Holdings::ofThisProcess(), Holdings::of(steady_.process())};
      const Sample& wanted = samples_.empty() ? sample : samples_.front();
      return sample.host.sameThreadsAndDescriptors(wanted.host) &&
             sample.daemon.sameThreadsAndDescriptors(wanted.daemon);
    };
    if (samples_.empty()) {
      // Resources that are being released still count, and there is no first sample yet to compare with.
      RunLoop::main().run(RunLoop::Seconds(1));
    }
    testing::eventuallyRunning(settled);
    samples_.push_back(sample);
    std::cout << tableLine(sample) << std::endl;
  }

  const Options options_;
  std::mt19937_64 random_;
  const testing::UserPreferences preferences_;
  const testing::TemporaryFolder folder_;
  const std::vector<std::string> files_ = writeFiles(folder_);
  DaemonProcess steady_{folder_ / "files"};
  DaemonProcess restarted_{folder_ / "files"};
  Side sides_[2] = {{steady_, nullptr}, {restarted_, nullptr}};
  std::vector<std::unique_ptr<BackupState>> clients_;
  std::vector<Sample> samples_;
  std::uint64_t steps_ = 0, menus_ = 0, connections_ = 0, questions_ = 0, restarts_ = 0;
};

int run(int argc, char** argv) {
  Options options;
  CLI::App app("Keeps a plug-in and its daemon busy and fails unless what they hold stays.", "keldane-soak");
  app.add_option("--seconds", options.seconds, "How long")->capture_default_str();
  app.add_option("--intervals", options.intervals, "How many samples to take")
      ->check(CLI::Range(1, 10'000))
      ->capture_default_str();
  app.add_option("--seed", options.seed, "Decides the order of what is done")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    std::signal(signal, [](int) { gInterrupted = true; });
  }
  std::cout << "Seed " << options.seed << ", " << options.seconds << " seconds" << std::endl;
  const std::vector<std::string> found = Soak(options).run();
  for (const std::string& sentence : found) {
    std::cout << sentence << std::endl;
  }
  if (found.empty()) {
    std::cout << "Everything stayed." << std::endl;
  }
  return found.empty() ? 0 : 1;
}

}  // namespace

}  // namespace keldane::soak

int main(int argc, char** argv) {
  try {
    return keldane::soak::run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "keldane-soak: " << error.what() << std::endl;
    return 1;
  }
}
