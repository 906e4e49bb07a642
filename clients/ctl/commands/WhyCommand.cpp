// Why a path is in the backup or not.
#include <iostream>

#include "cli/Json.h"
#include "clients/core/FolderTree.h"
#include "clients/core/Units.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/terminal/Text.h"

namespace keldane {

namespace {

std::string storedText(const PropertyList& node) {
  const std::string date = dateText(node["backupDate"]);
  return date.empty() ? ""
                      : "Its newest version in the backup is " +
                            countText(node["version"].unsignedLongLongValue()) + ", of " + date + ".";
}

void explain(const Globals& globals, const std::string& given, bool json) {
  const std::string path = pathNamed(given);
  Session session(globals);
  session.requireDaemon();
  const PropertyList node = session.state().dictionaryForPath(path);
  session.checkDaemon();
  if (!node) {
    throw CommandFailure(kNotTaken,
                         "The daemon knows nothing of " + printable(path) + ", or may not tell you.");
  }
  const PropertyList reasons = node["reasons"];
  if (!reasons) {
    throw CommandFailure(kNotTaken, "This daemon does not tell why.");
  }
  if (json) {
    std::cout << jsonLine({{"path", path},
                           {"state", jsonValue(node["state"])},
                           {"backupDate", jsonValue(node["backupDate"])},
                           {"reasons", jsonValue(reasons)}})
              << '\n';
    return;
  }
  std::cout << printable(path) << ": " << printable(node["state"].string()) << '\n';
  for (std::size_t i = 0; i < reasons.count(); ++i) {
    std::cout << (i == 0 ? "  decides    " : "  outranked  ") << printable(reasons[i]["text"].string())
              << '\n';
  }
  if (const std::string stored = storedText(node); !stored.empty()) {
    std::cout << "  stored     " << stored << '\n';
  }
}

}  // namespace

void addWhyCommand(CLI::App& app, Globals& globals) {
  CLI::App* command =
      app.add_subcommand("why", "Tell rule by rule why a file or folder is in the backup or not");
  auto path = std::make_shared<std::string>();
  command->add_option("PATH", *path, "The file or folder")->required();
  CLI::Option* json = addFlag(*command, "--json", "Print JSON instead of text");
  command->callback([&globals, path, json] { explain(globals, *path, !json->empty()); });
}

}  // namespace keldane
