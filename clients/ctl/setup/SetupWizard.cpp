#include "clients/ctl/setup/SetupWizard.h"

#include <algorithm>
#include <charconv>
#include <iostream>

#include "clients/core/Printable.h"
#include "clients/core/Units.h"
#include "clients/core/place/Location.h"
#include "clients/core/place/MountedDisks.h"
#include "clients/ctl/Session.h"
#include "clients/ctl/terminal/Secret.h"

namespace keldane {

namespace {

constexpr const char* kFolderOnDisk = "/keldane-backup";

/// A number from 1 to `count`; asks again for anything else.
std::size_t askForNumber(const std::string& question, std::size_t count) {
  for (;;) {
    const std::string answer = askLine(question + " [1]");
    std::size_t number = answer.empty() ? 1 : 0;
    std::from_chars(answer.data(), answer.data() + answer.size(), number);
    if (number >= 1 && number <= count) {
      return number;
    }
    std::cout << "Please type a number from 1 to " << count << ".\n";
  }
}

/// Asks again for an empty answer.
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
      std::cout << "  " << i + 1 << "  " << printable(disks[i].path) << " (" << bytesText(disks[i].freeBytes)
                << " of " << bytesText(disks[i].allBytes) << " free)\n";
    }
    if (!disks.empty()) {
      return {disks[askForNumber("Which disk?", disks.size()) - 1].path + kFolderOnDisk, {}, {}};
    }
    std::cout << "No disk is mounted below /media, /run/media or /mnt.\n";
    const std::string folder =
        askLine("Plug one in and press Enter, or type the folder where it is mounted:");
    if (folder.starts_with('/')) {
      return {folder == "/" ? kFolderOnDisk : folder + kFolderOnDisk, {}, {}};
    }
  }
}

Place askForSftp() {
  const std::string host = askForText("Server, as for ssh (user@host):");
  const std::string folder = askForText("Folder on the server:");
  return {"sftp:" + host + ":" + folder, {}, {}};
}

Place askForRest() {
  std::string url = askForText("Address (https://host:port/name):");
  url = url.starts_with("rest:") ? url.substr(5) : url;
  const std::string user = askLine("User name (empty for none):");
  const std::size_t scheme = url.find("://");
  std::string location = "rest:" + (scheme == std::string::npos ? "https://" + url : url);
  if (!user.empty()) {
    location.insert(location.find("://") + 3, user + "@");
    location = withPassword(location, askSecret("Password:"));
  }
  return {location, {}, {}};
}

Place askForS3() {
  const std::string address = askForText("Address and bucket (host/bucket):");
  Place place{"s3:" + address, {}, {}};
  place.environment.emplace_back("AWS_ACCESS_KEY_ID", askForText("Access key ID:"));
  place.environment.emplace_back("AWS_SECRET_ACCESS_KEY", askSecret("Secret access key:"));
  return place;
}

Place askForServer() {
  std::cout << "  1  one that ssh reaches\n"
               "  2  a REST server of restic\n"
               "  3  S3, or what speaks like it\n"
               "  4  another one that restic knows\n";
  switch (askForNumber("Which kind?", 4)) {
    case 1:
      return askForSftp();
    case 2:
      return askForRest();
    case 3:
      return askForS3();
    default:
      std::cout << "Secrets that it needs besides go into a file: see --environment.\n";
      return {askForText("Location, as restic takes it:"), {}, {}};
  }
}

}  // namespace

Place askForPlace(const std::string& dataFolder) {
  std::cout
      << "Where should the backup be kept?\n"
         "  1  on this disk: helps against deleting and changing by mistake, not against a broken disk\n"
         "  2  on an external disk\n"
         "  3  on a server\n";
  switch (askForNumber("Which one?", 3)) {
    case 1:
      return {dataFolder + "/repository", {}, {}};
    case 2:
      return askForDisk();
    default:
      return askForServer();
  }
}

}  // namespace keldane
