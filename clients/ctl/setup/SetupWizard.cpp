#include "clients/ctl/setup/SetupWizard.h"

#include <algorithm>
#include <charconv>
#include <iostream>

#include "clients/core/place/Location.h"
#include "clients/core/place/MountedDisks.h"
#include "clients/core/words/Printable.h"
#include "clients/core/words/Units.h"
#include "clients/ctl/Session.h"
#include "clients/ctl/terminal/Secret.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr const char* kFolderOnDisk = "/keldane-backup";

void printChoices(std::initializer_list<const char*> choices) {
  std::size_t number = 0;
  for (const char* choice : choices) {
    std::cout << "  " << ++number << "  " << choice << '\n';
  }
}

/// Asks for a number from 1 to `count`, and asks again after any other answer.
std::size_t askForNumber(const std::string& question, std::size_t count) {
  for (;;) {
    const std::string answer = askLine(question + " [1]");
    std::size_t number = answer.empty() ? 1 : 0;
    std::from_chars(answer.data(), answer.data() + answer.size(), number);
    if (number >= 1 && number <= count) {
      return number;
    }
    std::cout << filled(tr("Please type a number from 1 to %s."), std::to_string(count)) << '\n';
  }
}

/// Asks for a text, and asks again after an empty answer.
std::string askForText(const std::string& question) {
  for (;;) {
    std::string answer = askLine(question);
    if (!answer.empty()) {
      return answer;
    }
  }
}

Place askForDisk() {
  for (;;) {
    const std::vector<MountedDisk> disks = mountedDisks();
    for (std::size_t i = 0; i < disks.size(); ++i) {
      std::cout << "  " << i + 1 << "  " << printable(disks[i].path) << " ("
                << filled(tr("%s of %s free"), bytesText(disks[i].freeBytes), bytesText(disks[i].allBytes))
                << ")\n";
    }
    if (!disks.empty()) {
      return {disks[askForNumber(tr("Which disk?"), disks.size()) - 1].path + kFolderOnDisk, {}, {}};
    }
    std::cout << tr("No disk is mounted below /media, /run/media or /mnt.") << '\n';
    const std::string folder =
        askLine(tr("Plug one in and press Enter, or type the folder where it is mounted:"));
    if (folder.starts_with('/')) {
      return {folder == "/" ? kFolderOnDisk : folder + kFolderOnDisk, {}, {}};
    }
  }
}

Place askForSftp() {
  const std::string host = askForText(tr("Server, as for ssh (user@host):"));
  const std::string folder = askForText(tr("Folder on the server:"));
  return {"sftp:" + host + ":" + folder, {}, {}};
}

Place askForRest() {
  std::string url = askForText(tr("Address (https://host:port/name):"));
  url = url.starts_with("rest:") ? url.substr(5) : url;
  const std::string user = askLine(tr("User name (empty for none):"));
  const std::size_t scheme = url.find("://");
  std::string location = "rest:" + (scheme == std::string::npos ? "https://" + url : url);
  if (!user.empty()) {
    location.insert(location.find("://") + 3, user + "@");
    location = withPassword(location, askSecret(tr("Password:")));
  }
  return {location, {}, {}};
}

Place askForS3() {
  const std::string address = askForText(tr("Address and bucket (host/bucket):"));
  Place place{"s3:" + address, {}, {}};
  place.environment.emplace_back("AWS_ACCESS_KEY_ID", askForText(tr("Access key ID:")));
  place.environment.emplace_back("AWS_SECRET_ACCESS_KEY", askSecret(tr("Secret access key:")));
  return place;
}

Place askForServer() {
  printChoices({tr("one that ssh reaches"), tr("a REST server of restic"), tr("S3, or what speaks like it"),
                tr("another one that restic knows")});
  switch (askForNumber(tr("Which kind?"), 4)) {
    case 1:
      return askForSftp();
    case 2:
      return askForRest();
    case 3:
      return askForS3();
    default:
      std::cout << tr("Secrets that it needs besides go into a file: see --environment.") << '\n';
      return {askForText(tr("Location, as restic takes it:")), {}, {}};
  }
}

}  // namespace

Place askForPlace(const std::string& dataFolder) {
  std::cout << tr("Where should the backup be kept?") << '\n';
  printChoices({tr("on this disk: helps against deleting and changing by mistake, not against a broken disk"),
                tr("on an external disk"), tr("on a server")});
  switch (askForNumber(tr("Which one?"), 3)) {
    case 1:
      return {dataFolder + "/repository", {}, {}};
    case 2:
      return askForDisk();
    default:
      return askForServer();
  }
}

}  // namespace keldane
