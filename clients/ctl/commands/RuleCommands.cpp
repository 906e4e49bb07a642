#include <array>
#include <iostream>

#include "Common/FileNode.h"
#include "cli/Json.h"
#include "clients/core/FolderTree.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/terminal/Text.h"

namespace keldane {

namespace {

/// What may be done with a path: what is sent, and by which flags of the daemon's next answer one sees that
/// it was taken.
struct PathCommand {
  const char* name;
  const char* description;
  bool include;
  bool prefer;
};

constexpr PathCommand kPathCommands[] = {
    {"add", "Back these files and folders up", true, false},
    {"remove", "Do not back these files and folders up", false, false},
    {"asap", "Back these files up before all others", true, true},
};

bool wasTaken(const KeldaneFileNode& node, bool include) {
  using namespace backup_flags;
  return (node.backupFlags() & (include ? kInclude | kFolderInclude : kExclude | kNoFolder)) != 0;
}

void tell(BackupState& state, const PathCommand& which, const std::string& path) {
  if (!which.include) {
    state.removeFileFromBackup(path);
    return;
  }
  state.addFileToBackup(path);
  if (which.prefer) {
    state.setPriorityBackup(path);
  }
}

void changeRules(Globals& globals, const PathCommand& which, const std::vector<std::string>& paths) {
  Session session(globals);
  session.requireDaemon();
  for (const std::string& given : paths) {
    const std::string path = pathNamed(given);
    session.renewDeadline();
    tell(session.state(), which, path);
    const KeldaneFileNode::Pointer node = KeldaneFileNode::fileNodeForPath(path, session.proxy().get());
    session.checkDaemon();
    if (!node) {
      complain("The daemon knows nothing of " + printable(path) + ", or may not tell you.");
      globals.status = kNotTaken;
    } else if (!wasTaken(*node, which.include)) {
      complain("The daemon did not take " + printable(path) + ": " + printable(node->state().string()) + ".");
      globals.status = kNotTaken;
    } else {
      std::cout << printable(path) << ": " << printable(node->state().string()) << '\n';
    }
  }
}

constexpr std::uint32_t kTypeBackup = 6, kTypeExclude = 7;

const char* wordFor(std::uint32_t toggle) {
  return toggle == kTypeBackup ? "backup" : toggle == kTypeExclude ? "exclude" : "none";
}

void changeType(const Globals& globals, const std::string& extension, const std::string& rule, bool json) {
  const std::string type = extension.starts_with('.') ? extension : '.' + extension;
  Session session(globals);
  session.requireDaemon();
  BackupState& state = session.state();
  const std::uint32_t wanted = rule == "backup" ? kTypeBackup : kTypeExclude;
  if (rule != "show") {
    state.setFileTypeToggle(type, wanted);
  }
  const std::uint32_t toggle = state.getFileTypeToggle(type);
  session.checkDaemon();
  if (rule != "show" && toggle != wanted) {
    throw CommandFailure(kNotTaken,
                         "The daemon did not take it: only root and the daemon's own user may change this.");
  }
  if (json) {
    std::cout << jsonLine({{"type", type}, {"rule", wordFor(toggle)}, {"toggle", toggle}}) << '\n';
  } else {
    std::cout << printable(type) << ": " << wordFor(toggle) << '\n';
  }
}

}  // namespace

void addRuleCommands(CLI::App& app, Globals& globals) {
  for (const PathCommand& which : kPathCommands) {
    CLI::App* command = app.add_subcommand(which.name, which.description);
    auto paths = std::make_shared<std::vector<std::string>>();
    command->add_option("PATH", *paths, "Files and folders")->required();
    command->callback([&globals, &which, paths] { changeRules(globals, which, *paths); });
  }

  CLI::App* command = app.add_subcommand("type", "Set or show the rule for a type of file");
  auto extension = std::make_shared<std::string>();
  auto rule = std::make_shared<std::string>();
  command->add_option("EXT", *extension, "The extension, with or without its dot")->required();
  command->add_option("RULE", *rule, "backup, exclude or show")
      ->required()
      ->check(CLI::IsMember({"backup", "exclude", "show"}));
  CLI::Option* json = addFlag(*command, "--json", "Print JSON instead of text");
  command->callback(
      [&globals, extension, rule, json] { changeType(globals, *extension, *rule, !json->empty()); });
}

}  // namespace keldane
