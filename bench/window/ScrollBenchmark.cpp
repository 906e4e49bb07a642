// Times the frames of the preferences' tree while a folder with many files scrolls through it.
//   bench-scroll [ROWS [FRAMES]]     by default 100,000 and 1,000
#include <gdkmm/frameclock.h>
#include <glibmm/main.h>
#include <gtkmm/application.h>
#include <gtkmm/window.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "clients/preferences/window/tree/NodeTreeView.h"

namespace keldane {

namespace {

constexpr int kWindowWidth = 860, kWindowHeight = 680;
constexpr std::size_t kPiece = 100;      // rows that the daemon's thread hands over at once
constexpr double kRowsAFrame = 7;        // a quick turn of the wheel
constexpr double kRowHeight = 25;        // pixels, about
constexpr std::int64_t kFrame = 33'000;  // microseconds
constexpr std::size_t kFramesToWarm = 30;

NodeRow rowAt(const std::string& path, bool isFolder) {
  NodeRow row;
  row.path = path;
  row.name = path.substr(path.rfind('/') + 1);
  row.state = isFolder ? "" : "Backed up";
  row.size = isFolder ? "" : "2.0 KiB";
  row.date = "2026-11-20 14:03";
  row.enabled = true;
  row.isFolder = isFolder;
  return row;
}

class ScrollBenchmark {
 public:
  ScrollBenchmark(std::size_t rows, std::size_t frames)
      : rows_(rows),
        frames_(frames),
        app_(Gtk::Application::create("com.keldane.bench", Gio::Application::Flags::NON_UNIQUE)),
        left_(rows) {
    app_->signal_activate().connect([this] { begin(); });
  }

  int run() { return app_->run(); }

 private:
  void begin() {
    window_ = std::make_unique<Gtk::Window>();
    tree_ = std::make_unique<NodeTreeView>(
        "Files", NodeTreeView::Titles{"Restore", "Backed Up On"},
        NodeTreeView::Wishes{[](const std::string&) {}, [](const std::string&) {},
                             [](const std::string&, bool) {}, [](const NodeRow&) {}});
    window_->set_child(*tree_);
    window_->set_default_size(kWindowWidth, kWindowHeight);
    tree_->setTop({rowAt("/home/user", true), true, TreeKind::restore});
    app_->add_window(*window_);
    window_->present();
    Glib::signal_idle().connect([this] { return addRows(); });
  }

  static std::string pathAt(std::size_t number) {
    std::string digits = std::to_string(number);
    return "/home/user/" + std::string(8 - std::min<std::size_t>(8, digits.size()), '0') + digits;
  }

  bool addRows() {
    FolderChange change{"/home/user", {}, {}, {}, TreeKind::restore};
    for (std::size_t i = 0; i < kPiece && left_ > 0; ++i, --left_) {
      change.added.push_back({rowAt(pathAt(left_), false), left_ == rows_ ? "" : pathAt(left_ + 1)});
    }
    tree_->change(change);
    if (left_ == 0) {
      window_->add_tick_callback(
          [this](const Glib::RefPtr<Gdk::FrameClock>& clock) { return frame(*clock); });
    }
    return left_ > 0;
  }

  /// The processor time of this thread in microseconds. A busy machine makes frames late, but does not change
  /// this.
  static std::int64_t worked() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::int64_t{time.tv_sec} * 1'000'000 + time.tv_nsec / 1000;
  }

  /// Scrolls down to the end and up again.
  bool frame(Gdk::FrameClock& clock) {
    const std::int64_t now = clock.get_frame_time();
    const auto adjustment = tree_->get_vadjustment();
    const double end = adjustment->get_upper() - adjustment->get_page_size();
    if (left_ > 0 || end < static_cast<double>(rows_)) {
      return true;
    }
    if (seen_++ > kFramesToWarm) {
      times_.push_back(now - last_);
      work_.push_back(worked() - lastWork_);
    }
    last_ = now;
    lastWork_ = worked();
    // Every 50th frame leaps, as a drag of the scroll bar does.
    const double step = seen_ % 50 == 0 ? end / 7 : kRowsAFrame * kRowHeight;
    double place = adjustment->get_value() + step * direction_;
    if (place > end || place < 0) {
      direction_ = -direction_;
      place = std::clamp(place, 0.0, end);
    }
    adjustment->set_value(place);
    if (times_.size() < frames_) {
      return true;
    }
    report();
    app_->quit();
    return false;
  }

  void report() {
    std::cout << rows_ << " rows, " << times_.size() << " frames while they scroll\n";
    tell("from frame to frame", times_);
    tell("processor time of a frame", work_);
  }

  static void tell(const char* what, std::vector<std::int64_t>& times) {
    std::sort(times.begin(), times.end());
    const auto within = std::upper_bound(times.begin(), times.end(), kFrame) - times.begin();
    const auto at = [&](double part) {
      const auto place = static_cast<std::size_t>(part * static_cast<double>(times.size() - 1));
      return static_cast<double>(times[place]) / 1000;
    };
    std::cout << what << ": median " << at(0.5) << " ms, 99 % within " << at(0.99) << " ms, longest " << at(1)
              << " ms; " << 100.0 * static_cast<double>(within) / static_cast<double>(times.size())
              << " % within 33 ms\n";
  }

  const std::size_t rows_, frames_;
  const Glib::RefPtr<Gtk::Application> app_;
  std::unique_ptr<Gtk::Window> window_;
  std::unique_ptr<NodeTreeView> tree_;
  std::size_t left_, seen_ = 0;
  std::int64_t last_ = 0, lastWork_ = 0;
  double direction_ = 1;
  std::vector<std::int64_t> times_, work_;
};

}  // namespace

}  // namespace keldane

int main(int argc, char** argv) {
  const auto numberAt = [&](int place, std::size_t usual) {
    return argc > place ? std::strtoull(argv[place], nullptr, 10) : usual;
  };
  return keldane::ScrollBenchmark(numberAt(1, 100'000), numberAt(2, 1000)).run();
}
