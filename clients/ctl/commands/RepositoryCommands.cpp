// Where the backup is kept, how it stands, and what it is kept by.
#include <iostream>
#include <optional>

#include "cli/Json.h"
#include "cli/NumberRange.h"
#include "clients/core/HealthText.h"
#include "clients/core/Units.h"
#include "clients/ctl/OwnerSession.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/terminal/Terminal.h"
#include "clients/ctl/terminal/Text.h"

namespace keldane {

namespace {

constexpr std::size_t kRepositoryLabel = 16, kSettingLabel = 28;
constexpr std::uint32_t kUsualSample = 100;

/// A row a value that the daemon told.
class RepositoryPage {
 public:
  explicit RepositoryPage(PropertyList values) : values_(std::move(values)) {}

  void print() const {
    const std::string_view health = values_["health"].string();
    row("Location", text("location"));
    row("Health",
        terminal_.colored(health == "ready" ? Color::green : Color::red, printable(healthText(health))));
    row("", text("detail"));
    row("Repository", text("repositoryId"));
    row("Computer", text("computerNumber") + (values_["hostName"] ? " (" + text("hostName") + ")" : ""));
    row("Size", values_["size"] ? bytesText(values_["size"].unsignedLongLongValue()) : "");
    row("Holds", values_["snapshots"] ? filesText(number("files")) + " in " + countText(number("snapshots")) +
                                            (number("snapshots") == 1 ? " snapshot" : " snapshots")
                                      : "");
    row("Last good backup", date("lastGoodBackup"));
    row("Last full", date("lastFull"));
    row("Last check", withResult(date("lastCheck"), "lastCheckResult"));
    row("Last drill", drill());
    if (values_["catalogue"].string() == "rebuilding") {
      row("Catalogue", "being made anew, " + countText(number("catalogueDone")) + " of " +
                           countText(number("catalogueTotal")) + " snapshots read");
    }
    row("Key", text("keyFile"));
  }

 private:
  void row(const std::string& label, const std::string& value) const {
    if (!value.empty()) {
      std::cout << terminal_.bold(padded(label, kRepositoryLabel)) << ' ' << value << '\n';
    }
  }
  std::uint64_t number(const char* key) const { return values_[key].unsignedLongLongValue(); }
  std::string text(const char* key) const {
    return values_[key] ? printable(values_[key].description()) : "";
  }
  std::string date(const char* key) const {
    const std::string date = dateText(values_[key]);
    return date.empty() ? "never" : date;
  }
  std::string withResult(const std::string& date, const char* key) const {
    return text(key).empty() ? date : date + ": " + text(key);
  }
  std::string drill() const {
    const std::string result = withResult(date("lastDrill"), "lastDrillResult");
    return values_["lastDrill"] ? result + " (" + filesText(number("drillCompared")) + " compared, " +
                                      countText(number("drillHashed")) + " by their hashes, " +
                                      countText(number("drillFailed")) + " failed)"
                                : result;
  }

  const PropertyList values_;
  const Terminal terminal_;
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

void complainOf(const char* what, const PropertyList& paths) {
  for (std::size_t i = 0; i < paths.count(); ++i) {
    complain(printable(paths[i].string()) + what);
  }
}

void checkRepository(Globals& globals, const CheckOptions& options) {
  OwnerSession session(globals);
  const Terminal terminal;
  const bool told = terminal.isTerminal() && !options.json;
  if (told) {
    std::cout << "Checking; the daemon goes on with it if you leave." << std::flush;
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
    std::cout << sentenceFrom(answer["result"] ? answer["result"] : PropertyList("The check is done"))
              << '\n';
    if (options.drill) {
      std::cout << filesText(answer["compared"].unsignedLongLongValue()) << " compared byte by byte, "
                << countText(answer["hashed"].unsignedLongLongValue()) << " by their hashes.\n";
    }
    std::cout << std::flush;
  }
  complainOf(" is damaged in the backup.", answer["damagedFiles"]);
  complainOf(" did not come back as it was stored.", answer["failed"]);
  if (!answer["ok"].boolValue()) {
    globals.status = kNotTaken;
  }
}

struct KeepingOptions {
  std::optional<std::uint32_t> keepDeletedDays, quotaMegabytes, alertDays, restBelowPercent;
  std::string restOnMetered, restInPowerSaver;  // "on", "off", or empty
};

std::string daysText(std::uint64_t days) { return countText(days) + (days == 1 ? " day" : " days"); }

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
  std::cout << padded("Deleted files are kept for", kSettingLabel)
            << daysText(answer["keepDeletedDays"].unsignedLongLongValue()) << '\n'
            << padded("The repository may take", kSettingLabel)
            << (quota == 0 ? "as much as there is" : bytesText(quota << 20)) << '\n'
            << padded("An alert comes after", kSettingLabel)
            << daysText(answer["alertDays"].unsignedLongLongValue()) << " without a good backup\n";
  if (const PropertyList percent = answer["restBelowPercent"]) {  // older daemons never rest
    const auto yesNo = [&](const char* key) { return answer[key].boolValue() ? "yes\n" : "no\n"; };
    std::cout << padded("Rests on battery below", kSettingLabel)
              << (percent.unsignedIntValue() == 0 ? "never"
                                                  : std::to_string(percent.unsignedIntValue()) + " %")
              << '\n'
              << padded("Rests on a metered network", kSettingLabel) << yesNo("restOnMetered")
              << padded("Rests in power-saver mode", kSettingLabel) << yesNo("restInPowerSaver");
  }
}

}  // namespace

void addRepositoryCommands(CLI::App& app, Globals& globals) {
  CLI::App* command = app.add_subcommand("repository", "Show where the backup is kept and how it stands");
  CLI::Option* probe = addFlag(*command, "--probe", "Ask the repository itself, now");
  CLI::Option* json = addFlag(*command, "--json", "Print JSON instead of text");
  addMoveCommand(*command, globals);
  command->callback([&globals, command, probe, json] {
    if (command->get_subcommands().empty()) {
      showRepository(globals, !probe->empty(), !json->empty());
    }
  });

  command = app.add_subcommand("check", "Check that what is stored is whole");
  auto check = std::make_shared<CheckOptions>();
  CLI::Option_group* mode = command->add_option_group("How much");
  mode->add_flag("--data", check->data, "Read everything that is stored");
  mode->add_flag("--drill", check->drill, "Restore some files and compare them");
  mode->require_option(0, 1);
  command->add_option("--sample", check->sample, "Files of a drill (100)")
      ->type_name("N")
      ->check(numberFrom(1, UINT32_MAX));
  command->add_flag("--json", check->json, "Print JSON instead of text");
  command->callback([&globals, check] { checkRepository(globals, *check); });

  command = app.add_subcommand("settings",
                               "Show or change how long and how much is kept, and when the backup rests");
  auto keeping = std::make_shared<KeepingOptions>();
  command->add_option("--keep-deleted", keeping->keepDeletedDays, "Keep what is deleted here for so long")
      ->type_name("DAYS");
  command
      ->add_option("--quota", keeping->quotaMegabytes,
                   "The most that the repository may take; 0 for no limit")
      ->type_name("MB");
  command->add_option("--alert-after", keeping->alertDays, "Tell when there was no good backup for so long")
      ->type_name("DAYS");
  command
      ->add_option("--rest-below", keeping->restBelowPercent,
                   "On battery, rest below so much of its charge; 0 for never")
      ->type_name("PERCENT")
      ->check(numberFrom(0, 100));
  command
      ->add_option(
          "--rest-on-metered", keeping->restOnMetered,
          "Rest on a network that is paid for by what goes over it, unless the repository is on this "
          "computer: on or off")
      ->type_name("STATE")
      ->check(CLI::IsMember({"on", "off"}));
  command
      ->add_option("--rest-in-power-saver", keeping->restInPowerSaver,
                   "Rest while the computer is set to save power: on or off")
      ->type_name("STATE")
      ->check(CLI::IsMember({"on", "off"}));
  json = addFlag(*command, "--json", "Print JSON instead of text");
  command->callback([&globals, keeping, json] { changeKeeping(globals, *keeping, !json->empty()); });
}

}  // namespace keldane
