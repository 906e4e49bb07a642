#include "clients/ctl/setup/Place.h"

#include <utility>

#include "clients/core/FolderTree.h"
#include "clients/core/place/Location.h"
#include "clients/ctl/Session.h"
#include "clients/ctl/setup/SecretFile.h"
#include "clients/ctl/terminal/Secret.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

std::string firstLineOf(const std::string& text) {
  const std::string line = text.substr(0, text.find('\n'));
  const std::size_t first = line.find_first_not_of(" \t\r");
  return first == std::string::npos ? std::string()
                                    : line.substr(first, line.find_last_not_of(" \t\r") + 1 - first);
}

bool givesPassword(const PropertyList::Entries& environment) {
  for (const auto& [name, value] : environment) {
    if (name.string() == "RESTIC_REST_PASSWORD") {
      return true;
    }
  }
  return false;
}

}  // namespace

PropertyList::Entries Place::request() const {
  return {{"location", location},
          {"environment", PropertyList::dictionary(environment)},
          {"options", PropertyList::dictionary(options)}};
}

void PlaceOptions::addTo(CLI::App& command) {
  command
      .add_option("--location-file", locationFile,
                  tr("A file with the location, for one with a password in it"))
      ->type_name("FILE");
  command
      .add_option("--environment", environmentFile,
                  tr("A file of NAME=VALUE lines for the storage program: keys of a server, for instance"))
      ->type_name("FILE");
  command.add_option("-o,--option", options, tr("An option of the storage program, such as sftp.command=…"))
      ->type_name("NAME=VALUE")
      ->allow_extra_args(false);
}

Place PlaceOptions::place() const {
  if (holdsSecret(location)) {
    throw CommandFailure(
        kUsage,
        tr("Everybody on this computer can read a command line: leave the password out of it and be asked "
           "for it, or put the location into a file for --location-file."));
  }
  Place place;
  place.location = locationFile.empty() ? location : firstLineOf(readSecretFile(locationFile));
  if (place.location.empty()) {
    throw CommandFailure(kUsage, tr("There is no location in it."));
  }
  if (!environmentFile.empty()) {
    place.environment = environmentFrom(readSecretFile(environmentFile));
  }
  for (const std::string& option : options) {
    const std::size_t equals = option.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw CommandFailure(kUsage, tr("An option of the storage program is NAME=VALUE."));
    }
    place.options.emplace_back(option.substr(0, equals), option.substr(equals + 1));
  }
  if (isFolder(place.location)) {
    constexpr std::string_view kLocal = "local:";
    place.location =
        pathNamed(place.location.starts_with(kLocal) ? place.location.substr(kLocal.size()) : place.location);
  } else if (lacksPassword(place.location) && !givesPassword(place.environment) && isSomebodyThere()) {
    const std::string password = askSecret(tr("Password of the server (empty for none):"));
    place.location = password.empty() ? place.location : withPassword(place.location, password);
  }
  return place;
}

}  // namespace keldane
