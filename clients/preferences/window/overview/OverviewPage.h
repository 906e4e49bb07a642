// The page with the state of the backup, its failures, and what file managers show of it.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/grid.h>
#include <gtkmm/image.h>
#include <gtkmm/label.h>
#include <gtkmm/listbox.h>
#include <gtkmm/scrolledwindow.h>
#include <gtkmm/separator.h>

#include <functional>
#include <optional>
#include <string>

#include "clients/preferences/window/DaemonDesk.h"
#include "clients/preferences/window/overview/AlertsPane.h"
#include "clients/preferences/window/overview/FileManagerPane.h"
#include "clients/preferences/window/overview/StatusPane.h"
#include "clients/preferences/words/Headline.h"

namespace keldane {

/// A true sentence stands at the top, with the button that mends what is wrong.
class OverviewPage : public Gtk::ScrolledWindow {
 public:
  /// Leads to other pages.
  struct Ways {
    std::function<void()> setUp, showStorage, chooseFiles;
  };

  OverviewPage(DaemonDesk& desk, AlertKeeper& alerts, Ways ways);

  void show(const StatusSnapshot& snapshot);
  /// Shows a sentence instead of the daemon's own words, for when it has none.
  void say(const std::string& sentence);
  /// The headline that the page shows; absent while it shows a sentence of its own.
  std::optional<Headline> shownHeadline() const;
  /// Takes the answer to `repository:`, which is absent when there is none.
  void showRepository(const PropertyList& repository);

 private:
  void addFailures();
  void showHeadline();
  void mend();
  void askForFailures();
  void showFailures(const OwnerAnswer& answer);

  DaemonDesk& desk_;
  const Ways ways_;
  StatusSnapshot status_;
  PropertyList repository_;
  Remedy remedy_ = Remedy::none;
  bool said_ = true;  // whether a sentence stands instead of the daemon's words
  std::uint32_t failuresShown_ = 0;
  Gtk::Box content_, headlineBox_;
  Gtk::Image icon_;
  Gtk::Label headline_, age_;
  Gtk::Button mend_;
  StatusPane statusPane_;
  Gtk::Box failuresBox_;
  Gtk::Label failuresTitle_, failuresMore_;
  Gtk::ListBox failures_;
  AlertsPane alerts_;
  FileManagerPane fileManagerPane_;
};

}  // namespace keldane
