#include <unistd.h>

#include <chrono>
#include <iostream>

#include "cli/Json.h"
#include "cli/NumberRange.h"
#include "clients/core/Units.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/terminal/Text.h"

namespace keldane {

namespace {

// A daemon writes down what it was told before it answers the next question, so one follows every command;
// it also shows whether the command was taken.
void confirm(Session& session, bool taken) {
  session.checkDaemon();
  if (!taken) {
    throw session.refusal();
  }
}

void pause(const Globals& globals, std::int32_t minutes) {
  Session session(globals);
  session.requireDaemon();
  session.state().setPausedMinutes(minutes);
  if (minutes == 0) {
    session.state().setRecoverMode(false);  // a recovery waits for this, too
  }
  const std::uint32_t left = session.state().pausedMinutes();
  confirm(session, (left > 0) == (minutes > 0));
  std::cout << (left > 0 ? "Paused for " + durationText(std::chrono::minutes(left)) + "."
                         : "The backup goes on.")
            << '\n';
}

struct Switch {
  const char* name;
  const char* description;
  const char* label;
  void (BackupState::*set)(bool) const;
  bool (BackupState::*get)() const;
};

constexpr Switch kSwitches[] = {
    {"automatic", "Back up what is selected without being told, or only what is wanted as soon as possible",
     "Automatic mode", &BackupState::setAutomaticMode, &BackupState::automaticMode},
    {"low-priority", "Leave the machine to everything else", "Low priority mode",
     &BackupState::setLowerPriorityMode, &BackupState::lowerPriorityMode},
};

constexpr Switch kRecoverSwitch = {"recover", "Recover mode", "Recover mode", &BackupState::setRecoverMode,
                                   &BackupState::recoverMode};

void turn(const Globals& globals, const Switch& which, bool on) {
  Session session(globals);
  session.requireDaemon();
  (session.state().*which.set)(on);
  session.state().updateDaemonState();
  confirm(session, (session.state().*which.get)() == on);
  std::cout << which.label << " is " << (on ? "on" : "off") << ".\n";
}

void getProfile(const Globals& globals, const std::string& key, bool json) {
  Session session(globals);
  session.requireDaemon();
  const PropertyList value = session.state().stringValueForProfileKey(key);
  session.checkDaemon();
  if (json) {
    std::cout << jsonLine({{"key", key}, {"value", jsonValue(value)}}) << '\n';
  } else if (value) {
    std::cout << printable(value.description()) << '\n';
  }
  if (!value) {
    throw CommandFailure(kNotTaken, "The profile has no value for " + printable(key) + ".");
  }
}

void setProfile(const Globals& globals, const std::string& key, const std::string& value) {
  Session session(globals);
  session.requireDaemon();
  session.state().setValueForProfileKey(key, PropertyList(value));
  confirm(session, session.state().stringValueForProfileKey(key) == PropertyList(value));
}

void askWhetherToStop() {
  if (isatty(STDIN_FILENO) == 0) {
    throw CommandFailure(kUsage, "Nobody is there to be asked; --yes stops the daemon without asking.");
  }
  std::cout << "Nothing is backed up until the daemon is started again. Stop it? [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  if (answer != "y" && answer != "Y" && answer != "yes") {
    throw CommandFailure(kNotTaken, "The daemon was not stopped.");
  }
}

void stop(const Globals& globals, bool yes) {
  Session session(globals);
  session.requireDaemon();
  if (!yes) {
    askWhetherToStop();
    session.renewDeadline();
  }
  session.state().terminateDaemon();
  // A daemon that ends closes the link; one that may not be told to answers the question.
  session.state().updateDaemonState();
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (session.state().connected() && std::chrono::steady_clock::now() < end) {
    RunLoop::current().run(RunLoop::Seconds(0.05));
  }
  if (session.state().connected()) {
    confirm(session, false);
  }
  std::cout << "The daemon has stopped.\n";
}

}  // namespace

void turnRecoverMode(const Globals& globals, bool on) { turn(globals, kRecoverSwitch, on); }

void addSettingCommands(CLI::App& app, Globals& globals) {
  CLI::App* command = app.add_subcommand("pause", "Let the backup rest for some time");
  auto minutes = std::make_shared<std::int32_t>();
  command->add_option("MINUTES", *minutes, "For how long, from now")
      ->required()
      ->check(numberFrom(1, 525600));
  command->callback([&globals, minutes] { pause(globals, *minutes); });

  command = app.add_subcommand("resume", "End the pause, or the time for looking over a recovery");
  command->callback([&globals] { pause(globals, 0); });

  for (const Switch& which : kSwitches) {
    command = app.add_subcommand(which.name, which.description);
    auto position = std::make_shared<std::string>();
    command->add_option("STATE", *position, "on or off")->required()->check(CLI::IsMember({"on", "off"}));
    command->callback([&globals, &which, position] { turn(globals, which, *position == "on"); });
  }

  CLI::App* profile = app.add_subcommand("profile", "Read and write the values of the daemon's profile");
  profile->require_subcommand(1);
  auto key = std::make_shared<std::string>();
  auto value = std::make_shared<std::string>();
  command = profile->add_subcommand("get", "Print a value");
  command->add_option("KEY", *key, "The value's key")->required();
  CLI::Option* json = addFlag(*command, "--json", "Print JSON instead of text");
  command->callback([&globals, key, json] { getProfile(globals, *key, !json->empty()); });
  command = profile->add_subcommand("set", "Change a value");
  command->add_option("KEY", *key, "The value's key")->required();
  command->add_option("VALUE", *value, "Its new text")->required();
  command->callback([&globals, key, value] { setProfile(globals, *key, *value); });

  command = app.add_subcommand("stop", "End the daemon, after asking");
  CLI::Option* yes = addFlag(*command, "--yes,-y", "Do not ask");
  command->callback([&globals, yes] { stop(globals, !yes->empty()); });
}

}  // namespace keldane
