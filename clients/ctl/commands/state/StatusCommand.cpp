#include <array>
#include <iostream>
#include <utility>

#include "cli/Json.h"
#include "client-state/BackupState.h"
#include "clients/core/words/HealthText.h"
#include "clients/core/words/Units.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/layout/Rows.h"
#include "clients/ctl/layout/Text.h"
#include "clients/ctl/terminal/Terminal.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kLabelColumns = 16;

/// The values of the daemon's state that have rows of their own; all others are printed unchanged.
constexpr std::array kShownKeys = {"backedUpFileCount",
                                   "backedupFileSize",
                                   "backupState",
                                   "currentBackupFile",
                                   "currentRestoreFile",
                                   "currentRestoreJob",
                                   "isBackupNeeded",
                                   "paused",
                                   "lowerPriorityMode",
                                   "pendingFileCount",
                                   "pendingFileSize",
                                   "recoverMode",
                                   "serviceState",
                                   "statusString",
                                   "isQuotaLimited",
                                   "isOverQuota",
                                   "quotaMB",
                                   "backupControlFlags",
                                   "health",
                                   "lastGoodBackup",
                                   "restingBecause",
                                   "failureCount",
                                   "heldBy",
                                   "storeTrouble"};

const char* yesNo(bool value) { return value ? tr("yes") : tr("no"); }
const char* onOff(bool value) { return value ? tr("on") : tr("off"); }

class StatusPage {
 public:
  explicit StatusPage(Session& session) : session_(session), state_(session.state()) {}

  void print() {
    if (state_.connected()) {
      row(tr("Daemon"), filled(tr("%s at %s"), terminal_.colored(Color::green, tr("running")),
                               printable(session_.socketPath())));
      account("");
      work();
      repository();
      const std::size_t place = rows_.count();
      modes();
      others();
      rows_.insert(place, tr("Quota"), quota());  // the bar takes the columns that the labels leave
    } else {
      row(tr("Daemon"), filled(tr("%s, not to be reached at %s"), terminal_.colored(Color::red, tr("away")),
                               printable(session_.socketPath())));
      account(std::string(" ") + tr("(remembered)"));
      row(tr("Quota limited"), std::string(yesNo(state_.isQuotaLimited())) + " " + tr("(remembered)"));
    }
    rows_.print(terminal_);
  }

 private:
  void row(const std::string& label, const std::string& value) { rows_.add(label, value); }

  void account(const std::string& mark) {
    row(tr("Account"), text(state_.userEmail()) + mark);
    row(tr("Server"), text(state_.serverURL()) + mark);
    row(tr("Computer"), text(state_.computerNumber()) + mark);
    row(tr("Skin"), text(state_.skinId()) + mark);
  }

  void work() {
    const Color color = state_.isOverQuota() ? Color::red : state_.paused() ? Color::yellow : Color::plain;
    row(tr("Status"), terminal_.colored(color, words(state_.statusString())) + " (" +
                          filled(tr("state %s"), std::to_string(state_.backupState())) + ")");
    row(tr("Backed up"), amount(state_.backedUpFileCountAvailable(), state_.backedUpFileCount(),
                                state_.backedupFileSizeAvailable(), state_.backedupFileSize()));
    row(tr("Pending"), amount(state_.pendingFileCountAvailable(), state_.pendingFileCount(),
                              state_.pendingFileSizeAvailable(), state_.pendingFileSize()));
    if (const PropertyList reason = state_.daemonState()["restingBecause"]) {
      row(tr("Resting"), terminal_.colored(Color::yellow, words(reason)));
    }
    row(tr("Backup needed"), yesNo(state_.isBackupNeeded()));
    row(tr("Current file"), text(state_.currentBackupFile()));
    row(tr("Restoring"), state_.currentRestoreJob() == 0
                             ? "-"
                             : filled(tr("job %s, %s"), std::to_string(state_.currentRestoreJob()),
                                      text(state_.currentRestoreFile())));
  }

  // Values that older daemons do not report have no row.
  void repository() {
    const PropertyList& values = state_.daemonState();
    const PropertyList health = values["health"], count = values["failureCount"];
    if (health) {
      const Color color = health.string() == "ready" ? Color::green : Color::red;
      row(tr("Repository"), terminal_.colored(color, healthText(health.string())));
      const std::string date = dateText(values["lastGoodBackup"]);
      row(tr("Last good"), date.empty() ? tr("never") : date);
    }
    if (count) {
      row(tr("Failing"), filesText(count.unsignedLongLongValue()) +
                             (count.unsignedLongLongValue() > 0 ? " (keldanectl failures)" : ""));
    }
  }

  std::string quota() {
    if (!state_.isQuotaLimited()) {
      return tr("not limited");
    }
    const std::uint64_t whole = std::uint64_t{state_.quotaMB()} << 20;
    // The size of the repository. An older daemon reports only the size of the stored files.
    const PropertyList size = state_.daemonState()["repositorySize"];
    const std::uint64_t used = size ? size.unsignedLongLongValue() : state_.backedupFileSize();
    const double part = whole == 0 ? 1 : static_cast<double>(used) / static_cast<double>(whole);
    const std::string words =
        filled(tr("%s of %s"), std::to_string(static_cast<std::uint64_t>(part * 100)) + "%",
               bytesText(whole)) +
        (state_.isOverQuota() ? std::string(", ") + tr("over the quota") : "");
    const std::size_t taken =
        std::max(rows_.labelColumns(), columnsOf(tr("Quota")) + 1) + columnsOf(words) + 2;
    const auto width = static_cast<std::size_t>(terminal_.width());
    const std::size_t columns = std::min(kWidestBar, width > taken ? width - taken : 0);
    const Color color = state_.isOverQuota() || part > 1 ? Color::red
                        : part > 0.9                     ? Color::yellow
                                                         : Color::green;
    return (columns < 6 ? "" : terminal_.colored(color, bar(part, columns)) + ' ') + words;
  }

  void modes() {
    const std::uint32_t minutes = state_.pausedMinutes();
    row(tr("Paused"),
        state_.paused() ? filled(tr("yes, for %s"), durationText(std::chrono::minutes(minutes))) : tr("no"));
    row(tr("Automatic"), onOff(state_.automaticMode()));
    row(tr("Low priority"), onOff(state_.lowerPriorityMode()));
    row(tr("Recover mode"), onOff(state_.recoverMode()));
    row(tr("Service state"), std::to_string(state_.serviceState()));
    row(tr("Control flags"), std::to_string(state_.getBackupControl()));
  }

  void others() {
    const PropertyList& values = state_.daemonState();
    for (std::size_t i = 0; i < values.count(); ++i) {
      const auto [key, value] = values.entry(i);
      if (std::find(kShownKeys.begin(), kShownKeys.end(), key.string()) == kShownKeys.end()) {
        row(printable(key.description()), printable(value.description()));
      }
    }
  }

  static std::string text(const PropertyList& value) {
    const std::string shown = value ? printable(value.description()) : "";
    return shown.empty() ? "-" : shown;
  }
  static std::string words(const PropertyList& value) {
    const std::string shown = value ? daemonWords(value) : "";
    return shown.empty() ? "-" : shown;
  }
  static std::string amount(bool filesKnown, std::uint64_t files, bool bytesKnown, std::uint64_t bytes) {
    return (filesKnown ? filesText(files) : tr("unknown files")) + ", " +
           (bytesKnown ? bytesText(bytes) : tr("unknown size"));
  }

  Session& session_;
  BackupState& state_;
  const Terminal terminal_;
  Rows rows_{kLabelColumns};
};

Json statusJson(Session& session) {
  BackupState& state = session.state();
  const bool connected = state.connected();
  Json json = {{"connected", connected},
               {"socket", session.socketPath()},
               {"account",
                {{"userEmail", jsonValue(state.userEmail())},
                 {"serverURL", jsonValue(state.serverURL())},
                 {"computerNumber", jsonValue(state.computerNumber())},
                 {"skinId", jsonValue(state.skinId())},
                 {"isQuotaLimited", state.isQuotaLimited()},
                 {"remembered", !connected}}}};
  json["automaticMode"] = connected ? Json(state.automaticMode()) : Json();
  json["pausedMinutes"] = connected ? Json(state.pausedMinutes()) : Json();
  json["state"] = jsonValue(state.daemonState());
  return json;
}

void status(Globals& globals, bool json) {
  Session session(globals);
  const bool connected = session.connect();
  session.state().updateDaemonState();
  if (json) {
    std::cout << jsonLine(statusJson(session)) << '\n';
  } else {
    StatusPage(session).print();
  }
  if (connected) {
    session.checkDaemon();
  } else {
    throw CommandFailure(kUnreachable,
                         filled(tr("The backup daemon cannot be reached at %s."), session.socketPath()));
  }
}

}  // namespace

void addStatusCommand(CLI::App& app, Globals& globals) {
  CLI::App* command =
      app.add_subcommand("status", tr("Show what the daemon is doing, its account and its settings"));
  CLI::Option* json = addFlag(*command, "--json", tr("Print JSON instead of text"));
  command->callback([&globals, json] { status(globals, !json->empty()); });
}

}  // namespace keldane
