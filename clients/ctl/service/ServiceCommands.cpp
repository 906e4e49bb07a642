// The commands service and log: the daemon as a service of the user's session.
#include <filesystem>
#include <iostream>

#include "cli/Json.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/service/AutostartService.h"
#include "clients/ctl/service/Program.h"
#include "clients/ctl/service/ServiceManager.h"
#include "clients/ctl/service/Supervisor.h"
#include "clients/ctl/service/SystemdService.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

namespace fs = std::filesystem;

constexpr unsigned kUsualLines = 100;

void showStanding(Globals& globals, bool json) {
  const std::unique_ptr<ServiceManager> manager = serviceManager();
  const ServiceStanding standing = manager->standing();
  if (json) {
    std::cout << jsonLine({{"manager", manager->name()},
                           {"running", standing.running},
                           {"starting", standing.starting},
                           {"enabled", standing.enabled},
                           {"process", standing.process}})
              << '\n';
  } else {
    const std::string process =
        standing.process > 0 ? " " + filled(tr("(process %s)"), std::to_string(standing.process)) : "";
    std::cout << (standing.running    ? tr("The daemon runs")
                  : standing.starting ? tr("The daemon is about to be started")
                                      : tr("The daemon does not run"))
              << process << ".\n"
              << filled(standing.enabled ? tr("It is started at login, by %s.")
                                         : tr("It is not started at login, by %s."),
                        manager->name())
              << '\n';
  }
  globals.status = standing.running ? kDone : kNotTaken;
}

void start() {
  const std::unique_ptr<ServiceManager> manager = serviceManager();
  manager->start();
  std::cout << tr("The daemon runs") << ".\n";
}

void stop() {
  const std::unique_ptr<ServiceManager> manager = serviceManager();
  manager->stop();
  std::cout << tr("The daemon does not run. Nothing is backed up until it is started again.") << '\n';
}

void turn(bool on) {
  const std::unique_ptr<ServiceManager> manager = serviceManager();
  on ? manager->enable() : manager->disable();
  const bool isSo = manager->standing().running == on;
  std::cout << (on && isSo ? tr("The daemon is started at login from now on.")
                : on
                    ? tr("The daemon is started at login from now on; \"keldanectl service start\" starts it "
                         "now.")
                : isSo
                    ? tr("The daemon is not started at login from now on.")
                    : tr("The daemon is not started at login from now on; \"keldanectl service stop\" ends "
                         "the one that runs."))
            << '\n';
}

/// The daemon beside this program; without one, the daemon that PATH has.
std::string daemonProgram(const fs::path& self) {
  const fs::path beside = self.parent_path() / "keldaned";
  std::error_code error;
  return fs::exists(beside, error) ? beside.string() : "keldaned";
}

void supervise() {
  if (isUnderSystemd()) {
    return;  // systemd itself starts the daemon
  }
  std::error_code error;
  std::string self = fs::read_symlink("/proc/self/exe", error);
  Supervisor::End end = Supervisor::End::done;
  {
    SupervisorLock lock;
    if (!lock.take()) {
      throw CommandFailure(kNotTaken, tr("Another process keeps the daemon running already."));
    }
    end = Supervisor(daemonProgram(self)).run();
  }
  if (end == Supervisor::End::renew) {
    becomeProgram({self, "service", "supervise"});
  }
}

}  // namespace

std::unique_ptr<ServiceManager> serviceManager() {
  if (isUnderSystemd()) {
    return std::make_unique<SystemdService>();
  }
  return std::make_unique<AutostartService>();
}

void addServiceCommands(CLI::App& app, Globals& globals) {
  CLI::App* service =
      app.add_subcommand("service", tr("Start and stop the daemon of this user, now or at each login"));
  service->require_subcommand(1);
  CLI::App* command =
      service->add_subcommand("status", tr("Show whether it runs; the exit status is 1 when it does not"));
  CLI::Option* json = addFlag(*command, "--json", tr("Print JSON instead of text"));
  command->callback([&globals, json] { showStanding(globals, !json->empty()); });
  service->add_subcommand("start", tr("Start it now"))->callback(start);
  service->add_subcommand("stop", tr("End it now"))->callback(stop);
  service->add_subcommand("enable", tr("Start it at each login"))->callback([] { turn(true); });
  service->add_subcommand("disable", tr("Do not start it at login any more"))->callback([] { turn(false); });
  service
      ->add_subcommand("supervise",
                       tr("Keep it running in a session without systemd; for the autostart entry"))
      ->callback(supervise);

  command = app.add_subcommand("log", tr("Show what the daemon of this user has logged"));
  auto lines = std::make_shared<unsigned>(kUsualLines);
  command->add_option("-n,--lines", *lines, tr("How many of the last lines (100)"))->type_name("N");
  CLI::Option* follow = addFlag(*command, "-f,--follow", tr("Then show each new line"));
  command->callback([lines, follow] { serviceManager()->showLog(*lines, !follow->empty()); });
}

}  // namespace keldane
