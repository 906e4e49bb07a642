#include "clients/ctl/service/SystemdService.h"

#include <charconv>
#include <map>
#include <sstream>

#include "clients/ctl/Session.h"
#include "clients/ctl/service/Program.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr char kUnit[] = "keldaned.service";

/// The unit's properties; none when no user instance of systemd answers.
std::map<std::string, std::string> properties() {
  const ProgramEnd end = runProgram(
      {"systemctl", "--user", "show", "--property=LoadState,ActiveState,UnitFileState,MainPID", kUnit}, true);
  std::map<std::string, std::string> values;
  std::istringstream lines(end.status == 0 ? end.output : std::string());
  for (std::string line; std::getline(lines, line);) {
    const std::size_t equals = line.find('=');
    if (equals != std::string::npos) {
      values[line.substr(0, equals)] = line.substr(equals + 1);
    }
  }
  return values;
}

/// Runs a command of systemctl, which reports its own failures on standard error.
void demand(const std::string& verb) {
  if (runProgram({"systemctl", "--user", "--quiet", verb, kUnit}).status != 0) {
    throw CommandFailure(kNotTaken,
                         filled(tr("%s did not succeed."), "systemctl --user " + verb + " " + kUnit));
  }
}

bool isMasked() { return properties()["LoadState"] == "masked"; }

}  // namespace

bool isUnderSystemd() {
  const std::string state = properties()["LoadState"];
  return state == "loaded" || state == "masked" || state == "bad-setting" || state == "error";
}

ServiceStanding SystemdService::standing() const {
  std::map<std::string, std::string> values = properties();
  const std::string active = values["ActiveState"], file = values["UnitFileState"],
                    process = values["MainPID"];
  ServiceStanding standing;
  standing.running = active == "active" || active == "reloading";
  standing.starting = active == "activating";
  standing.enabled = file.starts_with("enabled");
  std::from_chars(process.data(), process.data() + process.size(), standing.process);
  return standing;
}

void SystemdService::start() {
  if (isMasked()) {
    throw CommandFailure(kNotTaken,
                         tr("The service is disabled; \"keldanectl service enable\" comes first."));
  }
  demand("start");
}

void SystemdService::stop() { demand("stop"); }

void SystemdService::enable() {
  if (isMasked()) {
    demand("unmask");
  }
  if (!standing().enabled) {
    demand("enable");
  }
}

void SystemdService::disable() {
  if (isMasked()) {
    return;
  }
  demand("disable");
  if (standing().enabled) {  // it is enabled for all users, which this user cannot change
    demand("mask");
  }
}

void SystemdService::showLog(unsigned lines, bool follow) {
  std::vector<std::string> arguments = {"journalctl", "--user", std::string("--unit=") + kUnit, "--no-pager",
                                        "--lines=" + std::to_string(lines)};
  if (follow) {
    arguments.emplace_back("--follow");
  }
  becomeProgram(arguments);
}

}  // namespace keldane
