#include <unistd.h>

#include <chrono>
#include <iostream>

#include "cli/Json.h"
#include "cli/NumberRange.h"
#include "clients/core/words/Units.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/layout/Text.h"
#include "clients/ctl/terminal/Secret.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

// A daemon saves a setting before it answers the next question, so a question follows each command; its
// answer also shows whether the command was accepted.
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
    session.state().setRecoverMode(false);  // a recovery also waits for a resume
  }
  const std::uint32_t left = session.state().pausedMinutes();
  confirm(session, (left > 0) == (minutes > 0));
  std::cout << (left > 0 ? filled(tr("Paused for %s."), durationText(std::chrono::minutes(left)))
                         : tr("The backup goes on."))
            << '\n';
}

struct Switch {
  const char* name;
  const char* description;
  const char* onSentence;
  const char* offSentence;
  void (BackupState::*set)(bool) const;
  bool (BackupState::*get)() const;
};

constexpr Switch kSwitches[] = {
    {"automatic",
     marked("Back up what is selected without being told, or only what is wanted as soon as possible"),
     marked("Automatic mode is on."), marked("Automatic mode is off."), &BackupState::setAutomaticMode,
     &BackupState::automaticMode},
    {"low-priority", marked("Leave the machine to everything else"), marked("Low priority mode is on."),
     marked("Low priority mode is off."), &BackupState::setLowerPriorityMode,
     &BackupState::lowerPriorityMode},
};

constexpr Switch kRecoverSwitch = {"recover",
                                   "",
                                   marked("Recover mode is on."),
                                   marked("Recover mode is off."),
                                   &BackupState::setRecoverMode,
                                   &BackupState::recoverMode};

void turn(const Globals& globals, const Switch& which, bool on) {
  Session session(globals);
  session.requireDaemon();
  (session.state().*which.set)(on);
  session.state().updateDaemonState();
  confirm(session, (session.state().*which.get)() == on);
  std::cout << tr(on ? which.onSentence : which.offSentence) << '\n';
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
    throw CommandFailure(kNotTaken, filled(tr("The profile has no value for %s."), printable(key)));
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
    throw CommandFailure(kUsage, tr("Nobody is there to be asked; --yes stops the daemon without asking."));
  }
  if (!askWhether(tr("Nothing is backed up until the daemon is started again. Stop it?"), false)) {
    throw CommandFailure(kNotTaken, tr("The daemon was not stopped."));
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
  // A daemon that obeys closes the link. A daemon that refuses answers the question.
  session.state().updateDaemonState();
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (session.state().connected() && std::chrono::steady_clock::now() < end) {
    RunLoop::current().run(RunLoop::Seconds(0.05));
  }
  if (session.state().connected()) {
    confirm(session, false);
  }
  std::cout << tr("The daemon has stopped.") << '\n';
}

}  // namespace

void turnRecoverMode(const Globals& globals, bool on) { turn(globals, kRecoverSwitch, on); }

void addSettingCommands(CLI::App& app, Globals& globals) {
  CLI::App* command = app.add_subcommand("pause", tr("Let the backup rest for some time"));
  auto minutes = std::make_shared<std::int32_t>();
  command->add_option("MINUTES", *minutes, tr("For how long, from now"))
      ->required()
      ->check(numberFrom(1, 525600));
  command->callback([&globals, minutes] { pause(globals, *minutes); });

  command = app.add_subcommand("resume", tr("End the pause, or the time for looking over a recovery"));
  command->callback([&globals] { pause(globals, 0); });

  for (const Switch& which : kSwitches) {
    command = app.add_subcommand(which.name, tr(which.description));
    auto position = std::make_shared<std::string>();
    command->add_option("STATE", *position, tr("on or off"))->required()->check(CLI::IsMember({"on", "off"}));
    command->callback([&globals, &which, position] { turn(globals, which, *position == "on"); });
  }

  CLI::App* profile = app.add_subcommand("profile", tr("Read and write the values of the daemon's profile"));
  profile->require_subcommand(1);
  auto key = std::make_shared<std::string>();
  auto value = std::make_shared<std::string>();
  command = profile->add_subcommand("get", tr("Print a value"));
  command->add_option("KEY", *key, tr("The value's key"))->required();
  CLI::Option* json = addFlag(*command, "--json", tr("Print JSON instead of text"));
  command->callback([&globals, key, json] { getProfile(globals, *key, !json->empty()); });
  command = profile->add_subcommand("set", tr("Change a value"));
  command->add_option("KEY", *key, tr("The value's key"))->required();
  command->add_option("VALUE", *value, tr("Its new text"))->required();
  command->callback([&globals, key, value] { setProfile(globals, *key, *value); });

  command = app.add_subcommand("stop", tr("End the daemon, after asking"));
  CLI::Option* yes = addFlag(*command, "--yes,-y", tr("Do not ask"));
  command->callback([&globals, yes] { stop(globals, !yes->empty()); });
}

}  // namespace keldane
