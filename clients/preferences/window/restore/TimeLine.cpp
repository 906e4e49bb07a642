#include "clients/preferences/window/restore/TimeLine.h"

#include <gtkmm/adjustment.h>

#include <ctime>

#include "clients/core/words/Units.h"
#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

namespace {

constexpr std::size_t kMostMarks = 80;
constexpr int kPage = 10;       // backups
constexpr int kHalfADate = 36;  // pixels; the first date stands in the middle below its end of the line

std::string dayOf(double time) {
  const std::string date = dateText(Date::fromUnixTime(time));
  return date.substr(0, date.find(' '));
}

}  // namespace

TimeLine::TimeLine(std::function<void(double)> chosen) : chosen_(std::move(chosen)) {
  set_draw_value(false);
  set_hexpand(true);
  set_margin_start(kHalfADate);
  set_margin_end(kHalfADate);
  setAccessibleName(*this, tr("Backups in the course of time"));
  signal_change_value().connect([this](Gtk::ScrollType type, double value) { return move(type, value); },
                                false);
  // A screen reader sets the value itself.
  signal_value_changed().connect([this] {
    if (!standing_) {
      choose(times_.nearest(get_value()));
    }
  });
  show({});
}

void TimeLine::stand(double value) {
  standing_ = true;
  set_value(value);
  standing_ = false;
}

void TimeLine::choose(double time) {
  stand(time);
  chosen_(time >= times_.now() ? 0 : time);
}

void TimeLine::show(const std::vector<double>& times) {
  const bool wasNow = get_value() >= times_.now();
  const double time = get_value();
  times_ = BackupTimes(times, static_cast<double>(std::time(nullptr)));
  standing_ = true;  // changing the range changes the value, too
  set_range(times_.begin(), std::max(times_.now(), times_.begin() + 1));
  stand(wasNow ? times_.now() : times_.nearest(time));
  clear_marks();
  for (const double mark : times_.marks(kMostMarks)) {
    add_mark(mark, Gtk::PositionType::BOTTOM, mark == times_.begin() ? dayOf(mark) : "");
  }
  add_mark(times_.now(), Gtk::PositionType::BOTTOM, tr("now"));
  set_sensitive(!times_.isEmpty());
}

void TimeLine::setTime(double time) { stand(time == 0 ? times_.now() : times_.upTo(time)); }

bool TimeLine::move(Gtk::ScrollType type, double value) {
  using Type = Gtk::ScrollType;
  const auto stepped = [&](int steps) { return times_.stepped(get_value(), steps); };
  const double time = type == Type::STEP_BACKWARD || type == Type::STEP_LEFT   ? stepped(-1)
                      : type == Type::STEP_FORWARD || type == Type::STEP_RIGHT ? stepped(1)
                      : type == Type::PAGE_BACKWARD || type == Type::PAGE_LEFT ? stepped(-kPage)
                      : type == Type::PAGE_FORWARD || type == Type::PAGE_RIGHT ? stepped(kPage)
                                                                               : times_.nearest(value);
  if (time != get_value()) {
    choose(time);
  }
  return true;
}

}  // namespace keldane
