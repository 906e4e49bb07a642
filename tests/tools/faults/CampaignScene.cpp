#include "tests/tools/faults/CampaignScene.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "tests/support/Client.h"
#include "tests/support/Wait.h"

namespace keldane::testing {

Scene::Scene()
    : daemon_({KELDANED_PROGRAM, "--foreground", "--socket", socket(), "--store", folder_ / "store", "--root",
               folder_.path().string()}) {
  for (const char* name : {"alpha.txt", "bravo.txt", "charlie/inside", "delta.txt", "golf"}) {
    folder_.write(std::string("files/") + name, "content");
  }
  int status = 0;
  waitpid(startChild([this] { return setRules() ? 0 : 1; }), &status, 0);
  if (status != 0) {
    throw std::runtime_error("keldaned does not do what it is told");
  }
  // Those were the only clients, and they have gone once the listener is the only socket.
  if (!eventually([&] { return count("fd", "socket:") == 1; })) {
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
  alarm(60);  // a daemon that does not answer is waited for without a limit
  // For a moment the socket is there and nobody listens yet.
  if (!eventually([&] { return Client(socket()).connected(); })) {
    return false;
  }
  Client client(socket());
  bool done = client.connected();
  for (const char* name : {"bravo.txt", "charlie"}) {
    client->addFileToBackup(file(name));
  }
  for (const char* name : {"alpha.txt", "delta.txt", "golf"}) {
    client->removeFileFromBackup(file(name));
  }
  for (const char* name : {"bravo.txt", "charlie/inside", "charlie"}) {
    done = done && eventually([&] {
             return client->dictionaryForPath(file(name), 0)["state"].string() == "Backed up";
           });
  }
  return done;
}

}  // namespace keldane::testing
