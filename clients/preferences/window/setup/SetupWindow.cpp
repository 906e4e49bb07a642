#include "clients/preferences/window/setup/SetupWindow.h"

#include "clients/core/words/HealthText.h"
#include "clients/core/words/Printable.h"
#include "clients/core/words/Units.h"
#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/RepositoryWords.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

namespace {

constexpr int kSetupWidth = 620, kSetupHeight = 520;
constexpr const char* kStepNames[] = {"place", "key", "folders", "done"};
enum : std::size_t { kPlaceStep, kKeyStep, kFoldersStep, kDoneStep };

}  // namespace

SetupWindow::SetupWindow(DaemonDesk& desk, std::function<void()> changed)
    : desk_(desk),
      changed_(std::move(changed)),
      content_(Gtk::Orientation::VERTICAL, 2 * kGap),
      keyStep_(Gtk::Orientation::VERTICAL, 2 * kGap),
      doneStep_(Gtk::Orientation::VERTICAL, 2 * kGap),
      buttons_(Gtk::Orientation::HORIZONTAL, kGap),
      place_(desk),
      key_(desk,
           [this] {
             kept_ = true;
             showNext();
           }),
      withoutCopy_(tr("Go on without a copy of the key")),
      folders_(desk),
      later_(tr("Later")),
      next_(tr("Next")) {
  set_title(tr("Set Up the Backup"));
  set_default_size(kSetupWidth, kSetupHeight);
  set_hide_on_close(true);
  setMargin(content_, 2 * kGap);
  progress_.set_xalign(0);
  progress_.add_css_class("dim-label");
  content_.append(progress_);
  addSteps();
  addButtons();
  set_child(content_);
  signal_hide().connect([this] { key_.hideKey(); });
}

void SetupWindow::addSteps() {
  addKeyStep();
  makeParagraph(done_);
  doneStep_.append(*heading(tr("The backup is set up")));
  doneStep_.append(done_);
  stack_.add(place_, kStepNames[kPlaceStep]);
  stack_.add(keyStep_, kStepNames[kKeyStep]);
  stack_.add(folders_, kStepNames[kFoldersStep]);
  stack_.add(doneStep_, kStepNames[kDoneStep]);
  stack_.set_vhomogeneous(false);
  makeParagraph(now_);
  place_.prepend(now_);
  scroller_.set_child(stack_);
  scroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
  scroller_.set_vexpand(true);
  content_.append(scroller_);
}

void SetupWindow::addKeyStep() {
  keyStep_.append(*heading(tr("Keep a copy of the key")));
  keyStep_.append(
      *paragraph(tr("The backup is encrypted. When this computer is lost, nobody can read it without this "
                    "key, you neither. "
                    "Print it, or save it to another disk, and keep it apart from this computer.")));
  keyStep_.append(key_);
  keyStep_.append(withoutCopy_);
  withoutCopy_.signal_toggled().connect([this] { showNext(); });
}

void SetupWindow::addButtons() {
  spinner_.set_hexpand(true);
  spinner_.set_halign(Gtk::Align::END);
  next_.add_css_class("suggested-action");
  for (Gtk::Widget* widget : std::initializer_list<Gtk::Widget*>{&later_, &spinner_, &next_}) {
    buttons_.append(*widget);
  }
  content_.append(buttons_);
  later_.signal_clicked().connect([this] { close(); });
  next_.signal_clicked().connect([this] { next(); });
}

void SetupWindow::begin(const PropertyList& repository) {
  const std::string location = printable(repository["location"].string());
  place_.setDataFolder(std::string(repository["dataFolder"].string()));
  readyAt_ = repository["health"].string() == "ready" ? repository["location"].string() : std::string_view();
  now_.set_visible(!location.empty());
  now_.set_text(
      filled(tr("The backup is kept at %s now (%s). What is there stays there; at another place the backup "
                "begins anew."),
             location, healthText(repository["health"].string())));
  if (!busy_) {
    go(kPlaceStep);
  }
}

void SetupWindow::go(std::size_t step) {
  step_ = step;
  stack_.set_visible_child(kStepNames[step]);
  progress_.set_text(filled(tr("Step %s of %s"), countText(step + 1), countText(kSteps)));
  later_.set_visible(step != kDoneStep);
  if (step == kKeyStep) {
    kept_ = false;
    withoutCopy_.set_active(false);
    key_.reveal();
  } else {
    key_.hideKey();
  }
  showNext();
}

void SetupWindow::showNext() {
  next_.set_label(step_ == kDoneStep ? tr("Close") : tr("Next"));
  next_.set_sensitive(!busy_ && (step_ != kKeyStep || kept_ || withoutCopy_.get_active()));
  place_.set_sensitive(!busy_);
  spinner_.set_spinning(busy_);
}

void SetupWindow::next() {
  switch (step_) {
    case kPlaceStep:
      setUp();
      break;
    case kFoldersStep: {
      const std::size_t count = folders_.apply();
      done_.set_text(
          count == 0 ? tr("Nothing is chosen yet. Choose files on the page Rules, or in the file manager.")
                     : tr("The first backup begins now and goes on by itself. The page Overview shows how "
                          "far it has come; this window is no longer needed."));
      go(kDoneStep);
      break;
    }
    case kDoneStep:
      close();
      break;
    default:
      go(step_ + 1);
  }
}

void SetupWindow::setUp() {
  std::optional<PropertyList::Entries> request = place_.request();
  if (!request) {
    return;
  }
  const PropertyList wanted = PropertyList::dictionary(*request);
  if (!readyAt_.empty() && wanted["location"].string() == readyAt_ && !wanted["adopt"].boolValue()) {
    go(kKeyStep);  // the daemon has made it already
    return;
  }
  busy_ = true;
  showNext();
  desk_.askForLong("setUpRepository:", std::move(*request), [this](const OwnerAnswer& answer) {
    busy_ = false;
    if (answer) {
      go(kKeyStep);
      changed_();
    } else {
      place_.say(problemOf(answer));
      showNext();
    }
  });
}

}  // namespace keldane
