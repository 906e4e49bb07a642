// keldane-menu, a file manager without a window. It loads a contextual-menu plug-in as a graphical host
// would, shows the menu, and chooses commands from it.
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <sstream>

#include "cli/AbsolutePath.h"
#include "cli/Deadline.h"
#include "cli/Json.h"
#include "hosts/cli/MenuOutput.h"
#include "hosts/cli/ScriptRunner.h"
#include "hosts/core/MenuHost.h"
#include "platform/host/Host.h"

namespace keldane {

namespace {

enum ExitStatus { kAnswered = 0, kErrorStatus = 1, kUsage = 2, kNotLoaded = 3, kDeadlinePassed = 4 };

struct Options {
  std::string bundle;
  bool json = false;
  std::string descriptor = "furl";
  bool list = false;
  std::string host = "MACS/FNDR";
  bool noAttributes = false;
  double deadline = 0;
  std::string command;
  std::vector<std::string> paths;
  std::string scriptFile;
};

int fail(ExitStatus status, const std::string& sentence) {
  std::cerr << "keldane-menu: " << sentence << std::endl;
  return status;
}

bool declareHost(const Options& options) {
  const std::size_t slash = options.host.find('/');
  const std::optional<OSType> signature = fourCharCodeNamed(options.host.substr(0, slash));
  const std::optional<OSType> type =
      slash == std::string::npos ? std::nullopt : fourCharCodeNamed(options.host.substr(slash + 1));
  if (!signature || !type) {
    return false;
  }
  Host& host = Host::shared();
  host.declareMainThread();
  host.setProcess(*signature, *type);
  host.setContextualMenuAttributes(options.noAttributes ? 0
                                                        : gestaltContextualMenuHasAttributeAndModifierKeys);
  return true;
}

void print(const Options& options, const MenuHost::Examination& examination,
           std::optional<OSStatus> selected) {
  if (options.json) {
    const nlohmann::ordered_json answer = {
        {"status", examination.status},
        {"menu", menuJson(examination.menu)},
        {"selected", selected ? nlohmann::ordered_json(*selected) : nlohmann::ordered_json()}};
    std::cout << jsonLine(answer) << std::endl;
    return;
  }
  if (examination.status != kNoErr) {
    std::cout << "status " << examination.status << std::endl;
  }
  if (examination.menu.empty()) {
    std::cerr << "no menu" << std::endl;
  }
  std::cout << menuText(examination.menu) << std::flush;
}

int showOrChoose(const Options& options, const Selection& selection, std::optional<std::uint32_t> command) {
  std::ostringstream late;
  late << "keldane-menu: the plug-in did not answer within " << options.deadline << " seconds.";
  const Deadline deadline(options.deadline, late.str(), kDeadlinePassed);
  MenuHost host;
  std::string error;
  if (!host.load(options.bundle, &error)) {
    return fail(kNotLoaded, error);
  }
  const MenuHost::Examination examination = host.examine(selection);
  const std::optional<OSStatus> selected =
      command ? std::optional(host.select(selection, *command)) : std::nullopt;
  host.cleanup();
  print(options, examination, selected);
  return examination.status == kNoErr && (!selected || *selected == kNoErr) ? kAnswered : kErrorStatus;
}

int runScript(const Options& options, Selection defaults) {
  ScriptRunner runner(options.bundle, std::move(defaults));
  if (options.scriptFile.empty()) {
    return runner.run(std::cin, std::cout);
  }
  std::ifstream file(options.scriptFile);
  if (!file) {
    return fail(kUsage, options.scriptFile + " cannot be read.");
  }
  return runner.run(file, std::cout);
}

void declareOptions(CLI::App& app, Options& options) {
  app.set_version_flag("--version", "keldane-menu " KELDANE_VERSION);
  app.add_option("--bundle", options.bundle, "The plug-in bundle; else the first that is installed")
      ->type_name("DIR");
  app.add_flag("--json", options.json, "Print JSON instead of text");
  app.add_option("--descriptor", options.descriptor,
                 "How the selection is handed over: furl, alias, fsref or text")
      ->type_name("FORM")
      ->check(CLI::IsMember({"furl", "alias", "fsref", "text"}));
  app.add_flag("--list", options.list, "Make a list of one path too");
  app.add_option("--host", options.host, "The identity the plug-in is shown, two four-character codes")
      ->type_name("SIGN/TYPE");
  app.add_flag("--no-attributes", options.noAttributes, "A host whose menus have no item attributes");
  app.add_option("--deadline", options.deadline, "Give up after this time")
      ->type_name("SECONDS")
      ->check(CLI::PositiveNumber);
}

int run(int argc, char** argv) {
  Options options;
  CLI::App app(
      "Shows what a contextual-menu plug-in offers for files, and chooses from it, without a window.\n\n"
      "COMMAND is backup, exclude, asap, type-backup, type-exclude, preferences, a four-character code such "
      "as\n"
      "'r2d<', or a number (decimal or 0x...).\n\n"
      "Exit status: 0 the plug-in answered, 1 it answered with an error status, 2 usage, 3 the bundle cannot "
      "be\n"
      "loaded, 4 the deadline passed.",
      "keldane-menu");
  declareOptions(app, options);
  app.require_subcommand(1);
  app.fallthrough();

  CLI::App* show = app.add_subcommand("show", "Examine the selection and print the menu");
  show->add_option("PATH", options.paths, "The selected files and folders")->required();
  CLI::App* choose = app.add_subcommand("choose", "The same, then choose an item before the menu closes");
  choose->add_option("COMMAND", options.command, "What to choose")->required();
  choose->add_option("PATH", options.paths, "The selected files and folders")->required();
  CLI::App* script = app.add_subcommand("script", "Run steps, a JSON object a line, against one instance");
  script->add_option("FILE", options.scriptFile, "The steps; standard input when absent");

  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& done) {
    return app.exit(done);
  } catch (const CLI::ParseError& error) {
    return fail(kUsage, std::string(error.what()) + " (keldane-menu --help tells more)");
  }

  if (!declareHost(options)) {
    return fail(kUsage,
                "--host takes two four-character codes, like MACS/FNDR, and not " + options.host + ".");
  }
  Selection selection;
  selection.form = *descriptorFormNamed(options.descriptor);
  selection.asList = options.list;
  if (*script) {
    return runScript(options, std::move(selection));
  }
  std::optional<std::uint32_t> command;
  if (*choose) {
    command = commandNamed(options.command);
    if (!command) {
      return fail(kUsage, options.command + " is no command (keldane-menu --help lists them).");
    }
  }
  for (const std::string& path : options.paths) {
    selection.paths.push_back(absolutePath(path));
  }
  return showOrChoose(options, selection, command);
}

}  // namespace

}  // namespace keldane

int main(int argc, char** argv) {
  try {
    return keldane::run(argc, argv);
  } catch (const std::exception& error) {
    return keldane::fail(keldane::kErrorStatus, error.what());
  }
}
