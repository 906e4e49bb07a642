#include <array>
#include <iostream>

#include "Common/calls/DaemonProtocol.h"
#include "cli/Json.h"
#include "clients/core/words/Printable.h"
#include "clients/ctl/commands/Commands.h"
#include "platform/text/Translation.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

struct Rule {
  const char* name;
  std::uint32_t toggle;
};

constexpr std::array<Rule, 3> kRules = {
    {{"backup", kTypeBackup}, {"exclude", kTypeExclude}, {"none", kTypeNone}}};

// A name has at most 255 bytes, and at least one stands before the dot.
constexpr std::size_t kLongestExtension = 253;

std::string wordFor(std::uint32_t toggle) {
  for (const Rule& rule : kRules) {
    if (rule.toggle == toggle) {
      return rule.name;
    }
  }
  return "toggle " + std::to_string(toggle);
}

/// The reason why no file can have this extension; empty when one can. A single dot means files without an
/// extension.
std::string problemWith(std::string_view given) {
  const std::string extension(given.substr(given.starts_with('.') ? 1 : 0));
  const std::string shown = "\"" + printable(extension) + "\"";
  if (given.empty()) {
    return tr("The type is missing; a dot alone stands for files without an extension.");
  }
  if (!isValidUtf8(extension)) {
    return filled(tr("%s is not UTF-8."), shown);
  }
  if (extension.find('/') != std::string::npos) {
    return filled(tr("%s is a path. A type is what stands after the last dot of a name, such as jpg."),
                  shown);
  }
  if (extension.find_first_of("*?") != std::string::npos) {
    return filled(tr("%s is a pattern. A type is what stands after the last dot of a name, such as jpg."),
                  shown);
  }
  if (const std::size_t point = extension.rfind('.'); point != std::string::npos) {
    const std::string last = printable(std::string_view(extension).substr(point + 1));
    return last.empty()
               ? filled(tr("%s has a dot in it. A type is what stands after the last dot of a name."), shown)
               : filled(tr("%s has a dot in it. A type is what stands after the last dot of a name: %s."),
                        shown, last);
  }
  if (extension.size() > kLongestExtension) {
    return filled(tr("No file's name has room for an extension of %s bytes; the longest has %s."),
                  std::to_string(extension.size()), std::to_string(kLongestExtension));
  }
  return {};
}

void changeType(const Globals& globals, const std::string& extension, const std::string& rule, bool json) {
  if (const std::string problem = problemWith(extension); !problem.empty()) {
    throw CommandFailure(kUsage, problem);
  }
  const std::string type = extension.starts_with('.') ? extension : '.' + extension;
  Session session(globals);
  session.requireDaemon();
  BackupState& state = session.state();
  std::optional<std::uint32_t> wanted;
  for (const Rule& known : kRules) {
    if (rule == known.name) {
      wanted = known.toggle;
      state.setFileTypeToggle(type, known.toggle);
    }
  }
  const std::uint32_t toggle = state.getFileTypeToggle(type);
  session.checkDaemon();
  if (wanted && toggle != *wanted) {
    throw session.refusal();
  }
  if (json) {
    std::cout << jsonLine({{"type", type}, {"rule", wordFor(toggle)}, {"toggle", toggle}}) << '\n';
  } else {
    std::cout << printable(type) << ": " << wordFor(toggle) << '\n';
  }
}

}  // namespace

void addTypeCommand(CLI::App& app, Globals& globals) {
  CLI::App* command = app.add_subcommand("type", tr("Set, take back or show the rule for a type of file"));
  auto extension = std::make_shared<std::string>();
  auto rule = std::make_shared<std::string>();
  command
      ->add_option(
          "EXT", *extension,
          tr("What stands after the last dot of a name, with or without the dot; a dot alone for files "
             "without an extension"))
      ->required();
  command->add_option("RULE", *rule, tr("backup, exclude, none or show"))
      ->required()
      ->check(CLI::IsMember({"backup", "exclude", "none", "show"}));
  CLI::Option* json = addFlag(*command, "--json", tr("Print JSON instead of text"));
  command->footer(tr(
      "Capital and small letters are told apart: a rule for jpg says nothing of JPG. \"none\" takes the rule "
      "back."));
  command->callback(
      [&globals, extension, rule, json] { changeType(globals, *extension, *rule, !json->empty()); });
}

}  // namespace keldane
