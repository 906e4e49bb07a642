#include "clients/preferences/window/storage/MovePane.h"

#include <glibmm/main.h>

#include <algorithm>

#include "clients/core/words/Printable.h"
#include "clients/core/words/Units.h"
#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

namespace {

constexpr unsigned kMoveInterval = 500;  // milliseconds between two questions

bool isUnderWay(std::string_view status) {
  return status == "copying" || status == "checking" || status == "switching";
}

}  // namespace

MovePane::MovePane(DaemonDesk& desk, std::function<void()> moved)
    : Gtk::Box(Gtk::Orientation::VERTICAL, kGap),
      desk_(desk),
      moved_(std::move(moved)),
      open_(tr("Move It to Another Place…")),
      question_(Gtk::Orientation::VERTICAL, 2 * kGap),
      buttons_(Gtk::Orientation::HORIZONTAL, kGap),
      progressBox_(Gtk::Orientation::HORIZONTAL, kGap),
      place_(desk),
      move_(tr("Move the Backup")),
      leave_(tr("Leave It Where It Is")),
      cancel_(tr("Cancel the Move")) {
  open_.set_halign(Gtk::Align::START);
  append(open_);
  addQuestion();
  progress_.set_hexpand(true);
  progress_.set_valign(Gtk::Align::CENTER);
  setAccessibleName(progress_, tr("Progress of the move"));
  progressBox_.append(progress_);
  progressBox_.append(cancel_);
  progressBox_.set_visible(false);
  append(progressBox_);
  makeParagraph(text_);
  text_.set_visible(false);
  append(text_);
  open_.signal_clicked().connect([this] { question_.set_visible(!question_.get_visible()); });
  leave_.signal_clicked().connect([this] { question_.set_visible(false); });
  move_.signal_clicked().connect([this] { begin(); });
  cancel_.signal_clicked().connect([this] {
    cancel_.set_sensitive(false);
    desk_.ask("cancelMove:", {}, [](const OwnerAnswer&) {});
  });
  signal_map().connect([this] { askForReport(); });
}

MovePane::~MovePane() { timer_.disconnect(); }

void MovePane::addQuestion() {
  question_.append(*paragraph(
      tr("All versions come along. The backup stays in use where it is until the copy is complete and was "
         "checked, and what is there now is left as it is. A passphrase of your own has to be added anew.")));
  place_.setExistingIsOffered(false);
  question_.append(place_);
  move_.add_css_class("suggested-action");
  buttons_.append(move_);
  buttons_.append(leave_);
  question_.append(buttons_);
  question_.set_visible(false);
  append(question_);
}

void MovePane::begin() {
  std::optional<PropertyList::Entries> request = place_.request();
  if (!request) {
    return;
  }
  question_.set_visible(false);
  progress_.set_fraction(0);
  text_.set_text(tr("Copying what is stored…"));
  follow();
  begun_ = true;
  desk_.askForLongest("moveRepository:", *std::move(request), [this](const OwnerAnswer& answer) {
    begun_ = false;
    if (answer) {
      conclude(
          tr("The backup is kept at the new place now. What is at the old one is left as it was; delete "
             "it when you no longer want it."));
      moved_();
    } else {
      conclude(problemOf(answer));
    }
  });
}

void MovePane::follow() {
  following_ = true;
  open_.set_sensitive(false);
  progressBox_.set_visible(true);
  cancel_.set_sensitive(true);
  text_.set_visible(true);
  timer_.disconnect();
  timer_ = Glib::signal_timeout().connect(
      [this] {
        askForReport();
        return true;
      },
      kMoveInterval);
}

void MovePane::askForReport() {
  if (asking_) {
    return;
  }
  asking_ = true;
  desk_.ask("moveReport:", {}, [this](const OwnerAnswer& answer) {
    asking_ = false;
    if (answer) {
      show(answer.values);
    }
  });
}

void MovePane::show(const PropertyList& report) {
  const std::string_view status = report["status"].string();
  if (!isUnderWay(status)) {
    // The answer itself tells the end of a move that this window has begun.
    if (begun_) {
      return;
    }
    if (following_ && status == "done") {
      conclude(filled(tr("The backup is kept at %s now."), printable(report["location"].string())));
      moved_();
    } else if (following_ && status == "cancelled") {
      conclude(tr("The move was cancelled; the backup stays where it is."));
    } else if (following_ && status == "failed") {
      conclude(printable(report["message"].string()));
    }
    return;
  }
  if (!following_) {
    follow();
  }
  const std::uint64_t all = report["all"].unsignedLongLongValue();
  const std::uint64_t done = std::min(all, report["done"].unsignedLongLongValue());
  if (status == "copying" && all > 0) {
    progress_.set_fraction(static_cast<double>(done) / static_cast<double>(all));
    text_.set_text(filled(tr("Copying what is stored to %s: %s of %s versions are there."),
                          printable(report["location"].string()), countText(done), countText(all)));
  } else {
    progress_.pulse();
    text_.set_text(status == "checking"    ? tr("Checking the copy.")
                   : status == "switching" ? tr("Copying what has come meanwhile.")
                                           : tr("Copying what is stored…"));
  }
}

void MovePane::conclude(const std::string& sentence) {
  if (!following_) {
    return;
  }
  following_ = false;
  timer_.disconnect();
  open_.set_sensitive(true);
  progressBox_.set_visible(false);
  text_.set_text(sentence);
}

}  // namespace keldane
