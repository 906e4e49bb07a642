// The settings for what file managers show of the backup.
#include "clients/ctl/administration/FileManagerCommand.h"

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "cli/Json.h"
#include "clients/core/words/Printable.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/layout/Text.h"
#include "config/FileManagerOptions.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr std::size_t kSwitchColumns = 16;

struct SwitchRequest {
  std::string name, state;
};

void showSwitches(const std::string& name, bool json) {
  const FileManagerOptions options = FileManagerOptions::read();
  auto values = nlohmann::ordered_json::object();
  for (const FileManagerSwitch& each : kFileManagerSwitches) {
    if (!name.empty() && name != each.name) {
      continue;
    }
    const bool isOn = options.*each.option;
    if (json) {
      values[each.name] = isOn;
    } else {
      std::cout << padded(each.name, kSwitchColumns) << ' ' << (isOn ? "on" : "off") << '\n';
    }
  }
  if (json) {
    std::cout << jsonLine(values) << '\n';
  }
}

void setSwitch(const SwitchRequest& request) {
  for (const FileManagerSwitch& each : kFileManagerSwitches) {
    if (request.name == each.name && !each.set(request.state == "on")) {
      throw CommandFailure(kNotTaken, filled(tr("The preferences %s cannot be written."),
                                             printable(FileManagerOptions::file())));
    }
  }
}

}  // namespace

void addFileManagerCommand(CLI::App& config) {
  CLI::App* command = config.add_subcommand(
      "file-manager", tr("Show or change what the file managers show of the backup, without a daemon"));
  auto request = std::make_shared<SwitchRequest>();
  std::vector<std::string> names;
  names.reserve(std::size(kFileManagerSwitches));
  for (const FileManagerSwitch& each : kFileManagerSwitches) {
    names.emplace_back(each.name);
  }
  CLI::Option* name = command->add_option("SWITCH", request->name, tr("What it is about; all without it"))
                          ->check(CLI::IsMember(names));
  command->add_option("STATE", request->state, tr("on or off"))
      ->needs(name)
      ->check(CLI::IsMember({"on", "off"}));
  CLI::Option* json = addFlag(*command, "--json", tr("Print JSON instead of text"));
  command->callback([request, json] {
    if (!request->state.empty()) {
      setSwitch(*request);
    }
    showSwitches(request->name, !json->empty());
  });
}

}  // namespace keldane
