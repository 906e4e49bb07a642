#include "clients/ctl/service/AutostartService.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <system_error>
#include <thread>

#include "clients/core/words/Printable.h"
#include "clients/ctl/Session.h"
#include "clients/ctl/service/Program.h"
#include "platform/files/UserFolders.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace fs = std::filesystem;

namespace {

constexpr char kEntry[] = "keldane.desktop";
constexpr auto kStartPatience = std::chrono::seconds(10);
constexpr auto kStopPatience = std::chrono::seconds(60);  // the daemon lets its storage program finish first
constexpr auto kInterval = std::chrono::milliseconds(50);

template <class Condition>
bool becomesTrue(const Condition& condition, std::chrono::seconds patience) {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) {
      return false;
    }
    std::this_thread::sleep_for(kInterval);
  }
  return true;
}

fs::path ownEntry() { return configurationFolder() / "autostart" / kEntry; }

/// Whether the administrator has put an entry into a folder that all sessions read.
bool hasSystemEntry() {
  const char* given = std::getenv("XDG_CONFIG_DIRS");
  std::string_view list = given != nullptr && *given != '\0' ? given : "/etc/xdg";
  std::error_code error;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(':'), list.size());
    const fs::path folder(list.substr(0, end));
    if (folder.is_absolute() && fs::exists(folder / "autostart" / kEntry, error)) {
      return true;
    }
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return false;
}

/// Whether the entry is switched off. A user's own entry replaces the computer's.
bool isHidden(const fs::path& entry) {
  std::ifstream stream(entry);
  for (std::string line; std::getline(stream, line);) {
    if (line == "Hidden=true") {
      return true;
    }
  }
  return false;
}

void writeEntry(const std::string& lines) {
  const fs::path entry = ownEntry();
  std::error_code error;
  fs::create_directories(entry.parent_path(), error);
  std::ofstream stream(entry, std::ios::trunc);
  stream
      << "[Desktop Entry]\nType=Application\nName=Keldane backup daemon\nExec=keldanectl service supervise\n"
      << lines;
  stream.close();
  if (!stream) {
    throw CommandFailure(kNotTaken, filled(tr("%s cannot be written."), printable(entry.string())));
  }
}

struct flock wholeFile(short kind) {
  struct flock lock {};
  lock.l_type = kind;
  lock.l_whence = SEEK_SET;
  return lock;
}

}  // namespace

SupervisorLock::SupervisorLock() {
  const std::optional<fs::path> runtime = runtimeFolder();
  if (!runtime) {
    throw CommandFailure(kNotTaken, tr("Others can write to the folder for this user's sockets."));
  }
  path_ = *runtime / "keldane" / "supervisor";
}

bool SupervisorLock::take() {
  std::error_code error;
  fs::create_directories(path_.parent_path(), error);
  file_ = Descriptor(open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file_) {
    throw CommandFailure(kNotTaken, filled(tr("%s cannot be made: %s."), printable(path_.string()),
                                           std::generic_category().message(errno)));
  }
  struct flock lock = wholeFile(F_WRLCK);
  return fcntl(file_.get(), F_SETLK, &lock) == 0;
}

int SupervisorLock::holder() const {
  const Descriptor file(open(path_.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
  struct flock lock = wholeFile(F_WRLCK);
  return file && fcntl(file.get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK ? lock.l_pid : 0;
}

fs::path serviceLogFile() { return stateFolder() / "keldane" / "keldaned.log"; }

ServiceStanding AutostartService::standing() const {
  ServiceStanding standing;
  standing.process = SupervisorLock().holder();
  standing.running = standing.process > 0;
  std::error_code error;
  standing.enabled = fs::exists(ownEntry(), error) ? !isHidden(ownEntry()) : hasSystemEntry();
  return standing;
}

void AutostartService::start() {
  const SupervisorLock lock;
  if (lock.holder() > 0) {
    return;
  }
  std::error_code error;
  const std::string program = fs::read_symlink("/proc/self/exe", error);
  if (!startProgram({program, "service", "supervise"}) ||
      !becomesTrue([&] { return lock.holder() > 0; }, kStartPatience)) {
    throw CommandFailure(kNotTaken, tr("The daemon was not started; \"keldanectl log\" may tell why."));
  }
}

void AutostartService::stop() {
  const SupervisorLock lock;
  const int process = lock.holder();
  if (process <= 0) {
    return;
  }
  if (kill(process, SIGTERM) != 0 || !becomesTrue([&] { return lock.holder() != process; }, kStopPatience)) {
    throw CommandFailure(kNotTaken, tr("The daemon does not end."));
  }
}

void AutostartService::enable() {
  std::error_code error;
  fs::remove(ownEntry(), error);
  if (!hasSystemEntry()) {
    writeEntry("");
  }
}

void AutostartService::disable() { writeEntry("Hidden=true\n"); }

void AutostartService::showLog(unsigned lines, bool follow) {
  const std::string file = serviceLogFile().string();
  std::error_code error;
  if (!fs::exists(file, error)) {
    throw CommandFailure(kNotTaken, filled(tr("There is no log yet: %s is missing."), printable(file)));
  }
  std::vector<std::string> arguments = {"tail", "--lines=" + std::to_string(lines)};
  if (follow) {
    arguments.emplace_back("--follow=name");
    arguments.emplace_back("--retry");
  }
  arguments.insert(arguments.end(), {"--", file});
  becomeProgram(arguments);
}

}  // namespace keldane
