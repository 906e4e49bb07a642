// The command why: the reason why a path is in the backup or not.
#include <iostream>

#include "cli/Json.h"
#include "clients/core/FolderTree.h"
#include "clients/core/words/Units.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/layout/Text.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

std::string storedText(const PropertyList& node) {
  const std::string date = dateText(node["backupDate"]);
  return date.empty() ? ""
                      : filled(tr("Its newest version in the backup is %s, of %s."),
                               countText(node["version"].unsignedLongLongValue()), date);
}

void printLine(const char* label, const std::string& text) {
  constexpr std::size_t kLabelColumns = 11;
  std::cout << "  " << padded(label, kLabelColumns) << (columnsOf(label) < kLabelColumns ? "" : "  ") << text
            << '\n';
}

void explain(const Globals& globals, const std::string& given, bool json) {
  const std::string path = pathNamed(given);
  Session session(globals);
  const PropertyList node = session.knownNode(path);
  const PropertyList reasons = node["reasons"];
  if (!reasons) {
    throw CommandFailure(kNotTaken, tr("This daemon does not tell why."));
  }
  if (json) {
    std::cout << jsonLine({{"path", path},
                           {"state", jsonValue(node["state"])},
                           {"backupDate", jsonValue(node["backupDate"])},
                           {"reasons", jsonValue(reasons)}})
              << '\n';
    return;
  }
  std::cout << printable(path) << ": " << daemonWords(node["state"]) << '\n';
  for (std::size_t i = 0; i < reasons.count(); ++i) {
    printLine(i == 0 ? tr("decides") : tr("outranked"), daemonWords(reasons[i]["text"]));
  }
  if (const std::string stored = storedText(node); !stored.empty()) {
    printLine(tr("stored"), stored);
  }
}

}  // namespace

void addWhyCommand(CLI::App& app, Globals& globals) {
  CLI::App* command =
      app.add_subcommand("why", tr("Tell rule by rule why a file or folder is in the backup or not"));
  auto path = std::make_shared<std::string>();
  command->add_option("PATH", *path, tr("The file or folder"))->required();
  CLI::Option* json = addFlag(*command, "--json", tr("Print JSON instead of text"));
  command->callback([&globals, path, json] { explain(globals, *path, !json->empty()); });
}

}  // namespace keldane
