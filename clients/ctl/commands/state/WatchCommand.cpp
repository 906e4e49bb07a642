#include <unistd.h>
#include <csignal>
#include <ctime>
#include <iostream>
#include <optional>

#include "cli/Json.h"
#include "client-state/BackupState.h"
#include "clients/core/BackupProgress.h"
#include "clients/core/words/Units.h"
#include "clients/ctl/OwnerSession.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/layout/ProgressLine.h"
#include "clients/ctl/layout/Text.h"
#include "clients/ctl/terminal/StallWatch.h"
#include "clients/ctl/terminal/Terminal.h"
#include "platform/notifications/NotificationCenter.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

using Json = nlohmann::ordered_json;

constexpr RunLoop::Seconds kRedrawInterval{1.0};

struct WatchOptions {
  bool json = false;
  bool untilDone = false;
};

std::string timeOfDay() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  char text[32];
  return localtime_r(&now, &parts) == nullptr
             ? std::string()
             : std::string(text, std::strftime(text, sizeof(text), "%H:%M:%S", &parts));
}

// Ends the line, so that the shell's prompt has a line of its own.
extern "C" void endLineAndProcess(int number) {
  [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, "\n", 1);
  std::signal(number, SIG_DFL);
  std::raise(number);
}

/// Follows the daemon's state: in one line that is redrawn on a terminal, otherwise in one line for each
/// change.
class Watcher {
 public:
  Watcher(Globals& globals, const WatchOptions& options)
      : globals_(globals),
        options_(options),
        session_(globals),
        state_(session_.state()),
        stall_(globals.deadline) {
    drawn_ = terminal_.isTerminal() && !options.json;
    NotificationCenter& center = NotificationCenter::defaultCenter();
    center.addObserver(this, KeldaneBackupStateConnectionChangedNotification, &state_,
                       [this](const Notification&) { connectionChanged(); });
    center.addObserver(this, KeldaneBackupStateChangedNotification, &state_,
                       [this](const Notification&) { stateChanged(); });
  }
  ~Watcher() {
    NotificationCenter::defaultCenter().removeObserver(this);
    endLine();
  }
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  void run() {
    if (drawn_) {
      std::signal(SIGINT, endLineAndProcess);
      std::signal(SIGTERM, endLineAndProcess);
    }
    state_.setWantsStateChangedNotifications();
    state_.onBegin();
    connectionChanged();
    while (!done_ && std::cout) {
      RunLoop::current().run(kRedrawInterval);
      if (stall_.turn()) {
        announce("answering", tr("The backup daemon answers again."));
      }
      if (drawn_ && state_.connected() && !done_) {
        draw();
      }
    }
    endLine();
    if (done_) {
      tellEnd();
    }
  }

 private:
  void endLine() {
    if (drawn_) {
      std::cout << std::endl;
    }
    drawn_ = false;
  }

  // This is also called at the beginning and then reports whether there is a daemon.
  void connectionChanged() {
    const bool connected = state_.connected();
    if (connected == connected_) {
      return;
    }
    if (!connected) {
      announce("disconnected", connected_
                                   ? tr("The backup daemon has gone; waiting for it to come back.")
                                   : filled(tr("The backup daemon cannot be reached at %s; waiting for it."),
                                            printable(session_.socketPath())));
    } else if (connected_) {
      announce("connected", tr("The backup daemon is back."));
    }
    connected_ = connected;
    progress_.forgetRates();
  }

  void stateChanged() {
    progress_.update(state_.pendingFileCount(), state_.pendingFileSize(), BackupProgress::Clock::now());
    if (options_.json) {
      print(stateJson());
    } else if (drawn_) {
      draw();
    } else {
      const std::string text = line();
      if (text != last_) {  // each poll without a state leads to this call
        std::cout << timeOfDay() << ' ' << text << std::endl;
        last_ = text;
      }
    }
    const bool isAllDone = !state_.isBackupNeeded() && state_.pendingFileCount() == 0;
    if (options_.untilDone && state_.daemonState() && (isAllDone || isHeldForGood())) {
      done_ = true;
      RunLoop::current().stop();
    }
  }

  // A pause ends by itself; these holds end only when somebody acts.
  bool isHeldForGood() const {
    const PropertyList held = state_.daemonState()["heldBy"];
    return held.string() == "off" || held.string() == "recovering" || held.string() == "manual";
  }

  // Failed files are listed only for users who may ask for them.
  void tellEnd() {
    const PropertyList& state = state_.daemonState();
    if (state_.isBackupNeeded() || state_.pendingFileCount() > 0) {
      globals_.status = kRests;
      complain(
          filled(tr("Not all is backed up, and the daemon rests: %s"), sentenceFrom(state["statusString"])));
    } else if (const std::uint64_t failures = state["failureCount"].unsignedLongLongValue(); failures > 0) {
      globals_.status = kNotTaken;
      listFailures();
      complain(filled(tr("%s could not be backed up."), filesText(failures)));
    }
  }

  void listFailures() {
    try {
      const PropertyList answer = OwnerSession(globals_).ask("failures:");
      const PropertyList entries = answer["entries"];
      if (options_.json) {
        print({{"time", std::time(nullptr)}, {"event", "failures"}, {"failures", jsonValue(answer)}});
      }
      for (std::size_t i = 0; i < entries.count() && !options_.json; ++i) {
        std::cout << printable(entries[i]["path"].string()) << ": " << daemonWords(entries[i]["reason"])
                  << '\n';
      }
      std::cout << std::flush;
    } catch (const CommandFailure& failure) {
      complain(failure.what());
    }
  }

  void announce(const char* event, const std::string& sentence) {
    if (options_.json) {
      print({{"time", std::time(nullptr)}, {"event", event}});
    } else if (drawn_) {
      std::cout << terminal_.restartLine() << timeOfDay() << ' ' << sentence << std::endl;
    } else {
      std::cout << timeOfDay() << ' ' << sentence << std::endl;
    }
    last_.clear();
  }

  void print(const Json& json) { std::cout << jsonLine(json) << std::endl; }

  Json stateJson() const {
    const auto left = progress_.timeLeft();
    return {{"time", std::time(nullptr)},
            {"event", "state"},
            {"state", jsonValue(state_.daemonState())},
            {"progress",
             {{"fraction", progress_.fraction()},
              {"bytesPerSecond", progress_.bytesPerSecond()},
              {"filesPerSecond", progress_.filesPerSecond()},
              {"secondsLeft", left ? Json(left->count()) : Json()}}}};
  }

  std::string statusText() const {
    return state_.daemonState() ? daemonWords(state_.statusString()) : tr("The daemon tells no state");
  }
  std::string pendingText() const {
    return filled(tr("%s, %s to go"), filesText(state_.pendingFileCount()),
                  bytesText(state_.pendingFileSize()));
  }
  std::string line() const {
    std::string text = statusText();
    if (state_.pendingFileCount() > 0) {
      const std::string rate = rateText(progress_);
      text += " (" + pendingText() + (rate.empty() ? "" : "; " + rate) + ")";
    }
    const std::string file = printable(state_.currentBackupFile().string());
    return file.empty() ? text : text + ' ' + file;
  }

  void draw() {
    FittedLine fitted(terminal_);
    if (state_.pendingFileCount() == 0 || isHeldForGood()) {
      fitted.add(lastColumns(statusText(), fitted.columnsLeft()));
    } else {
      fitted.addBar(progress_.fraction());
      fitted.add(state_.paused() ? tr("Paused") : "");
      fitted.add(pendingText());
      fitted.add(state_.paused() ? "" : rateText(progress_));
      fitted.addPath(printable(state_.currentBackupFile().string()));
    }
    std::cout << terminal_.restartLine() << fitted.text() << std::flush;
  }

  Globals& globals_;
  const WatchOptions options_;
  const Terminal terminal_;
  Session session_;
  BackupState& state_;
  StallWatch stall_;
  BackupProgress progress_;
  std::optional<bool> connected_;
  std::string last_;
  bool drawn_ = false;
  bool done_ = false;
};

}  // namespace

void addWatchCommand(CLI::App& app, Globals& globals) {
  CLI::App* command = app.add_subcommand(
      "watch", tr("Follow the daemon's work: a progress bar on a terminal, otherwise a line a change"));
  auto options = std::make_shared<WatchOptions>();
  command->add_flag("--json", options->json, tr("Print a JSON object a change instead of text"));
  command->add_flag("--until-done", options->untilDone,
                    tr("End once everything is backed up or has failed, or rests until somebody sees to it"));
  command->callback([&globals, options] { Watcher(globals, *options).run(); });
}

}  // namespace keldane
