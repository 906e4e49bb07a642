// Moves the backup to another place, with all its versions.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/label.h>
#include <gtkmm/progressbar.h>

#include <functional>
#include <string>

#include "clients/preferences/window/DaemonDesk.h"
#include "clients/preferences/window/setup/PlaceStep.h"

namespace keldane {

/// The daemon moves the backup even when the window is closed; a move that runs is followed when this pane is
/// shown again.
class MovePane : public Gtk::Box {
 public:
  /// `moved` is called when the backup is kept elsewhere.
  MovePane(DaemonDesk& desk, std::function<void()> moved);
  ~MovePane() override;

  /// Takes the daemon's own folder, for a place on this disk.
  void setDataFolder(const std::string& folder) { place_.setDataFolder(folder); }

 private:
  void addQuestion();
  void begin();
  void follow();
  void askForReport();
  void show(const PropertyList& report);
  void conclude(const std::string& sentence);

  DaemonDesk& desk_;
  const std::function<void()> moved_;
  bool begun_ = false, following_ = false, asking_ = false;  // begun: by this window
  sigc::connection timer_;
  Gtk::Button open_;
  Gtk::Box question_, buttons_, progressBox_;
  PlaceStep place_;
  Gtk::Button move_, leave_, cancel_;
  Gtk::ProgressBar progress_;
  Gtk::Label text_;
};

}  // namespace keldane
