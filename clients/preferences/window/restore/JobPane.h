// A running restore, and its result.
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

/// Follows one job of the daemon to its end. The job goes on without the window; a job that runs when the
/// window opens is followed from there.
class JobPane : public Gtk::Box {
 public:
  /// Called with the sentence about each job that has ended, and whether the job did everything that it was
  /// asked to do.
  using Finished = std::function<void(const std::string& result, bool isWhole)>;

  JobPane(DaemonDesk& desk, Finished finished);
  ~JobPane() override;

  bool isFollowing() const { return job_ != 0; }
  /// `folder` is the restore's target, for the button; empty when it is not known.
  void follow(std::uint64_t job, const std::string& folder);
  /// Shows a sentence instead, for a job that was not started.
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

/// The result of a job, in a sentence.
std::string restoreResult(const PropertyList& report);

}  // namespace keldane
