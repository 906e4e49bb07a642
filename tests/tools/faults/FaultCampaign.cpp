// fault-campaign: thousands of menu cycles, each over a link with faults of its own and followed by a clean
// one, against the reference daemon. Says what each kind of fault came to, and fails when a host does not
// live, shows a menu that its link cannot have told it, leaves something behind, or has no clean menu after.
//
// The hosts are processes of their own, side by side, because a call whose link has ended returns a second
// later. All is settled by the seed and the cycle's number but who of two processes is quicker.
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

#include "Common/KeldProxy.h"
#include "hosts/core/MenuHost.h"
#include "platform/files/Descriptor.h"
#include "platform/host/Host.h"
#include "platform/syslog/SystemLog.h"
#include "tests/support/Footprint.h"
#include "tests/support/PluginBundle.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/UserPreferences.h"
#include "tests/support/Wait.h"
#include "tests/tools/faults/FaultPlan.h"
#include "tests/tools/faults/FaultProxy.h"
#include "tests/tools/faults/MenuOracle.h"

namespace keldane::testing {
namespace {

constexpr std::uint32_t kNoCommand = 0;
constexpr std::uint32_t kBackup = fourCharCode("r2d<");
constexpr std::uint32_t kExclude = fourCharCode("r2d=");

// No host is silent for so long: a call that ends with its link takes a second.
constexpr int kSilenceLimit = 60000;  // milliseconds

// Whatever length a message announces, memory is taken for what arrives. With room for the sanitizers.
constexpr long kMemoryLimit = 1L << 20;  // KiB

/// What a lane's menus are about. Its command changes nothing any more, so that each cycle finds what the one
/// before it found.
struct Subject {
  std::vector<std::string> paths;
  std::uint32_t command = kNoCommand;
  Titles menu;
};

constexpr std::size_t kSubjects = 8;

std::string textOf(const Titles& titles) {
  if (!titles) {
    return "no menu";
  }
  std::string text;
  for (const std::string& title : *titles) {
    text += (text.empty() ? "[" : " | ") + title;
  }
  return text + "]";
}

/// A process that was started here; it is ended with its owner.
class Process {
 public:
  explicit Process(std::vector<std::string> arguments, int input = -1, int output = -1) {
    std::vector<char*> words;
    words.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
      words.push_back(argument.data());
    }
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (input >= 0) {
      posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
      posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    }
    const int error = posix_spawn(&pid_, words[0], &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
      throw std::runtime_error(arguments[0] + " cannot be started");
    }
  }
  ~Process() { end(SIGKILL); }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const { return pid_; }
  /// The exit status, or -1.
  int end(int signal) {
    int status = -1;
    if (pid_ > 0) {
      kill(pid_, signal);
      waitpid(pid_, &status, 0);
      pid_ = -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
};

/// Runs something in a process of its own, which ends with this one, and answers which that is.
pid_t startChild(const std::function<int()>& work) {
  std::fflush(nullptr);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child != 0) {
    return child;
  }
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) {
    _exit(1);
  }
  int status = 1;
  try {
    status = work();
  } catch (const std::exception& error) {
    std::cerr << "fault-campaign: " << error.what() << std::endl;
  }
  std::exit(status);
}

/// The daemon, and files with rules whose menus no longer change.
class Scene {
 public:
  Scene()
      : daemon_({KELDANED_PROGRAM, "--foreground", "--socket", socket(), "--store", folder_ / "store",
                 "--root", folder_.path().string()}) {
    for (const char* name : {"alpha.txt", "bravo.txt", "charlie/inside", "delta.txt", "golf"}) {
      folder_.write(std::string("files/") + name, "content");
    }
    if (!eventually([&] { return std::filesystem::exists(socket()); })) {
      throw std::runtime_error("keldaned does not listen");
    }
    int status = 0;
    waitpid(startChild([this] { return setRules() ? 0 : 1; }), &status, 0);
    if (status != 0) {
      throw std::runtime_error("keldaned does not do what it is told");
    }
    // That was the only client, and it has gone once the listener is the only socket.
    if (!eventually([&] { return count("fd", "socket:") == 1; })) {
      throw std::runtime_error("keldaned keeps a client that has left");
    }
    threads_ = count("task");
    descriptors_ = count("fd");
  }

  std::string socket() const { return folder_ / "d.sock"; }

  Subject subject(std::uint32_t cycle) const {
    const std::string prefs = "Open Keldane Preferences…";
    const std::string backup = "Back This Up";
    const std::string exclude = "Don't Back This Up";
    const std::string several = "Status: <multiple files selected>";
    const std::string asap = "Back Up This File As Soon As Possible";
    const std::vector<std::string> left = {"Status: Not selected for backup", "-", backup, asap, "-", prefs};
    switch (cycle % kSubjects) {
      case 0:
        return {{file("alpha.txt")}, kExclude, left};
      case 1:
        return {{file("bravo.txt")}, kBackup, {{"Status: Backed up", "-", exclude, "-", prefs}}};
      case 2:
        return {{file("charlie")}, kNoCommand, {{"Status: Backed up", "-", backup, exclude, "-", prefs}}};
      case 3:
        return {{file("alpha.txt"), file("delta.txt")}, kExclude, {{several, "-", backup, asap, "-", prefs}}};
      case 4:
        return {{file("none")}, kNoCommand, {{"-", "-", prefs}}};
      case 5:
        return {{file("golf")}, kExclude, left};
      case 6:
        return {{file("alpha.txt"), "/dev/null"}, kNoCommand, std::nullopt};
      default:
        return {{file("bravo.txt"), file("charlie"), file("alpha.txt")},
                kNoCommand,
                {{several, "-", backup, exclude, "-", prefs}}};
    }
  }

  /// Ends the daemon. Why it is not as it was before; empty when it is.
  std::string end() {
    if (!eventually([&] { return count("task") <= threads_ && count("fd") <= descriptors_; })) {
      return "keldaned keeps " + std::to_string(count("task") - threads_) + " threads and " +
             std::to_string(count("fd") - descriptors_) + " descriptors of those who have left";
    }
    return daemon_.end(SIGTERM) == 0 ? "" : "keldaned has failed";
  }

 private:
  std::string file(const std::string& name) const { return folder_ / ("files/" + name); }

  /// Entries of a folder of the daemon's in /proc, of which the links lead to something that begins like
  /// this.
  std::ptrdiff_t count(const char* what, const char* beginning = "") const {
    std::error_code error;
    std::ptrdiff_t count = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(daemon_.pid()) + "/" + what, error)) {
      const bool isWanted =
          *beginning == '\0' ||
          std::filesystem::read_symlink(entry.path(), error).string().starts_with(beginning);
      count += isWanted ? 1 : 0;
    }
    return count;
  }

  bool setRules() const {
    alarm(60);  // a daemon that does not answer is waited for without a limit
    const std::shared_ptr<KeldaneSocket> link = KeldaneSocket::create();
    const std::shared_ptr<KeldaneProxy> proxy = KeldaneProxy::create();
    proxy->setProtocol(&KeldaneDaemonProtocol);
    proxy->setSocket(link);
    bool done = link->connectToPath(socket());
    for (const char* name : {"bravo.txt", "charlie"}) {
      proxy->addFileToBackup(file(name));
    }
    for (const char* name : {"alpha.txt", "delta.txt", "golf"}) {
      proxy->removeFileFromBackup(file(name));
    }
    for (const char* name : {"bravo.txt", "charlie/inside", "charlie"}) {
      done = done && eventually([&] {
               return proxy->dictionaryForPath(file(name), 0)["state"].string() == "Backed up";
             });
    }
    proxy->close();
    link->close();
    return done;
  }

  TemporaryFolder folder_;
  Process daemon_;
  std::ptrdiff_t threads_ = 0;
  std::ptrdiff_t descriptors_ = 0;
};

/// The fault proxy as a process, and what is said to it.
class ProxyProcess {
 public:
  ProxyProcess(const std::string& listenPath, const std::string& connectPath) {
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
      throw std::runtime_error("there are no pipes");
    }
    const Descriptor theirInput(in[0]);
    const Descriptor theirOutput(out[1]);
    input_ = Descriptor(in[1]);
    output_ = Descriptor(out[0]);
    process_ = std::make_unique<Process>(
        std::vector<std::string>{FAULT_PROXY_PROGRAM, "--listen", listenPath, "--connect", connectPath},
        in[0], out[1]);
    if (readLine() != "ready") {
      throw std::runtime_error("the fault proxy does not listen");
    }
  }
  void begin(const FaultPlan& plan) {
    const std::string line = plan.text() + '\n';
    if (write(input_.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
      throw std::runtime_error("the fault proxy does not listen any more");
    }
  }
  /// Whether the connection has ended, or does so in a moment.
  bool hasReport() const {
    pollfd source{output_.get(), POLLIN, 0};
    return poll(&source, 1, 50) == 1;
  }
  ConnectionReport report() {
    const std::optional<ConnectionReport> report = ConnectionReport::parse(readLine());
    if (!report) {
      throw std::runtime_error("the fault proxy has failed");
    }
    return *report;
  }

 private:
  std::string readLine() {
    std::size_t end = 0;
    while ((end = unread_.find('\n')) == std::string::npos) {
      char block[65536];
      const ssize_t got = read(output_.get(), block, sizeof(block));
      if (got <= 0) {
        return "";
      }
      unread_.append(block, static_cast<std::size_t>(got));
    }
    std::string line = unread_.substr(0, end);
    unread_.erase(0, end + 1);
    return line;
  }

  Descriptor input_;
  Descriptor output_;
  std::string unread_;
  std::unique_ptr<Process> process_;
};

/// What a menu came to beside the right one.
enum class Outcome : std::uint8_t { whole, fewer, none, other };
constexpr std::array<const char*, 4> kOutcomes = {"whole", "fewer", "none", "other"};

Outcome outcomeOf(const Titles& menu, const Titles& clean) {
  if (menu == clean) {
    return Outcome::whole;
  }
  if (!menu) {
    return Outcome::none;
  }
  const auto isClean = [&](const std::string& title) {
    return std::find(clean->begin(), clean->end(), title) != clean->end();
  };
  return clean && std::all_of(menu->begin(), menu->end(), isClean) ? Outcome::fewer : Outcome::other;
}

/// One host, whose plug-in knows the daemon by the proxy's socket.
class Lane {
 public:
  Lane(const Scene& scene, std::uint64_t seed, std::uint32_t firstCycle)
      : seed_(seed), subject_(scene.subject(firstCycle)), proxy_(bundle_.daemonPath(), scene.socket()) {
    setenv("LC_ALL", "C", 1);
    setLogReceiver([](std::string_view) {});
    Host::shared().setProcess(fourCharCode("MACS"), fourCharCode("FNDR"));
    std::string error;
    if (!host_.load(bundle_.path(), &error)) {
      throw std::runtime_error(error);
    }
    // All that is made once in a process is made in these.
    cycle({}, kNoCommand);
    cycle({}, subject_.command);
    cleanAnswers_ = possibleAnswers(cycle({}, kNoCommand).report).front();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    before_ = std::make_unique<Footprint>();
  }

  /// What the cycle came to. Throws what is wrong with it.
  Outcome run(std::uint32_t number) {
    const FaultPlan plan = FaultPlan::random(seed_, number);
    const std::uint32_t round = number / kSubjects;
    // An answer that nobody waits for would keep the client from seeing the end of its link.
    const bool staysOpen =
        round % 4 == 1 && subject_.command != kNoCommand && plan.effect() == Effect::missing;
    const Cycle faulty = cycle(plan, staysOpen || round % 4 == 0 ? subject_.command : kNoCommand, staysOpen);
    checkMenu(plan, faulty);
    checkFootprint("the faulty cycle");
    const Cycle clean = cycle({}, kNoCommand);
    if (clean.menu != subject_.menu) {
      throw std::runtime_error("the clean cycle that follows shows " + textOf(clean.menu));
    }
    checkFootprint("the clean cycle that follows");
    return outcomeOf(faulty.menu, subject_.menu);
  }

 private:
  struct Cycle {
    Titles menu;
    ConnectionReport report;
  };

  /// A menu that stays open is there until its link, if it was lost, is back.
  Cycle cycle(const FaultPlan& plan, std::uint32_t command, bool staysOpen = false) {
    const Selection selection{subject_.paths};
    proxy_.begin(plan);
    const MenuHost::Examination examination = host_.examine(selection);
    RunLoop::main().runDue();  // as a host's loop does while its menu is open
    Cycle cycle;
    const bool isLost = staysOpen && proxy_.hasReport();
    if (isLost) {
      cycle.report = proxy_.report();
      proxy_.begin({});
      awaitLink();
    }
    if (command != kNoCommand) {
      host_.select(selection, command);
    }
    host_.cleanup();
    const ConnectionReport last = proxy_.report();
    if (!isLost) {
      cycle.report = last;
    } else if (last.requests != subject_.paths.size()) {
      throw std::runtime_error("a command does not reach the daemon over the link that is back");
    }
    if (examination.status != kNoErr) {
      throw std::runtime_error("the examination answers " + std::to_string(examination.status));
    }
    for (const MenuItem& parent : examination.menu) {
      cycle.menu.emplace();
      for (const MenuItem& item : parent.items) {
        cycle.menu->push_back(item.title);
      }
    }
    return cycle;
  }

  /// The client tries again on a timer, from when it has noticed.
  static void awaitLink() {
    const auto tries = [] { return RunLoop::main().load().timers > 0; };
    if (!eventuallyRunning(tries) || !eventuallyRunning([&] { return !tries(); })) {
      throw std::runtime_error("a link that was lost is not back while its menu is open");
    }
  }

  void checkMenu(const FaultPlan& plan, const Cycle& faulty) const {
    std::set<std::string> possibleMenus;
    bool isPossible = false;
    const std::vector<Answers> possible = possibleAnswers(faulty.report);
    for (const Answers& answers : possible) {
      const Titles menu = menuFor(subject_.paths, answers);
      isPossible |= menu == faulty.menu;
      possibleMenus.insert(textOf(menu));
      const std::string wrong = contradiction(plan.effect(), answers, cleanAnswers_);
      if (!wrong.empty()) {
        throw std::runtime_error(wrong);
      }
    }
    if (!isPossible) {
      std::string all;
      for (const std::string& menu : possibleMenus) {
        all += "\n    " + menu;
      }
      throw std::runtime_error("the menu is " + textOf(faulty.menu) + ", and what was received says" + all);
    }
    if (plan.effect() == Effect::whole && faulty.menu != subject_.menu) {
      throw std::runtime_error("the menu is " + textOf(faulty.menu));
    }
  }

  void checkFootprint(const char* after) const {
    if (!eventually([&] { return Footprint() == *before_; })) {
      std::ostringstream text;
      text << "after " << after << " there are " << Footprint() << ", and before the campaign there were "
           << *before_;
      throw std::runtime_error(text.str());
    }
  }

  const std::uint64_t seed_;
  const UserPreferences user_;
  const PluginBundle bundle_;
  const Subject subject_;
  ProxyProcess proxy_;
  MenuHost host_;
  Answers cleanAnswers_;
  std::unique_ptr<Footprint> before_;
};

/// What lanes say, one line each that is written at once: "begin LANE CYCLE", "end LANE CYCLE OUTCOME" or
/// "fail LANE CYCLE TEXT".
void say(int pipe, const std::string& word, std::uint32_t lane, std::uint32_t cycle, std::string text = {}) {
  std::replace(text.begin(), text.end(), '\n', '\t');
  const std::string line =
      (word + ' ' + std::to_string(lane) + ' ' + std::to_string(cycle) + ' ' + text).substr(0, PIPE_BUF - 1) +
      '\n';
  if (write(pipe, line.data(), line.size()) < 0) {
    std::exit(1);  // nobody listens any more
  }
}

struct Options {
  std::uint64_t seed = 1;
  std::uint32_t cycles = 2000;
  std::uint32_t lanes = 80;
  std::optional<std::uint32_t> only;
  std::uint32_t times = 1;
};

class Campaign {
 public:
  explicit Campaign(const Options& options) : options_(options) {}

  int run() {
    std::cout << "Seed " << options_.seed << ", " << (options_.only ? options_.times : options_.cycles)
              << " cycles in " << lanes() << " hosts." << std::endl;
    const auto start = std::chrono::steady_clock::now();
    Scene scene;
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
        fail(lane, running_[lane], "the host has taken " + std::to_string(used.ru_maxrss) + " KiB");
      }
      if (status != 0 && !hasFailed_.contains(lane)) {
        fail(lane, running_[lane],
             silent                ? "the host hangs"
             : WIFSIGNALED(status) ? "the host was killed by signal " + std::to_string(WTERMSIG(status))
                                   : "the host ended with status " + std::to_string(WEXITSTATUS(status)));
      }
    }
    if (const std::string wrong = scene.end(); !wrong.empty()) {
      std::cout << "FAILED, seed " << options_.seed << ": " << wrong << std::endl;
      ++failures_;
    }
    printTable();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    std::printf("%u cycles, %zu failures, %.1f s.\n", done_, failures_, took.count());
    return failures_ == 0 && done_ == (options_.only ? options_.times : options_.cycles) ? 0 : 1;
  }

 private:
  std::uint32_t lanes() const {
    // Each lane has one subject.
    return options_.only ? 1 : std::max<std::uint32_t>(options_.lanes / kSubjects, 1) * kSubjects;
  }

  int runLane(const Scene& scene, std::uint32_t lane, int pipe) const {
    std::uint32_t cycle = options_.only.value_or(lane);
    try {
      say(pipe, "begin", lane, cycle);
      Lane host(scene, options_.seed, cycle);
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

  /// Until all lanes have ended. False when they are silent instead.
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
        hear(unread.substr(0, end));
      }
    }
  }

  void hear(const std::string& line) {
    std::istringstream words(line);
    std::string word;
    std::uint32_t lane = 0;
    std::uint32_t cycle = 0;
    words >> word >> lane >> cycle;
    running_[lane] = cycle;
    if (word == "end") {
      std::size_t outcome = 0;
      words >> outcome;
      ++done_;
      const FaultPlan plan = FaultPlan::random(options_.seed, cycle);
      const std::string row = plan.faults.size() == 1 ? plan.faults[0].name() : "several at once";
      ++table_[row][outcome];
    } else if (word == "fail") {
      std::string text;
      std::getline(words >> std::ws, text);
      std::replace(text.begin(), text.end(), '\t', '\n');
      fail(lane, cycle, text);
    }
  }

  void fail(std::uint32_t lane, std::uint32_t cycle, const std::string& text) {
    hasFailed_.insert(lane);
    ++failures_;
    std::cout << "FAILED, seed " << options_.seed << ", cycle " << cycle << ", plan \""
              << FaultPlan::random(options_.seed, cycle).text() << "\": " << text
              << "\n  again: fault-campaign --seed " << options_.seed << " --only " << cycle << std::endl;
  }

  void printTable() const {
    std::printf("%-18s %7s", "fault", "cycles");
    for (const char* name : kOutcomes) {
      std::printf(" %6s", name);
    }
    std::printf("\n");
    for (const auto& [name, row] : table_) {
      std::uint32_t sum = 0;
      for (const std::uint32_t count : row) {
        sum += count;
      }
      std::printf("%-18s %7u", name.c_str(), sum);
      for (const std::uint32_t count : row) {
        std::printf(" %6u", count);
      }
      std::printf("\n");
    }
  }

  const Options options_;
  std::map<std::uint32_t, std::uint32_t> running_;  // lane and cycle
  std::set<std::uint32_t> hasFailed_;
  std::map<std::string, std::array<std::uint32_t, kOutcomes.size()>> table_;
  std::uint32_t done_ = 0;
  std::size_t failures_ = 0;
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
