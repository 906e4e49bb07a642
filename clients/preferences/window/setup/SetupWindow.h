// The first set-up, in four steps.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/checkbutton.h>
#include <gtkmm/label.h>
#include <gtkmm/scrolledwindow.h>
#include <gtkmm/spinner.h>
#include <gtkmm/stack.h>
#include <gtkmm/window.h>

#include <functional>
#include <string>

#include "clients/preferences/window/setup/FoldersStep.h"
#include "clients/preferences/window/setup/PlaceStep.h"
#include "clients/preferences/window/storage/KeyPane.h"

namespace keldane {

/// The steps are the place, the key, the folders, and the end. The place is tried when the first step ends,
/// and it is taken only when the daemon could store there; nothing is changed before. Closing the window puts
/// off the steps that are left.
class SetupWindow : public Gtk::Window {
 public:
  /// `changed` is called when there is another repository.
  SetupWindow(DaemonDesk& desk, std::function<void()> changed);

  /// Begins at the first step; `repository` is the daemon's answer to `repository:`.
  void begin(const PropertyList& repository);

 private:
  static constexpr std::size_t kSteps = 4;

  void addSteps();
  void addButtons();
  void addKeyStep();
  void go(std::size_t step);
  void next();
  void setUp();
  void showNext();

  DaemonDesk& desk_;
  const std::function<void()> changed_;
  std::size_t step_ = 0;
  bool busy_ = false, kept_ = false;
  std::string readyAt_;  // the location of a repository that is ready; empty while there is none
  Gtk::Box content_, keyStep_, doneStep_, buttons_;
  Gtk::Label now_, progress_, done_;
  Gtk::Stack stack_;
  Gtk::ScrolledWindow scroller_;
  PlaceStep place_;
  KeyPane key_;
  Gtk::CheckButton withoutCopy_;
  FoldersStep folders_;
  Gtk::Spinner spinner_;
  Gtk::Button later_, next_;
};

}  // namespace keldane
