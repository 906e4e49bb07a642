#include "clients/preferences/worker/DaemonSession.h"

#include "platform/notifications/NotificationCenter.h"
#include "platform/objects/Absent.h"

namespace keldane {

namespace {

// Values that the state does not hold (the minutes of a pause, the account) are requested at this interval.
constexpr RunLoop::Seconds kSlowInterval{10.0};

constexpr std::int32_t kSwitchedOff = 3;

}  // namespace

DaemonSession::DaemonSession(std::shared_ptr<Bundle> bundle, Deliver deliver)
    : deliver_(std::move(deliver)), rules_(TreeKind::rules, deliver_), restore_(TreeKind::restore, deliver_) {
  state_.setBundle(std::move(bundle));
  state_.setWantsStateChangedNotifications();
  NotificationCenter& center = NotificationCenter::defaultCenter();
  center.addObserver(this, KeldaneBackupStateConnectionChangedNotification, &state_,
                     [this](const Notification&) { connectionChanged(); });
  center.addObserver(this, KeldaneBackupStateChangedNotification, &state_,
                     [this](const Notification&) { stateChanged(); });
}

DaemonSession::~DaemonSession() {
  NotificationCenter::defaultCenter().removeObserver(this);
  sendTo(slowTimer_, &Timer::invalidate);
  RunLoop::current().cancel(this);
  state_.onEnd();
}

void DaemonSession::begin() {
  slowTimer_ = RunLoop::current().scheduleTimer(kSlowInterval, true, [this](Timer&) { sendAccount(); });
  state_.onBegin();
  if (!state_.connected()) {
    sendAccount();
  }
}

void DaemonSession::connectionChanged() {
  progress_.forgetRates();
  for (TreeFeed* tree : {&rules_, &restore_}) {
    tree->setDaemon(state_.connected() ? state_.proxy() : nullptr);
  }
  if (!state_.connected()) {
    sendAccount();
    return;
  }
  // This runs later, because the first state of this connection is requested after all observers have been
  // told.
  RunLoop::current().perform(
      [this] {
        sendAccount();
        refreshTrees();
      },
      this);
}

void DaemonSession::stateChanged() {
  if (!state_.daemonState()) {
    return;  // the daemon is going away and answers nothing
  }
  progress_.update(state_.pendingFileCount(), state_.pendingFileSize(), BackupProgress::Clock::now());
  sendStatus();
  refreshTrees();
}

void DaemonSession::sendStatus() {
  StatusSnapshot snapshot = statusSnapshot(state_, progress_, account_);
  snapshot.settingsMade = settingsMade_;
  deliver_(std::move(snapshot));
}

// The account is not requested with each state: if the daemon ended during the question, the missing answer
// would be remembered as an empty account.
void DaemonSession::sendAccount() {
  account_ = askForAccount(state_);
  sendStatus();
}

// The refusal is delivered later, so that a missing answer from a daemon that has just gone does not count as
// one.
void DaemonSession::refuse(const Refusal& refusal) {
  RunLoop::current().perform(
      [this, refusal] {
        if (state_.connected()) {
          deliver_(refusal);
        }
      },
      this);
}

void DaemonSession::settle(bool (*taken)(const BackupState&, std::int32_t), std::int32_t wanted) {
  ++settingsMade_;
  state_.updateDaemonState();
  const bool isTaken = taken(state_, wanted);
  sendStatus();
  if (!isTaken) {
    refuse({});
  }
}

void DaemonSession::pause(std::int32_t minutes) {
  state_.setPausedMinutes(minutes);
  settle([](const BackupState& state,
            std::int32_t wanted) { return (state.pausedMinutes() > 0) == (wanted > 0); },
         minutes);
}

void DaemonSession::setAutomatic(bool on) {
  state_.setAutomaticMode(on);
  settle([](const BackupState& state, std::int32_t wanted) { return state.automaticMode() == (wanted != 0); },
         on ? 1 : 0);
}

void DaemonSession::setLowPriority(bool on) {
  state_.setLowerPriorityMode(on);
  settle([](const BackupState& state,
            std::int32_t wanted) { return state.lowerPriorityMode() == (wanted != 0); },
         on ? 1 : 0);
}

void DaemonSession::setEnabled(bool on) {
  if (const std::shared_ptr<KeldaneProxy> daemon = state_.proxy()) {
    daemon->setEnabled(on);
  }
  settle([](const BackupState& state,
            std::int32_t wanted) { return (state.backupState() != kSwitchedOff) == (wanted != 0); },
         on ? 1 : 0);
}

void DaemonSession::endRecoverMode() {
  state_.setRecoverMode(false);
  settle([](const BackupState& state, std::int32_t) { return !state.recoverMode(); }, 0);
}

void DaemonSession::setIncluded(const std::string& path, bool included) {
  included ? state_.addFileToBackup(path) : state_.removeFileFromBackup(path);
  const std::optional<NodeRow> row = rules_.reread(path);
  if (!row || row->checked != included) {
    refuse({path, row ? row->state : std::string()});
  }
  refreshTrees();
}

void DaemonSession::leaveOut(const std::string& pattern) {
  std::string list(state_.stringValueForProfileKey("Ignored").string());
  if (!state_.connected()) {
    return;
  }
  list += (list.empty() || list.ends_with('\n') ? "" : "\n") + pattern + '\n';
  state_.setValueForProfileKey("Ignored", list);
  if (state_.connected() && state_.stringValueForProfileKey("Ignored").string() != list) {
    refuse({});
  }
  refreshTrees();
}

void DaemonSession::refreshTrees() {
  if (state_.connected()) {
    rules_.refresh();
    restore_.refresh();
  }
}

void DaemonSession::askAbout(const std::string& path) {
  PropertyList node = state_.dictionaryForPath(path);
  if (state_.connected()) {
    deliver_(PathAnswer{path, std::move(node)});
  }
}

void DaemonSession::askForMissing(const std::string& folder) {
  const PropertyList children = state_.childrenDictionariesForPath(folder);
  PropertyList::Array missing;
  for (std::size_t i = 0; i < children.count(); ++i) {
    if ((children[i]["backupFlags"].unsignedIntValue() & backup_flags::kMissing) != 0) {
      missing.push_back(children[i]);
    }
  }
  if (state_.connected()) {
    deliver_(MissingAnswer{folder, PropertyList::array(std::move(missing))});
  }
}

}  // namespace keldane
