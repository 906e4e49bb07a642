#include "clients/preferences/window/overview/StatusPane.h"

#include <gtkmm/adjustment.h>

#include "clients/core/words/Units.h"
#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Headline.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

namespace {

constexpr int kMinutesAtFirst = 30, kMostMinutes = 525600;
constexpr int kQuotaBarWidth = 200;

std::string percent(double fraction) { return std::to_string(static_cast<int>(fraction * 100)) + " %"; }

/// Values that the daemon would refuse to change are shown and cannot be edited.
void leaveFixed(Gtk::Widget& widget, bool isFixed) {
  if (isFixed) {
    widget.set_sensitive(false);
    widget.set_tooltip_text(tr("The administrator of this computer has fixed this."));
  }
}

}  // namespace

StatusPane::StatusPane(Wishes wishes)
    : Gtk::Box(Gtk::Orientation::VERTICAL, kGap),
      wishes_(std::move(wishes)),
      quotaBox_(Gtk::Orientation::HORIZONTAL, 2 * kGap),
      controls_(Gtk::Orientation::HORIZONTAL, kGap),
      minutes_(Gtk::Adjustment::create(kMinutesAtFirst, 1, kMostMinutes, 5, 60)),
      minutesTitle_(tr("minutes")),
      pause_(tr("Pause")),
      resume_(tr("Resume")),
      automatic_(tr("Back up what is ticked without being told")),
      lowPriority_(tr("Leave the machine to everything else")) {
  for (Gtk::Label* label :
       {&status_, &details_, &file_, &backedUp_, &account_, &server_, &computer_, &quota_}) {
    label->set_xalign(0);
    label->set_ellipsize(Pango::EllipsizeMode::MIDDLE);
    label->set_selectable(false);
  }
  status_.add_css_class("heading");
  progress_.set_show_text(true);
  setAccessibleName(progress_, tr("Progress of the backup"));
  setAccessibleName(quotaBar_, tr("Quota"));
  quotaBar_.set_size_request(kQuotaBarWidth, -1);
  quotaBar_.set_valign(Gtk::Align::CENTER);
  quotaBox_.append(quotaBar_);
  quota_.set_hexpand(true);
  quotaBox_.append(quota_);
  for (Gtk::Widget* widget : std::initializer_list<Gtk::Widget*>{&status_, &progress_, &details_, &file_}) {
    append(*widget);
  }
  values_.set_column_spacing(2 * kGap);
  values_.set_row_spacing(kGap / 2);
  int row = 0;
  addRow(row++, tr("Backed up"), backedUp_);
  addRow(row++, tr("Quota"), quotaBox_);
  addRow(row++, tr("Account"), account_);
  addRow(row++, tr("Server"), server_);
  addRow(row++, tr("Computer"), computer_);
  append(values_);
  addControls();
}

void StatusPane::addRow(int number, const char* title, Gtk::Widget& value) {
  auto* const label = Gtk::make_managed<Gtk::Label>();
  setTitle(*label, title);
  value.set_hexpand(true);
  values_.attach(*label, 0, number, 1, 1);
  values_.attach(value, 1, number, 1, 1);
}

void StatusPane::addControls() {
  setAccessibleName(minutes_, tr("Minutes to pause"));
  for (Gtk::Widget* widget :
       std::initializer_list<Gtk::Widget*>{&pause_, &minutes_, &minutesTitle_, &resume_, &pausedFor_}) {
    controls_.append(*widget);
  }
  append(controls_);
  append(automatic_);
  append(lowPriority_);
  pause_.signal_clicked().connect([this] {
    minutes_.update();
    pause(minutes_.get_value_as_int());
  });
  resume_.signal_clicked().connect([this] { pause(0); });
  const auto connect = [this](Gtk::CheckButton& button, const std::function<void(bool)>& wish) {
    button.signal_toggled().connect([this, &button, &wish] {
      if (!showing_) {
        ++wished_;
        wish(button.get_active());
      }
    });
  };
  connect(automatic_, wishes_.setAutomatic);
  connect(lowPriority_, wishes_.setLowPriority);
}

void StatusPane::pause(std::int32_t minutes) {
  ++wished_;
  wishes_.pause(minutes);
}

// Each widget is disabled by itself, because a screen reader does not notice that the box around them is
// disabled.
void StatusPane::setControlsSensitive(bool sensitive) {
  for (Gtk::Widget* widget :
       std::initializer_list<Gtk::Widget*>{&pause_, &minutes_, &automatic_, &lowPriority_}) {
    widget->set_sensitive(sensitive);
  }
}

void StatusPane::say(const std::string& sentence) {
  status_.set_text(sentence);
  progress_.set_fraction(0);
  progress_.set_text("");
  for (Gtk::Label* label : {&details_, &file_, &pausedFor_}) {
    label->set_text("");
  }
  setControlsSensitive(false);
  resume_.set_sensitive(false);
}

void StatusPane::show(const StatusSnapshot& snapshot) {
  showAccount(snapshot);
  showQuota(snapshot);
  backedUp_.set_text(snapshot.backedUpFiles
                         ? filesWords(*snapshot.backedUpFiles) +
                               (snapshot.backedUpBytes ? ", " + bytesText(*snapshot.backedUpBytes) : "")
                         : "–");
  if (!snapshot.connected) {
    say(tr("The backup daemon is away; waiting for it to come back."));
    return;
  }
  status_.set_text(snapshot.status.empty() ? tr("The daemon tells no state") : snapshot.status);
  showProgress(snapshot);
  showControls(snapshot);
}

void StatusPane::showProgress(const StatusSnapshot& snapshot) {
  progress_.set_fraction(snapshot.fraction);
  progress_.set_text(percent(snapshot.fraction));
  std::string details;
  if (snapshot.pendingFiles > 0) {
    details = filled(tr("%s, %s to go"), filesWords(snapshot.pendingFiles), bytesText(snapshot.pendingBytes));
    if (!snapshot.paused && snapshot.timeLeft) {
      details +=
          "; " + filled(tr("%s/s, %s left"), bytesText(static_cast<std::uint64_t>(snapshot.bytesPerSecond)),
                        durationText(*snapshot.timeLeft));
    }
  }
  details_.set_text(details.empty() ? tr("Nothing is waiting to be backed up.") : details);
  file_.set_text(snapshot.currentFile);
}

void StatusPane::showAccount(const StatusSnapshot& snapshot) {
  const auto text = [&](const std::string& value) {
    return value.empty() ? "–" : snapshot.connected ? value : filled(tr("%s (remembered)"), value);
  };
  account_.set_text(text(snapshot.account.userEmail));
  server_.set_text(text(snapshot.account.serverURL));
  computer_.set_text(text(snapshot.account.computerNumber));
}

void StatusPane::showQuota(const StatusSnapshot& snapshot) {
  quotaBar_.set_visible(snapshot.quotaLimited && snapshot.connected);
  if (!snapshot.connected) {
    quota_.set_text(filled(tr("%s (remembered)"), snapshot.quotaLimited ? tr("limited") : tr("not limited")));
    return;
  }
  if (!snapshot.quotaLimited) {
    quota_.set_text(tr("not limited"));
    return;
  }
  quotaBar_.set_fraction(snapshot.quotaFraction());
  const std::string part =
      filled(tr("%s of %s"), bytesText(snapshot.backedUpBytes.value_or(0)), bytesText(snapshot.quotaBytes));
  quota_.set_text(snapshot.overQuota ? filled(tr("%s, over the quota"), part) : part);
}

void StatusPane::showControls(const StatusSnapshot& snapshot) {
  setControlsSensitive(true);
  leaveFixed(automatic_, config_.isFixed("automatic"));
  leaveFixed(lowPriority_, config_.isFixed("low-priority"));
  if (snapshot.settingsMade != wished_) {
    return;
  }
  showing_ = true;
  resume_.set_sensitive(snapshot.paused);
  pausedFor_.set_text(snapshot.paused ? filled(tr("Paused for %s"),
                                               durationText(std::chrono::minutes(snapshot.pausedMinutes)))
                                      : std::string());
  automatic_.set_active(snapshot.automatic);
  lowPriority_.set_active(snapshot.lowPriority);
  showing_ = false;
}

}  // namespace keldane
