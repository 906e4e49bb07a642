#include "tests/tools/faults/campaign/CampaignScene.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "tests/support/Wait.h"
#include "tests/support/daemon/Client.h"

namespace keldane::testing {

namespace {

constexpr const char* kLeftOut[] = {"alpha.txt", "delta.txt", "golf"};

}  // namespace

Scene::Scene(std::uint32_t lanes)
    : lanes_(lanes),
      daemon_({KELDANED_PROGRAM, "--foreground", "--socket", socket(), "--store", folder_ / "store", "--root",
               folder_.path().string()}) {
  for (const char* name : {"bravo.txt", "charlie/inside"}) {
    folder_.write(std::string("files/") + name, "content");
  }
  for (std::uint32_t lane = 0; lane < lanes_; ++lane) {
    for (const char* name : kLeftOut) {
      folder_.write(std::filesystem::path(fileOf(lane, name)).lexically_relative(folder_.path()), "content");
    }
  }
  int status = 0;
  waitpid(startChild([this] { return setRules() ? 0 : 1; }), &status, 0);
  if (status != 0) {
    throw std::runtime_error("keldaned does not do what it is told");
  }
  // Only the two listeners remain as sockets when all clients have gone.
  if (!eventually([&] { return count("fd", "socket:") == 2; })) {
    throw std::runtime_error("keldaned keeps a client that has left");
  }
  threads_ = count("task");
  descriptors_ = count("fd");
}

Subject Scene::subject(std::uint32_t cycle) const {
  const std::string prefs = "Open Keldane Preferences…";
  const std::string backup = "Back This Up";
  const std::string exclude = "Don't Back This Up";
  const std::string several = "Status: <multiple files selected>";
  const std::string asap = "Back Up This File As Soon As Possible";
  const std::vector<std::string> left = {"Status: Not selected for backup", "-", backup, asap, "-", prefs};
  const std::vector<std::uint32_t> leaveOrHurry = {kExclude, kBackupASAP};
  const auto own = [&](const char* name) { return fileOf(cycle % lanes_, name); };
  switch (cycle % kSubjects) {
    case 0:
      return {{own("alpha.txt")}, leaveOrHurry, left};
    case 1:
      return {{file("bravo.txt")}, {kBackup}, {{"Status: Backed up", "-", exclude, "-", prefs}}};
    case 2:
      return {{file("charlie")}, {}, {{"Status: Backed up", "-", backup, exclude, "-", prefs}}};
    case 3:
      return {{own("alpha.txt"), own("delta.txt")}, leaveOrHurry, {{several, "-", backup, asap, "-", prefs}}};
    case 4:
      return {{file("none")}, {}, {{"-", "-", prefs}}};
    case 5:
      return {{own("golf")}, leaveOrHurry, left};
    case 6:
      return {{own("alpha.txt"), "/dev/null"}, {}, std::nullopt};
    default:
      return {{file("bravo.txt"), file("charlie"), own("alpha.txt")},
              {},
              {{several, "-", backup, exclude, "-", prefs}}};
  }
}

std::string Scene::fileOf(std::uint32_t lane, const std::string& name) const {
  // Each digit stands there three times, so that a changed bit cannot turn one lane's file into another's.
  std::string folder;
  for (const char digit : std::to_string(1000 + lane)) {
    folder += std::string(3, digit);
  }
  return file(folder + '/' + name);
}

std::string Scene::end() {
  if (!eventually([&] { return count("task") <= threads_ && count("fd") <= descriptors_; })) {
    return "keldaned keeps " + std::to_string(count("task") - threads_) + " threads and " +
           std::to_string(count("fd") - descriptors_) + " descriptors of those who have left";
  }
  return daemon_.end(SIGTERM) == 0 ? "" : "keldaned has failed";
}

std::ptrdiff_t Scene::count(const char* what, const char* beginning) const {
  std::error_code error;
  std::ptrdiff_t count = 0;
  for (const auto& entry :
       std::filesystem::directory_iterator("/proc/" + std::to_string(daemon_.pid()) + "/" + what, error)) {
    const bool isWanted = *beginning == '\0' ||
                          std::filesystem::read_symlink(entry.path(), error).string().starts_with(beginning);
    count += isWanted ? 1 : 0;
  }
  return count;
}

bool Scene::setRules() const {
  alarm(60);  // the calls below wait without a limit for a daemon that does not answer
  // The socket exists for a moment before the daemon listens.
  if (!eventually([&] { return Client(socket()).connected(); })) {
    return false;
  }
  Client client(socket());
  bool done = client.connected();
  for (const char* name : {"bravo.txt", "charlie"}) {
    client->addFileToBackup(file(name));
  }
  for (std::uint32_t lane = 0; lane < lanes_; ++lane) {
    for (const char* name : kLeftOut) {
      client->removeFileFromBackup(fileOf(lane, name));
    }
  }
  for (const char* name : {"bravo.txt", "charlie/inside", "charlie"}) {
    done = done && eventually([&] {
             return client->dictionaryForPath(file(name), 0)["state"].string() == "Backed up";
           });
  }
  // From here on only preferred files are backed up, which tells them from files that are only included.
  client->setAutomaticMode(0);
  return done && client->automaticMode() == 0;
}

}  // namespace keldane::testing
