// The commands config and metrics, for administrators of many computers.
#include <unistd.h>

#include <chrono>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>

#include "cli/AbsolutePath.h"
#include "cli/Json.h"
#include "clients/core/words/Printable.h"
#include "clients/ctl/OwnerSession.h"
#include "clients/ctl/administration/FileManagerCommand.h"
#include "clients/ctl/administration/Metrics.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/layout/Text.h"
#include "config/SystemConfig.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kNameColumns = 22;

void checkConfig(Globals& globals, const std::string& file) {
  std::error_code error;
  if (!fs::exists(file, error)) {
    throw CommandFailure(kNotTaken, filled(tr("There is no file %s."), printable(file)));
  }
  const SystemConfig config = SystemConfig::read(file);
  for (const ConfigProblem& problem : config.problems()) {
    complain((problem.line == 0 ? printable(file)
                                : filled(tr("%s, line %s"), printable(file), std::to_string(problem.line))) +
             ": " + printable(problem.sentence));
  }
  if (config.problems().empty()) {
    std::cout << filled(tr("%s is right."), printable(file)) << '\n';
  } else {
    globals.status = kNotTaken;
  }
}

/// Calls `row` for each value with its name, and with whether it is fixed.
template <class Row>
void visitValues(const SystemConfig& config, const Row& row) {
  for (const std::string& name : SystemConfig::names()) {
    for (const bool fixed : {true, false}) {
      for (const std::string& path : config.list(name, fixed)) {
        row(name, path, fixed);
      }
    }
    if (const std::optional<ConfigValue> value = config.value(name)) {
      row(name, value->text, value->fixed);
    }
  }
}

void showConfig(const std::string& file, bool json) {
  const SystemConfig config = SystemConfig::read(file);
  auto entries = nlohmann::ordered_json::array();
  visitValues(config, [&](const std::string& name, const std::string& text, bool fixed) {
    if (json) {
      entries.push_back({{"name", name}, {"value", text}, {"fixed", fixed}});
    } else {
      std::cout << padded(name, kNameColumns) << ' ' << printable(text)
                << (fixed ? std::string("  ") + tr("(fixed)") : "") << '\n';
    }
  });
  if (json) {
    std::cout << jsonLine(entries) << '\n';
  }
  for (const ConfigProblem& problem : config.problems()) {
    complain(filled(tr("line %s"), std::to_string(problem.line)) + ": " + printable(problem.sentence));
  }
}

/// A reader of the file sees the old text or the new, never a part.
void writeWhole(const std::string& file, const std::string& text) {
  const fs::path target = absolutePath(file);
  const fs::path made =
      target.parent_path() / ("." + target.filename().string() + "." + std::to_string(getpid()));
  std::ofstream stream(made, std::ios::binary | std::ios::trunc);
  stream << text;
  stream.close();
  std::error_code error;
  if (stream) {
    fs::rename(made, target, error);
  }
  if (!stream || error) {
    std::error_code ignored;
    fs::remove(made, ignored);
    throw CommandFailure(kNotTaken, filled(tr("%s cannot be written."), printable(file)));
  }
}

void printMetrics(const Globals& globals, const std::string& file) {
  PropertyList repository, state;
  std::exception_ptr failure;
  try {
    OwnerSession owner(globals);
    repository = owner.ask("repository:");
    Session session(globals);
    session.requireDaemon();
    session.state().updateDaemonState();
    session.checkDaemon();
    state = session.state().daemonState();
  } catch (const CommandFailure&) {
    failure = std::current_exception();
    repository = PropertyList();
  }
  const double now =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  const std::string text = metricsText(repository, state, now);
  if (file.empty()) {
    std::cout << text;
  } else {
    writeWhole(file, text);
  }
  if (failure) {
    std::rethrow_exception(failure);
  }
}

}  // namespace

void addAdministrationCommands(CLI::App& app, Globals& globals) {
  CLI::App* config = app.add_subcommand(
      "config", tr("What the administrator wants (keldane.conf), and what file managers show"));
  config->require_subcommand(1);
  auto file = std::make_shared<std::string>(SystemConfig::kUsualFile);
  CLI::App* command = config->add_subcommand("check", tr("Say what is wrong with the file"));
  command->add_option("FILE", *file, tr("Another file"));
  command->callback([&globals, file] { checkConfig(globals, *file); });
  command = config->add_subcommand("show", tr("Show what the file comes to for you"));
  command->add_option("FILE", *file, tr("Another file"));
  CLI::Option* json = addFlag(*command, "--json", tr("Print JSON instead of text"));
  command->callback([file, json] { showConfig(*file, !json->empty()); });
  addFileManagerCommand(*config);

  command = app.add_subcommand(
      "metrics", tr("Print the daemon's standing as OpenMetrics text, for a monitoring system"));
  auto output = std::make_shared<std::string>();
  command->add_option("--output", *output, tr("Put it into this file, whole or not at all"))
      ->type_name("FILE");
  command->callback([&globals, output] { printMetrics(globals, *output); });
}

}  // namespace keldane
