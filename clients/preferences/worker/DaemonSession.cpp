#include "clients/preferences/worker/DaemonSession.h"

#include <algorithm>

#include "platform/notifications/NotificationCenter.h"
#include "platform/objects/Absent.h"

namespace keldane {

namespace {

// What the state does not hold (the minutes of a pause, the account) is asked for this often.
constexpr RunLoop::Seconds kSlowInterval{10.0};

// So many rows go to the window at once that it has time for its user in between.
constexpr std::size_t kMostRows = 100;

template <class Row>
std::vector<Row> takeFrom(std::vector<Row>& rows) {
  const auto end = rows.begin() + static_cast<std::ptrdiff_t>(std::min(rows.size(), kMostRows));
  std::vector<Row> taken(std::make_move_iterator(rows.begin()), std::make_move_iterator(end));
  rows.erase(rows.begin(), end);
  return taken;
}

}  // namespace

DaemonSession::DaemonSession(std::shared_ptr<Bundle> bundle, Deliver deliver) : deliver_(std::move(deliver)) {
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
  tree_.setDaemon(state_.proxy());
  if (!state_.connected()) {
    toRefresh_.clear();
    sendAccount();
    return;
  }
  // Later, because the first state of this connection is asked for when all observers have been told.
  RunLoop::current().perform(
      [this] {
        sendAccount();
        refreshRules();
      },
      this);
}

void DaemonSession::stateChanged() {
  if (!state_.daemonState()) {
    return;  // a daemon that is going answers nothing
  }
  progress_.update(state_.pendingFileCount(), state_.pendingFileSize(), BackupProgress::Clock::now());
  sendStatus();
  refreshRules();
}

void DaemonSession::sendStatus() {
  StatusSnapshot snapshot = statusSnapshot(state_, progress_, account_);
  snapshot.settingsMade = settingsMade_;
  deliver_(std::move(snapshot));
}

// Not with each state: what a daemon that dies while it is asked does not answer would be remembered as
// empty.
void DaemonSession::sendAccount() {
  account_ = askForAccount(state_);
  sendStatus();
}

// Later, so that a daemon that has just gone is not said to have refused.
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

void DaemonSession::openFolder(const std::string& path) {
  toRefresh_.clear();
  tree_.open(path);
  sendTop(true);
}

void DaemonSession::sendTop(bool fresh) {
  if (std::optional<RuleRow> row = tree_.top()) {
    deliver_(TopRow{std::move(*row), fresh});
  }
}

void DaemonSession::lookInto(const std::string& folder) { sendChange(tree_.refresh(folder)); }

void DaemonSession::sendChange(FolderChange change) {
  do {
    FolderChange part{change.folder, takeFrom(change.added), takeFrom(change.changed),
                      takeFrom(change.removed)};
    deliver_(std::move(part));
  } while (!change.added.empty() || !change.changed.empty() || !change.removed.empty());
}

void DaemonSession::setIncluded(const std::string& path, bool included) {
  included ? state_.addFileToBackup(path) : state_.removeFileFromBackup(path);
  std::vector<RuleRow> rows = tree_.reread(path);
  const RuleRow* row = rows.empty() || rows.front().path != path ? nullptr : &rows.front();
  if (row == nullptr || row->checked != included) {
    refuse({path, row == nullptr ? std::string() : row->state});
  }
  FolderChange change;
  change.changed = std::move(rows);
  sendChange(std::move(change));
  refreshRules();
}

// One folder at a time, so that what the user wants meanwhile comes in between.
void DaemonSession::refreshRules() {
  if (tree_.topPath().empty() || !state_.connected()) {
    return;
  }
  if (tree_.needsOpening()) {
    openFolder(std::string(tree_.topPath()));
    return;
  }
  const bool underWay = !toRefresh_.empty();
  toRefresh_ = tree_.openFolders();
  std::reverse(toRefresh_.begin(), toRefresh_.end());
  sendTop(false);
  if (!underWay && !toRefresh_.empty()) {
    RunLoop::current().perform([this] { refreshNextFolder(); }, this);
  }
}

void DaemonSession::refreshNextFolder() {
  if (toRefresh_.empty()) {
    return;
  }
  const std::string folder = std::move(toRefresh_.back());
  toRefresh_.pop_back();
  sendChange(tree_.refresh(folder));
  if (!toRefresh_.empty()) {
    RunLoop::current().perform([this] { refreshNextFolder(); }, this);
  }
}

}  // namespace keldane
