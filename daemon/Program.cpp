#include "daemon/Program.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iostream>

#include "daemon/Daemon.h"
#include "daemon/DefaultPlaces.h"
#include "daemon/owner/OwnerServer.h"
#include "daemon/owner/repository/RepositoryRequests.h"
#include "daemon/server/DaemonServer.h"
#include "daemon/server/socket/FolderSafety.h"
#include "platform/files/Descriptor.h"

namespace keldane {

namespace {

enum ExitStatus { kDone = 0, kEnvironment = 1, kUsage = 2 };

int fail(ExitStatus status, const std::string& sentence) {
  std::cerr << "keldaned: " << sentence << std::endl;
  return status;
}

/// Tells the process that was started whether the daemon process that it has forked serves.
class Readiness {
 public:
  /// Made in the daemon process. `pipe` is the end to write to; none when nobody waits.
  explicit Readiness(Descriptor pipe = {}) : pipe_(std::move(pipe)) {}
  void report(const std::string& failure) {
    if (pipe_) {
      [[maybe_unused]] const ssize_t written = write(pipe_.get(), failure.data(), failure.size());
      pipe_ = Descriptor();
    }
  }
  bool isWaitedFor() const { return static_cast<bool>(pipe_); }

 private:
  Descriptor pipe_;
};

/// Leaves the terminal. Returns, in the process that was started, its exit status once the daemon serves or
/// has failed; nothing in the daemon itself.
std::optional<int> detach(Readiness& readiness) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return fail(kEnvironment, "No pipe can be made.");
  }
  Descriptor reading(ends[0]);
  Descriptor writing(ends[1]);
  const pid_t child = fork();
  if (child < 0) {
    return fail(kEnvironment, "No process can be made.");
  }
  if (child == 0) {
    setsid();
    readiness = Readiness(std::move(writing));
    return std::nullopt;
  }
  writing = Descriptor();
  std::string failure;
  char block[512];
  for (ssize_t got = 0; (got = read(reading.get(), block, sizeof(block))) != 0;) {
    if (got > 0) {
      failure.append(block, static_cast<std::size_t>(got));
    } else if (errno != EINTR) {
      break;
    }
  }
  int status = 0;
  if (failure.empty() && waitpid(child, &status, WNOHANG) == child) {
    failure = "The daemon ended before it served.";
  }
  // The text is "ready" when the daemon serves.
  return failure == "ready" ? kDone
                            : fail(kEnvironment, failure.empty() ? "The daemon did not start." : failure);
}

void closeTerminal() {
  const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    dup2(nothing.get(), stream);
  }
}

// Each connection takes a descriptor, and the usual limit of a process is meant for programs with a few
// files.
void allowDescriptors(rlim_t count) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < count) {
    limit.rlim_cur = std::min(count, limit.rlim_max);
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}

/// Serves until a signal or a client ends it.
int serve(const DaemonOptions& options, const EngineFactory& engine, Readiness& readiness) {
  const auto failed = [&](const std::string& sentence) {
    if (readiness.isWaitedFor()) {
      readiness.report(sentence);
      return int{kEnvironment};
    }
    return fail(kEnvironment, sentence);
  };

  // These signals are blocked in every thread and taken by sigwait below.
  sigset_t ending;
  sigemptyset(&ending);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    sigaddset(&ending, signal);
  }
  pthread_sigmask(SIG_BLOCK, &ending, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow then fails the write, as a full disk does
  umask(077);
  allowDescriptors(ServerLimits().connections + 256);

  std::error_code error;
  const std::filesystem::path folder = std::filesystem::path(options.store).parent_path();
  std::filesystem::create_directories(folder, error);
  const std::optional<std::string> shared = error ? std::nullopt : whoElseCanWriteTo(folder.string());
  if (shared && !options.allowSharedFolder) {
    return failed(*shared + " The store " + options.store + " is not safe there (--allow-shared-folder).");
  }
  std::shared_ptr<Daemon> daemon;
  try {
    daemon = std::make_shared<Daemon>(options, engine, [] { kill(getpid(), SIGTERM); });
  } catch (const std::exception& exception) {
    return failed("The store " + options.store + " cannot be used: " + exception.what() + ".");
  }
  // The first socket is opened last, so that a client that reaches it finds a complete daemon.
  const auto requests = std::make_shared<RepositoryRequests>(daemon, engine);
  const auto ownerServer = std::make_shared<OwnerServer>(requests, options.socket, options.allowSharedFolder);
  const auto server = std::make_shared<DaemonServer>(daemon, options.socket, options.allowSharedFolder);
  std::string sentence;
  if (!ownerServer->start(&sentence) || !server->start(&sentence)) {
    ownerServer->stop();
    return failed(sentence);
  }
  if (readiness.isWaitedFor()) {
    readiness.report("ready");
    closeTerminal();
  }
  int signal = 0;
  sigwait(&ending, &signal);
  requests->stop();
  ownerServer->stop();
  server->stop();
  daemon->stop();
  return kDone;
}

struct CommandLine {
  DaemonOptions options;
  std::string configFile = SystemConfig::kUsualFile;
  double batchDelay = 45;
  bool system = false;
  bool foreground = false;
};

void addOptions(CLI::App& app, CommandLine& line) {
  DaemonOptions& options = line.options;
  app.set_version_flag("--version", "keldaned " KELDANE_VERSION);
  app.add_flag("--system", line.system,
               "Serve all users: socket in /run/keldane, store in /var/lib/keldane, unless they are named");
  app.add_option("--socket", options.socket,
                 "Where the clients connect; else keldane/keldaned.sock in $XDG_RUNTIME_DIR")
      ->type_name("PATH");
  app.add_option(
         "--store", options.store,
         "Where rules and records are kept; else keldane/store.sqlite in $XDG_DATA_HOME or ~/.local/share")
      ->type_name("FILE");
  app.add_option(
         "--data", options.data,
         "Where the key, the local repository and what the daemon works with lie; else the store's folder")
      ->type_name("DIR");
  app.add_option("--config", line.configFile, "What the administrator wants")
      ->type_name("FILE")
      ->capture_default_str();
  app.add_option("--batch-delay", line.batchDelay,
                 "How long a change waits for others that go into the same backup")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.0, 60.0))
      ->capture_default_str();
  app.add_option("--root", options.root, "The only folder that belongs to the backup")
      ->type_name("DIR")
      ->capture_default_str();
  app.add_flag("--allow-shared-folder", options.allowSharedFolder,
               "Keep socket and store even in folders where other users can write");
  app.add_flag("--foreground", line.foreground, "Do not leave the terminal");
  app.add_flag("--verbose", options.verbose, "Log each call");
}

/// Completes the command line with the administrator's values and the default places. Returns the exit status
/// when a path cannot be used.
std::optional<int> complete(CommandLine& line, const CLI::App& app) {
  DaemonOptions& options = line.options;
  options.config = SystemConfig::read(line.configFile);
  const std::optional<ConfigValue> delay = options.config.value("batch-delay-seconds");
  const double seconds = delay && app.count("--batch-delay") == 0 ? std::stod(delay->text) : line.batchDelay;
  options.timing.batchDelay = std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
  const DefaultPlaces usual = line.system ? placesOfSystem() : placesOfUser();
  if (app.count("--socket") == 0) {
    options.socket = usual.socket;
    if (options.socket.empty()) {
      return fail(kEnvironment,
                  "Others can write to the folder for this user's sockets; --socket names another place.");
    }
  }
  if (app.count("--store") == 0) {
    options.store = usual.store;
  }
  if (options.data.empty()) {
    options.data = std::filesystem::absolute(options.store).parent_path().string();
  }
  for (std::string* path : {&options.socket, &options.store, &options.root, &options.data}) {
    const std::optional<std::string> normal =
        path->empty() ? std::nullopt : normalizedPath(std::filesystem::absolute(*path).string());
    if (!normal) {
      return fail(kUsage, "\"" + *path + "\" is no usable path.");
    }
    *path = *normal;
  }
  if (!std::filesystem::is_directory(options.root)) {
    return fail(kEnvironment, "The root " + options.root + " is no folder.");
  }
  return std::nullopt;
}

int run(int argc, char** argv, const EngineFactory& engine) {
  CommandLine line;
  CLI::App app(
      "Serves the clients of the backup on this computer.\n\n"
      "Exit status: 0 it ended on request, 1 the socket or the store cannot be used, 2 usage.",
      "keldaned");
  addOptions(app, line);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& done) {
    return app.exit(done);
  } catch (const CLI::ParseError& error) {
    return fail(kUsage, std::string(error.what()) + " (keldaned --help tells more)");
  }
  if (const std::optional<int> status = complete(line, app)) {
    return *status;
  }
  Readiness readiness;
  if (!line.foreground) {
    if (const std::optional<int> status = detach(readiness)) {
      return *status;
    }
  }
  return serve(line.options, engine, readiness);
}

}  // namespace

int runDaemon(int argc, char** argv, const EngineFactory& engine) {
  try {
    return run(argc, argv, engine);
  } catch (const std::exception& error) {
    return fail(kEnvironment, error.what());
  }
}

}  // namespace keldane
