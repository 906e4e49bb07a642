// The commands about the repository, its state, and its settings.
#include <iostream>
#include <optional>

#include "cli/Json.h"
#include "cli/NumberRange.h"
#include "clients/core/words/HealthText.h"
#include "clients/core/words/Units.h"
#include "clients/ctl/OwnerSession.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/layout/Rows.h"
#include "clients/ctl/layout/Text.h"
#include "clients/ctl/terminal/Terminal.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr std::size_t kRepositoryLabel = 17, kSettingLabel = 28;
constexpr std::uint32_t kUsualSample = 100;

/// Prints one row for each value that the daemon reported.
class RepositoryPage {
 public:
  explicit RepositoryPage(PropertyList values) : values_(std::move(values)) {}

  void print() {
    const std::string_view health = values_["health"].string();
    row(tr("Location"), text("location"));
    row(tr("Health"), terminal_.colored(health == "ready" ? Color::green : Color::red, healthText(health)));
    row("", values_["detail"] ? daemonWords(values_["detail"]) : "");
    row(tr("Repository"), text("repositoryId"));
    row(tr("Computer"), text("computerNumber") + (values_["hostName"] ? " (" + text("hostName") + ")" : ""));
    row(tr("Size"), values_["size"] ? bytesText(values_["size"].unsignedLongLongValue()) : "");
    const auto snapshots = static_cast<unsigned long>(number("snapshots"));
    row(tr("Holds"), values_["snapshots"] ? filled(trn("%s in %s snapshot", "%s in %s snapshots", snapshots),
                                                   filesText(number("files")), countText(snapshots))
                                          : "");
    row(tr("Last good backup"), date("lastGoodBackup"));
    row(tr("Last full"), date("lastFull"));
    row(tr("Last check"), withResult(date("lastCheck"), "lastCheckResult"));
    row(tr("Last drill"), drill());
    if (values_["catalogue"].string() == "rebuilding") {
      row(tr("Catalogue"), filled(tr("being made anew, %s of %s snapshots read"),
                                  countText(number("catalogueDone")), countText(number("catalogueTotal"))));
    }
    row(tr("Key"), text("keyFile"));
    rows_.print(terminal_);
  }

 private:
  void row(const std::string& label, const std::string& value) {
    if (!value.empty()) {
      rows_.add(label, value);
    }
  }
  std::uint64_t number(const char* key) const { return values_[key].unsignedLongLongValue(); }
  std::string text(const char* key) const {
    return values_[key] ? printable(values_[key].description()) : "";
  }
  std::string date(const char* key) const {
    const std::string date = dateText(values_[key]);
    return date.empty() ? tr("never") : date;
  }
  std::string withResult(const std::string& date, const char* key) const {
    return text(key).empty() ? date : date + ": " + daemonWords(values_[key]);
  }
  std::string drill() const {
    const std::string result = withResult(date("lastDrill"), "lastDrillResult");
    return values_["lastDrill"]
               ? result + " (" +
                     filled(tr("%s compared, %s by their hashes, %s failed"),
                            filesText(number("drillCompared")), countText(number("drillHashed")),
                            countText(number("drillFailed"))) +
                     ")"
               : result;
  }

  const PropertyList values_;
  const Terminal terminal_;
  Rows rows_{kRepositoryLabel};
};

void showRepository(Globals& globals, bool probe, bool json) {
  OwnerSession session(globals);
  const PropertyList answer =
      probe ? session.askForLong("repository:", {{"probe", true}}) : session.ask("repository:");
  if (json) {
    std::cout << jsonLine(jsonValue(answer)) << '\n';
  } else {
    RepositoryPage(answer).print();
  }
  if (probe && answer["health"].string() != "ready") {
    globals.status = kNotTaken;
  }
}

struct CheckOptions {
  bool data = false, drill = false, json = false;
  std::uint32_t sample = kUsualSample;
};

/// `what` has a place for the path.
void complainOf(const char* what, const PropertyList& paths) {
  for (std::size_t i = 0; i < paths.count(); ++i) {
    complain(filled(what, printable(paths[i].string())));
  }
}

void checkRepository(Globals& globals, const CheckOptions& options) {
  OwnerSession session(globals);
  const Terminal terminal;
  const bool told = terminal.isTerminal() && !options.json;
  if (told) {
    std::cout << tr("Checking; the daemon goes on with it if you leave.") << std::flush;
  }
  PropertyList::Entries request = {{"mode", options.drill ? "drill" : options.data ? "data" : "structure"}};
  if (options.drill) {
    request.emplace_back("sample", options.sample);
  }
  std::optional<CommandFailure> failure;
  PropertyList answer;
  try {
    answer = session.askForLong("check:", std::move(request));
  } catch (const CommandFailure& thrown) {
    failure = thrown;
  }
  if (told) {
    std::cout << terminal.restartLine() << std::flush;
  }
  if (failure) {
    throw CommandFailure(*failure);
  }
  if (options.json) {
    std::cout << jsonLine(jsonValue(answer)) << '\n';
  } else {
    std::cout << sentenceFrom(answer["result"] ? answer["result"] : PropertyList(tr("The check is done")))
              << '\n';
    if (options.drill) {
      std::cout << filled(tr("%s compared byte by byte, %s by their hashes."),
                          filesText(answer["compared"].unsignedLongLongValue()),
                          countText(answer["hashed"].unsignedLongLongValue()))
                << '\n';
    }
    std::cout << std::flush;
  }
  complainOf(tr("%s is damaged in the backup."), answer["damagedFiles"]);
  complainOf(tr("%s did not come back as it was stored."), answer["failed"]);
  if (!answer["ok"].boolValue()) {
    globals.status = kNotTaken;
  }
}

struct KeepingOptions {
  std::optional<std::uint32_t> keepDeletedDays, quotaMegabytes, alertDays, restBelowPercent;
  std::string restOnMetered, restInPowerSaver;  // "on", "off", or empty
};

std::string daysText(std::uint64_t days) {
  return filled(trn("%s day", "%s days", static_cast<unsigned long>(days)), countText(days));
}

void changeKeeping(const Globals& globals, const KeepingOptions& options, bool json) {
  OwnerSession session(globals);
  PropertyList::Entries request;
  const auto add = [&](const char* key, const std::optional<std::uint32_t>& value) {
    if (value) {
      request.emplace_back(key, *value);
    }
  };
  add("keepDeletedDays", options.keepDeletedDays);
  add("quotaMB", options.quotaMegabytes);
  add("alertDays", options.alertDays);
  add("restBelowPercent", options.restBelowPercent);
  const auto addSwitch = [&](const char* key, const std::string& position) {
    if (!position.empty()) {
      request.emplace_back(key, position == "on" ? 1 : 0);
    }
  };
  addSwitch("restOnMetered", options.restOnMetered);
  addSwitch("restInPowerSaver", options.restInPowerSaver);
  const PropertyList answer = session.ask("settings:", std::move(request));
  if (json) {
    std::cout << jsonLine(jsonValue(answer)) << '\n';
    return;
  }
  const std::uint64_t quota = answer["quotaMB"].unsignedLongLongValue();
  Rows rows(kSettingLabel);
  rows.add(tr("Deleted files are kept for"), daysText(answer["keepDeletedDays"].unsignedLongLongValue()));
  rows.add(tr("The repository may take"), quota == 0 ? tr("as much as there is") : bytesText(quota << 20));
  rows.add(tr("An alert comes after"),
           filled(tr("%s without a good backup"), daysText(answer["alertDays"].unsignedLongLongValue())));
  if (const PropertyList percent = answer["restBelowPercent"]) {  // older daemons never rest
    const auto yesNo = [&](const char* key) { return answer[key].boolValue() ? tr("yes") : tr("no"); };
    rows.add(tr("Rests on battery below"), percent.unsignedIntValue() == 0
                                               ? tr("never")
                                               : std::to_string(percent.unsignedIntValue()) + " %");
    rows.add(tr("Rests on a metered network"), yesNo("restOnMetered"));
    rows.add(tr("Rests in power-saver mode"), yesNo("restInPowerSaver"));
  }
  rows.print(Terminal());
}

}  // namespace

void addRepositoryCommands(CLI::App& app, Globals& globals) {
  CLI::App* command = app.add_subcommand("repository", tr("Show where the backup is kept and how it stands"));
  CLI::Option* probe = addFlag(*command, "--probe", tr("Ask the repository itself, now"));
  CLI::Option* json = addFlag(*command, "--json", tr("Print JSON instead of text"));
  addMoveCommand(*command, globals);
  command->callback([&globals, command, probe, json] {
    if (command->get_subcommands().empty()) {
      showRepository(globals, !probe->empty(), !json->empty());
    }
  });

  command = app.add_subcommand("check", tr("Check that what is stored is whole"));
  auto check = std::make_shared<CheckOptions>();
  CLI::Option_group* mode = command->add_option_group(tr("How much"));
  mode->add_flag("--data", check->data, tr("Read everything that is stored"));
  mode->add_flag("--drill", check->drill, tr("Restore some files and compare them"));
  mode->require_option(0, 1);
  command->add_option("--sample", check->sample, tr("Files of a drill (100)"))
      ->type_name("N")
      ->check(numberFrom(1, UINT32_MAX));
  command->add_flag("--json", check->json, tr("Print JSON instead of text"));
  command->callback([&globals, check] { checkRepository(globals, *check); });

  command = app.add_subcommand("settings",
                               tr("Show or change how long and how much is kept, and when the backup rests"));
  auto keeping = std::make_shared<KeepingOptions>();
  command->add_option("--keep-deleted", keeping->keepDeletedDays, tr("Keep what is deleted here for so long"))
      ->type_name("DAYS");
  command
      ->add_option("--quota", keeping->quotaMegabytes,
                   tr("The most that the repository may take; 0 for no limit"))
      ->type_name("MB");
  command
      ->add_option("--alert-after", keeping->alertDays, tr("Tell when there was no good backup for so long"))
      ->type_name("DAYS");
  command
      ->add_option("--rest-below", keeping->restBelowPercent,
                   tr("On battery, rest below so much of its charge; 0 for never"))
      ->type_name("PERCENT")
      ->check(numberFrom(0, 100));
  command
      ->add_option(
          "--rest-on-metered", keeping->restOnMetered,
          tr("Rest on a network that is paid for by what goes over it, unless the repository is on this "
             "computer: on or off"))
      ->type_name("STATE")
      ->check(CLI::IsMember({"on", "off"}));
  command
      ->add_option("--rest-in-power-saver", keeping->restInPowerSaver,
                   tr("Rest while the computer is set to save power: on or off"))
      ->type_name("STATE")
      ->check(CLI::IsMember({"on", "off"}));
  json = addFlag(*command, "--json", tr("Print JSON instead of text"));
  command->callback([&globals, keeping, json] { changeKeeping(globals, *keeping, !json->empty()); });
}

}  // namespace keldane
