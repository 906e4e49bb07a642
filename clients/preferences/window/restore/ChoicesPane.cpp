#include "clients/preferences/window/restore/ChoicesPane.h"

#include <glibmm/main.h>
#include <gtkmm/stringlist.h>

#include <ctime>
#include <optional>

#include "clients/core/words/DateWords.h"
#include "clients/core/words/Printable.h"
#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

namespace {

constexpr unsigned kTypingPause = 400;  // milliseconds after which a date counts as typed
constexpr const char* kConflicts[] = {"keepBoth", "replace", "skip"};

/// A date without a time means the end of that day, because whatever was stored during the day belongs to it.
std::optional<double> timeIn(const std::string& text) {
  const std::optional<std::int64_t> time = timeNamed(text, std::time(nullptr));
  if (!time) {
    return std::nullopt;
  }
  const bool isDay = text.find(':') == std::string::npos && text.starts_with("20");
  constexpr double kDay = 86400;
  return static_cast<double>(*time) + (isDay ? kDay - 1 : 0);
}

}  // namespace

ChoicesPane::ChoicesPane(std::function<void(double)> dateChosen)
    : dateChosen_(std::move(dateChosen)),
      timeLine_([this](double time) { date_.set_text(time == 0 ? std::string() : exactTimeText(time)); }),
      dateBox_(Gtk::Orientation::HORIZONTAL, kGap),
      targetBox_(Gtk::Orientation::HORIZONTAL, kGap),
      own_(tr("Where it was")),
      into_(tr("Into a folder:")),
      choose_(tr("Choose a Folder…")),
      chooser_(tr("Restore into a Folder"), Gtk::FileChooser::Action::SELECT_FOLDER,
               [this](const std::string& path) { setTarget(path); }) {
  set_column_spacing(2 * kGap);
  set_row_spacing(kGap);
  addDate();
  addTarget();
  addConflict();
  makeParagraph(problem_);
  problem_.add_css_class("error");
  problem_.set_visible(false);
  attach(problem_, 1, 4);
}

ChoicesPane::~ChoicesPane() { typing_.disconnect(); }

void ChoicesPane::addDate() {
  setTitle(dateTitle_, tr("As it was on"));
  date_.set_placeholder_text(tr("now; or 2026-11-20, yesterday, 2 days ago"));
  date_.set_hexpand(true);
  setAccessibleName(date_, tr("Date to go back to"));
  popover_.set_child(calendar_);
  calendarButton_.set_popover(popover_);
  calendarButton_.set_icon_name("x-office-calendar-symbolic");
  setAccessibleName(calendarButton_, tr("Choose a day"));
  setAccessibleName(calendar_, tr("Choose a day"));
  calendar_.signal_day_selected().connect([this] {
    date_.set_text(calendar_.get_date().format("%Y-%m-%d"));
    popover_.popdown();
  });
  dateBox_.append(date_);
  dateBox_.append(calendarButton_);
  date_.signal_changed().connect([this] {
    typing_.disconnect();
    typing_ = Glib::signal_timeout().connect(
        [this] {
          dateTyped();
          return false;
        },
        kTypingPause);
  });
  attach(timeLine_, 0, 0, 2, 1);
  attach(dateTitle_, 0, 1);
  attach(dateBox_, 1, 1);
}

void ChoicesPane::dateTyped() {
  const std::string text = date_.get_text();
  const std::optional<double> time = text.empty() ? std::optional(0.0) : timeIn(text);
  if (isComplete() && time && *time != time_) {
    time_ = *time;
    timeLine_.setTime(time_);
    dateChosen_(time_);
  }
}

void ChoicesPane::addTarget() {
  setTitle(targetTitle_, tr("Restore to"));
  into_.set_group(own_);
  own_.set_active(true);
  choose_.set_hexpand(true);
  choose_.set_halign(Gtk::Align::START);
  targetBox_.append(own_);
  targetBox_.append(into_);
  targetBox_.append(choose_);
  choose_.signal_clicked().connect([this] { chooser_.open(*this); });
  attach(targetTitle_, 0, 2);
  attach(targetBox_, 1, 2);
}

void ChoicesPane::addConflict() {
  setTitle(conflictTitle_, tr("What is there"));
  conflict_.set_model(Gtk::StringList::create({tr("Stays; what is restored gets another name"),
                                               tr("Is replaced by what is restored"),
                                               tr("Stays, and nothing is restored in its place")}));
  setAccessibleName(conflict_, tr("What becomes of what is there"));
  conflict_.set_halign(Gtk::Align::START);
  attach(conflictTitle_, 0, 3);
  attach(conflict_, 1, 3);
}

void ChoicesPane::setDateIsOffered(bool offered) {
  dateIsOffered_ = offered;
  timeLine_.set_visible(offered);
  dateTitle_.set_visible(offered);
  dateBox_.set_visible(offered);
}

bool ChoicesPane::isComplete() {
  const std::string text = date_.get_text();
  std::string problem;
  if (dateIsOffered_ && !text.empty() && !timeIn(text)) {
    problem =
        filled(tr("\"%s\" is no date; 2026-11-20, \"2026-11-20 14:00\", yesterday and \"2 days ago\" are."),
               printable(text));
  } else if (into_.get_active() && folder_.empty()) {
    problem = tr("Please choose the folder to restore into.");
  }
  problem_.set_text(problem);
  problem_.set_visible(!problem.empty());
  return problem.empty();
}

PropertyList::Entries ChoicesPane::request() const {
  PropertyList::Entries entries = {{"conflict", kConflicts[conflict_.get_selected()]}};
  if (const std::string folder = target(); !folder.empty()) {
    entries.emplace_back("target", folder);
  }
  if (const std::string text = date_.get_text(); dateIsOffered_ && !text.empty()) {
    if (const std::optional<double> time = timeIn(text)) {
      entries.emplace_back("before", Date::fromUnixTime(*time));
    }
  }
  return entries;
}

void ChoicesPane::setTarget(const std::string& folder) {
  folder_ = folder;
  choose_.set_label(printable(folder_));
  into_.set_active(true);
  isComplete();
}

}  // namespace keldane
