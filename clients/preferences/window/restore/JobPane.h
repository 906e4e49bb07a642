// A restore that runs, and what came of it.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/label.h>
#include <gtkmm/progressbar.h>

#include <cstdint>
#include <functional>
#include <string>

#include "clients/preferences/window/DaemonDesk.h"

namespace keldane {

/// Follows one job of the daemon to its end. The job goes on without the window; one that runs when the
/// window opens is followed from there.
class JobPane : public Gtk::Box {
 public:
  /// Is told the sentence about each job that has ended, and whether it has done all that it was to do.
  using Finished = std::function<void(const std::string& result, bool isWhole)>;

  JobPane(DaemonDesk& desk, Finished finished);
  ~JobPane() override;

  bool isFollowing() const { return job_ != 0; }
  /// `folder` is where it restores to, for the button; empty when that is not known.
  void follow(std::uint64_t job, const std::string& folder);
  /// A sentence instead, for a job that was not started.
  void say(const std::string& sentence);

 private:
  void askForReport();
  void showReport(const OwnerAnswer& answer);
  void showProgress(const PropertyList& report);
  void conclude(const PropertyList& report);

  DaemonDesk& desk_;
  const Finished finished_;
  std::uint64_t job_ = 0;
  bool asking_ = false;
  std::string folder_;
  sigc::connection timer_;
  Gtk::ProgressBar progress_;
  Gtk::Label text_, problems_;
  Gtk::Box buttons_;
  Gtk::Button cancel_, open_;
};

/// What came of a job, in a sentence.
std::string restoreResult(const PropertyList& report);

}  // namespace keldane
