// The commands about stored files, and about files that could not be stored.
#include <iostream>

#include "cli/Json.h"
#include "cli/NumberRange.h"
#include "clients/core/FolderTree.h"
#include "clients/core/words/Units.h"
#include "clients/ctl/OwnerSession.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/layout/Text.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr std::size_t kVersionColumns = 7, kSizeColumns = 9, kDateColumns = 16;
constexpr std::uint32_t kUsualMost = 1000;

std::string versionColumns(const PropertyList& version) {
  return rightAligned(countText(version["version"].unsignedLongLongValue()), kVersionColumns) + "  " +
         padded(dateText(version["backupDate"]), kDateColumns) + "  " +
         rightAligned(bytesText(version["size"].unsignedLongLongValue()), kSizeColumns);
}

void showVersions(const Globals& globals, const std::string& given, bool json) {
  const std::string path = askablePath(given);
  Session session(globals);
  const PropertyList node = session.knownNode(path);
  const PropertyList versions = node["versions"];
  if (json) {
    std::cout << jsonLine(
                     {{"path", path}, {"versions", jsonValue(versions ? versions : PropertyList::array({}))}})
              << '\n';
  }
  if (versions.count() == 0) {
    throw CommandFailure(kNotTaken,
                         filled(node["isDirectory"].boolValue()
                                    ? tr("No version of %s is in the backup: a folder has none of its own.")
                                    : tr("No version of %s is in the backup."),
                                printable(path)));
  }
  for (std::size_t i = 0; i < versions.count() && !json; ++i) {
    std::cout << versionColumns(versions[i]) << '\n';
  }
}

void findStored(Globals& globals, const std::string& pattern, std::uint32_t most, bool json) {
  OwnerSession session(globals);
  const PropertyList answer = session.ask("find:", {{"pattern", pattern}, {"most", most}});
  const PropertyList entries = answer["entries"];
  if (json) {
    std::cout << jsonLine(jsonValue(answer)) << '\n';
  }
  for (std::size_t i = 0; i < entries.count() && !json; ++i) {
    std::cout << versionColumns(entries[i]) << "  " << printable(entries[i]["path"].string())
              << (entries[i]["deleted"].boolValue() ? std::string("  ") + tr("(deleted here)") : "") << '\n';
  }
  if (entries.count() == 0) {
    globals.status = kNotTaken;
    complain(filled(tr("Nothing in the backup fits %s."), printable(pattern)));
  } else if (answer["more"].boolValue() && !json) {
    complain(tr("There is more in the backup that fits; --most shows more of it."));
  }
}

void showFailures(const Globals& globals, bool json) {
  OwnerSession session(globals);
  const PropertyList answer = session.ask("failures:");
  const PropertyList entries = answer["entries"];
  if (json) {
    std::cout << jsonLine(jsonValue(answer)) << '\n';
    return;
  }
  for (std::size_t i = 0; i < entries.count(); ++i) {
    std::cout << padded(dateText(entries[i]["since"]), kDateColumns) << "  "
              << printable(entries[i]["path"].string()) << ": " << daemonWords(entries[i]["reason"]) << '\n';
  }
  const std::uint64_t count =
      std::max<std::uint64_t>(answer["count"].unsignedLongLongValue(), entries.count());
  if (count == 0) {
    std::cout << tr("Every file that is selected can be backed up.") << '\n';
  } else if (count > entries.count()) {
    std::cout << filled(tr("… and %s more."), filesText(count - entries.count())) << '\n';
  }
}

}  // namespace

void addStoredCommands(CLI::App& app, Globals& globals) {
  CLI::App* command =
      app.add_subcommand("versions", tr("List the versions of a file that are in the backup, newest first"));
  auto path = std::make_shared<std::string>();
  command->add_option("PATH", *path, tr("The file"))->required();
  CLI::Option* json = addFlag(*command, "--json", tr("Print JSON instead of text"));
  command->callback([&globals, path, json] { showVersions(globals, *path, !json->empty()); });

  command = app.add_subcommand("find", tr("Find files in the backup by their names, those deleted here too"));
  auto pattern = std::make_shared<std::string>();
  auto most = std::make_shared<std::uint32_t>(kUsualMost);
  command->add_option("PATTERN", *pattern, tr("A part of the name, or a pattern with * and ?"))->required();
  command->add_option("--most", *most, tr("How many to show (1000)"))
      ->type_name("N")
      ->check(numberFrom(1, UINT32_MAX));
  json = addFlag(*command, "--json", tr("Print JSON instead of text"));
  command->callback(
      [&globals, pattern, most, json] { findStored(globals, *pattern, *most, !json->empty()); });

  command = app.add_subcommand("failures", tr("List the files that could not be backed up, and why"));
  json = addFlag(*command, "--json", tr("Print JSON instead of text"));
  command->callback([&globals, json] { showFailures(globals, !json->empty()); });
}

}  // namespace keldane
