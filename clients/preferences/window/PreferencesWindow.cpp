#include "clients/preferences/window/PreferencesWindow.h"

#include <glibmm/main.h>
#include <glibmm/miscutils.h>
#include <gtkmm/eventcontrollerkey.h>

#include <ctime>

#include "clients/core/words/Printable.h"
#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/RepositoryWords.h"
#include "clients/preferences/words/Translation.h"
#include "platform/preferences/Preferences.h"

namespace keldane {

namespace {

constexpr int kWidth = 860, kHeight = 680;
constexpr unsigned kWatchInterval = 1;                // seconds
constexpr int kRepositoryInterval = 30;               // counted in watch intervals
constexpr auto kPatience = std::chrono::seconds(10);  // for the daemon to answer
constexpr char kOverview[] = "overview", kRestore[] = "restore", kStorage[] = "storage", kRules[] = "rules";
constexpr char kDomain[] = "com.keldane.preferences", kSetupOffered[] = "SetupOffered";

}  // namespace

PreferencesWindow::PreferencesWindow(const DaemonBundle& daemon, AlertKeeper& alerts, Tell tell)
    : alerts_(alerts),
      tell_(std::move(tell)),
      desk_(daemon, [this](const Update& update) { receive(update); }),
      content_(Gtk::Orientation::VERTICAL),
      pages_(Gtk::Orientation::HORIZONTAL),
      overview_(desk_, alerts,
                {[this] {
                   go({WindowPlace::Kind::setUp, {}});
                 },
                 [this] {
                   go({WindowPlace::Kind::storage, {}});
                 },
                 [this] {
                   go({WindowPlace::Kind::rules, {}});
                 }}),
      restore_(desk_,
               [this](const std::string& result, bool) {
                 if (!is_active()) {
                   tell_(AlertKind::restore, {}, result, WindowPlace::Kind::restore);
                 }
               }),
      storage_(
          desk_,
          [this] {
            go({WindowPlace::Kind::setUp, {}});
          },
          [this] { askForRepository(); }),
      rules_(desk_),
      setup_(desk_, [this] { askForRepository(); }) {
  set_title(tr("Keldane Preferences"));
  set_icon_name("keldane");
  set_default_size(kWidth, kHeight);
  refusal_.set_message_type(Gtk::MessageType::WARNING);
  refusal_.set_show_close_button(true);
  refusal_.signal_response().connect([this](int) { refusal_.set_visible(false); });
  makeParagraph(refusalText_);
  refusal_.add_child(refusalText_);
  refusal_.set_visible(false);
  content_.append(refusal_);
  addPages();
  content_.append(pages_);
  set_child(content_);
  signal_hide().connect([this] { restore_.putAway(); });
  showStatus();
  watch_ = Glib::signal_timeout().connect_seconds(
      [this] {
        watchDaemon();
        return true;
      },
      kWatchInterval);
  desk_.perform([home = Glib::get_home_dir()](DaemonSession& session) { session.openFolder(home); });
}

PreferencesWindow::~PreferencesWindow() { watch_.disconnect(); }

void PreferencesWindow::addPages() {
  stack_.add(overview_, kOverview, tr("Overview"));
  // A page that is larger than the window is scrolled.
  restorePlace_.set_child(restore_);
  rulesPlace_.set_child(rules_);
  stack_.add(restorePlace_, kRestore, tr("Restore"));
  stack_.add(storage_, kStorage, tr("Storage"));
  stack_.add(rulesPlace_, kRules, tr("Rules"));
  stack_.set_expand(true);
  sidebar_.set_stack(stack_);
  setAccessibleName(sidebar_, tr("Pages"));
  leaveSidebarByTab();
  pages_.append(sidebar_);
  pages_.append(stack_);
  pages_.set_vexpand(true);
}

// The toolkit's own way is from row to row, and each row shows its page. So no page but the last could be
// entered by keys.
void PreferencesWindow::leaveSidebarByTab() {
  const auto keys = Gtk::EventControllerKey::create();
  keys->set_propagation_phase(Gtk::PropagationPhase::CAPTURE);
  keys->signal_key_pressed().connect(
      [this](guint key, guint, Gdk::ModifierType) {
        return key == GDK_KEY_Tab && stack_.child_focus(Gtk::DirectionType::TAB_FORWARD);
      },
      false);
  sidebar_.add_controller(keys);
}

void PreferencesWindow::go(const WindowPlace& place) {
  switch (place.kind) {
    case WindowPlace::Kind::rules:
      stack_.set_visible_child(kRules);
      break;
    case WindowPlace::Kind::restore:
      stack_.set_visible_child(kRestore);
      restore_.showTree();
      break;
    case WindowPlace::Kind::versions:
      stack_.set_visible_child(kRestore);
      restore_.showVersions(place.path);
      break;
    case WindowPlace::Kind::missing:
      stack_.set_visible_child(kRestore);
      restore_.showMissing(place.path);
      break;
    case WindowPlace::Kind::setUp:
      showSetup();
      break;
    case WindowPlace::Kind::storage:
      stack_.set_visible_child(kStorage);
      break;
    default:
      stack_.set_visible_child(kOverview);
  }
}

void PreferencesWindow::receive(const Update& update) {
  std::visit([this](const auto& each) { receive(each); }, update);
}

void PreferencesWindow::receive(const StatusSnapshot& snapshot) {
  const bool isAnother = !status_ || status_->connected != snapshot.connected ||
                         status_->health != snapshot.health || status_->pendingFiles != snapshot.pendingFiles;
  status_ = snapshot;
  if (snapshot.connected) {
    alerts_.noteReached();
  }
  showStatus();
  if (isAnother && snapshot.connected) {
    askForRepository();
    restore_.askAgain();
  }
}

void PreferencesWindow::receive(const TopRow& top) {
  top.tree == TreeKind::rules ? rules_.setTop(top) : restore_.setTop(top);
}

void PreferencesWindow::receive(const FolderChange& change) {
  change.tree == TreeKind::rules ? rules_.change(change) : restore_.change(change);
}

void PreferencesWindow::receive(const Refusal& refusal) {
  refusalText_.set_text(
      refusal.path.empty()
          ? tr("The daemon did not take it: only root and the daemon's own user may change this.")
          : filled(
                tr("The daemon did not take %s: %s."), printable(refusal.path),
                refusal.state.empty() ? tr("it knows nothing of it, or may not tell you") : refusal.state));
  refusal_.set_visible(true);
}

void PreferencesWindow::receive(const Selection& selection) { restore_.show(selection); }

void PreferencesWindow::receive(const PathAnswer& answer) {
  rules_.show(answer);
  restore_.show(answer);
}

void PreferencesWindow::receive(const MissingAnswer& answer) { restore_.show(answer); }

void PreferencesWindow::watchDaemon() {
  const bool answers = desk_.silence() < kPatience;
  if (answers != answers_) {
    answers_ = answers;
    showStatus();
  }
  if (!status_ || --turnsToRepository_ > 0) {
    return;
  }
  if (isThere()) {
    askForRepository();
  } else {
    turnsToRepository_ = kRepositoryInterval;
    tellOfTrouble();
  }
}

void PreferencesWindow::askForRepository() {
  if (asksForRepository_) {
    return;
  }
  asksForRepository_ = true;
  turnsToRepository_ = kRepositoryInterval;
  desk_.ask("repository:", {}, [this](const OwnerAnswer& answer) {
    asksForRepository_ = false;
    repository_ = answer ? answer.values : PropertyList();
    overview_.showRepository(repository_);
    storage_.show(answer);
    offerSetup();
    tellOfTrouble();
  });
}

// A person who looks at the window sees the trouble there.
void PreferencesWindow::tellOfTrouble() {
  const std::optional<Headline> shown =
      isThere() ? overview_.shownHeadline()
                : awayHeadline(alerts_.lastReached(), static_cast<double>(std::time(nullptr)));
  if (shown && !is_active()) {
    tellOf(*shown, tell_);
  }
}

void PreferencesWindow::showSetup() {
  setupOffered_ = true;
  desk_.ask("repository:", {}, [this](const OwnerAnswer& answer) {
    setup_.set_transient_for(*this);
    setup_.begin(answer.values);
    setup_.present();
  });
}

// The set-up is offered once per user. A person who has put it off finds it on the pages.
void PreferencesWindow::offerSetup() {
  if (setupOffered_ || !status_ || !status_->connected || !isUntouched(*status_, repository_)) {
    return;
  }
  setupOffered_ = true;
  desk_.aside([this]() -> std::function<void()> {
    const bool wasOffered = Preferences::copyValue(kSetupOffered, kDomain).boolValue();
    if (!wasOffered) {
      Preferences::setValue(kSetupOffered, PropertyList::boolean(true), kDomain);
      Preferences::synchronize(kDomain);
    }
    return [this, wasOffered] {
      if (!wasOffered) {
        showSetup();
      }
    };
  });
}

void PreferencesWindow::showStatus() {
  const bool isThere = answers_ && status_ && status_->connected;
  rules_.set_sensitive(isThere);
  restore_.set_sensitive(isThere);
  if (isThere) {
    restore_.followRunning(status_->restoreJob);
  }
  if (!answers_) {
    overview_.say(tr("The backup daemon does not answer."));
  } else if (!status_) {
    overview_.say(tr("Looking for the backup daemon…"));
  } else {
    overview_.show(*status_);
  }
}

}  // namespace keldane
