#include "clients/preferences/window/overview/OverviewPage.h"

#include <ctime>

#include "Common/DaemonText.h"
#include "clients/core/words/Printable.h"
#include "clients/core/words/Units.h"
#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

namespace {

constexpr int kIconSize = 32;
constexpr std::uint32_t kMostFailures = 100;

double now() { return static_cast<double>(std::time(nullptr)); }

}  // namespace

OverviewPage::OverviewPage(DaemonDesk& desk, AlertKeeper& alerts, Ways ways)
    : desk_(desk),
      ways_(std::move(ways)),
      content_(Gtk::Orientation::VERTICAL, 2 * kGap),
      headlineBox_(Gtk::Orientation::HORIZONTAL, 2 * kGap),
      statusPane_({
          [this](std::int32_t minutes) {
            desk_.perform([minutes](DaemonSession& session) { session.pause(minutes); });
          },
          [this](bool on) { desk_.perform([on](DaemonSession& session) { session.setAutomatic(on); }); },
          [this](bool on) { desk_.perform([on](DaemonSession& session) { session.setLowPriority(on); }); },
      }),
      failuresBox_(Gtk::Orientation::VERTICAL, kGap),
      alerts_(alerts),
      fileManagerPane_(desk) {
  setMargin(content_, 2 * kGap);
  icon_.set_pixel_size(kIconSize);
  icon_.set_valign(Gtk::Align::START);
  headline_.add_css_class("title-3");
  makeParagraph(headline_);
  mend_.set_valign(Gtk::Align::CENTER);
  mend_.add_css_class("suggested-action");
  mend_.signal_clicked().connect([this] { mend(); });
  headlineBox_.append(icon_);
  headlineBox_.append(headline_);
  headlineBox_.append(mend_);
  content_.append(headlineBox_);
  makeParagraph(age_);
  content_.append(age_);
  content_.append(*Gtk::make_managed<Gtk::Separator>());
  content_.append(statusPane_);
  addFailures();
  content_.append(*Gtk::make_managed<Gtk::Separator>());
  content_.append(fileManagerPane_);
  set_child(content_);
  set_policy(Gtk::PolicyType::AUTOMATIC, Gtk::PolicyType::AUTOMATIC);
}

void OverviewPage::addFailures() {
  failuresTitle_.set_text(tr("Files that could not be backed up"));
  failuresTitle_.add_css_class("heading");
  failuresTitle_.set_xalign(0);
  failures_.set_selection_mode(Gtk::SelectionMode::NONE);
  setAccessibleName(failures_, tr("Files that could not be backed up"));
  makeParagraph(failuresMore_);
  failuresBox_.append(failuresTitle_);
  failuresBox_.append(failures_);
  failuresBox_.append(failuresMore_);
  failuresBox_.set_visible(false);
  content_.append(failuresBox_);
  content_.append(*Gtk::make_managed<Gtk::Separator>());
  content_.append(alerts_);
}

void OverviewPage::say(const std::string& sentence) {
  said_ = true;
  statusPane_.say(sentence);
  headlineBox_.set_visible(false);
  age_.set_visible(false);
}

void OverviewPage::show(const StatusSnapshot& snapshot) {
  status_ = snapshot;
  said_ = !snapshot.connected;
  statusPane_.show(snapshot);
  showHeadline();
  if (snapshot.connected && snapshot.failures != failuresShown_) {
    askForFailures();
  }
}

void OverviewPage::showRepository(const PropertyList& repository) {
  repository_ = repository;
  showHeadline();
}

std::optional<Headline> OverviewPage::shownHeadline() const {
  return said_ ? std::nullopt : std::optional(headline(status_, repository_, now()));
}

void OverviewPage::showHeadline() {
  headlineBox_.set_visible(!said_);
  age_.set_visible(!said_);
  if (said_) {
    return;
  }
  const Headline shown = headline(status_, repository_, now());
  remedy_ = shown.remedy;
  headline_.set_text(printable(shown.sentence));
  icon_.set_from_icon_name(shown.isTrouble                ? "dialog-warning-symbolic"
                           : shown.remedy != Remedy::none ? "dialog-information-symbolic"
                                                          : "emblem-ok-symbolic");
  mend_.set_visible(remedy_ != Remedy::none);
  mend_.set_label(shown.button);
  const std::string date = dateText(status_.lastGoodBackup);
  age_.set_text(date.empty()
                    ? tr("There was no good backup yet.")
                    : filled(tr("Last good backup: %s, %s"), date, agoText(status_.lastGoodBackup, now())));
}

void OverviewPage::mend() {
  switch (remedy_) {
    case Remedy::setUp:
      return ways_.setUp();
    case Remedy::showStorage:
      return ways_.showStorage();
    case Remedy::chooseFiles:
      return ways_.chooseFiles();
    case Remedy::showFailures:
      failures_.child_focus(Gtk::DirectionType::TAB_FORWARD);
      return;
    case Remedy::lookAgain:
      mend_.set_sensitive(false);
      desk_.askForLong("repository:", {{"probe", true}}, [this](const OwnerAnswer& answer) {
        mend_.set_sensitive(true);
        if (answer) {
          showRepository(answer.values);
        }
      });
      return;
    case Remedy::resume:
      return desk_.perform([](DaemonSession& session) { session.pause(0); });
    case Remedy::switchOn:
      return desk_.perform([](DaemonSession& session) { session.setEnabled(true); });
    case Remedy::goOn:
      return desk_.perform([](DaemonSession& session) { session.endRecoverMode(); });
    case Remedy::backUpByItself:
      return desk_.perform([](DaemonSession& session) { session.setAutomatic(true); });
    case Remedy::none:
      break;
  }
}

void OverviewPage::askForFailures() {
  failuresShown_ = status_.failures;
  desk_.ask("failures:", {{"most", kMostFailures}},
            [this](const OwnerAnswer& answer) { showFailures(answer); });
}

void OverviewPage::showFailures(const OwnerAnswer& answer) {
  while (Gtk::Widget* const row = failures_.get_first_child()) {
    failures_.remove(*row);
  }
  const PropertyList entries = answer.values["entries"];
  for (std::size_t i = 0; i < entries.count(); ++i) {
    const std::string text =
        printable(entries[i]["path"].string()) + ": " + printable(daemonText(entries[i]["reason"].string()));
    failures_.append(*paragraph(text));
  }
  const std::uint64_t count = answer.values["count"].unsignedLongLongValue();
  failuresMore_.set_visible(count > entries.count());
  failuresMore_.set_text(
      filled(tr("… and %s more."), countText(count - std::min<std::uint64_t>(count, entries.count()))));
  failuresBox_.set_visible(entries.count() > 0);
}

}  // namespace keldane
