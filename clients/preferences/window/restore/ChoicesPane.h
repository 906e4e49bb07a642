// Where something is restored to, what becomes of what is there, and as of when.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/calendar.h>
#include <gtkmm/checkbutton.h>
#include <gtkmm/dropdown.h>
#include <gtkmm/entry.h>
#include <gtkmm/grid.h>
#include <gtkmm/label.h>
#include <gtkmm/menubutton.h>
#include <gtkmm/popover.h>

#include <functional>
#include <string>
#include <vector>

#include "clients/preferences/window/FolderChooser.h"
#include "clients/preferences/window/restore/TimeLine.h"
#include "platform/plist/PropertyList.h"

namespace keldane {

/// Unless somebody chooses otherwise, things come back to their own places as they were stored last, under
/// another name where something is there.
class ChoicesPane : public Gtk::Grid {
 public:
  /// `dateChosen` is called when another date was chosen: seconds since the UNIX epoch, or 0 for the present.
  explicit ChoicesPane(std::function<void(double time)> dateChosen);
  ~ChoicesPane() override;

  /// When there were backups, oldest first.
  void showBackups(const std::vector<double>& times) { timeLine_.show(times); }
  /// Versions have a date of their own.
  void setDateIsOffered(bool offered);
  /// False, with a sentence shown, while what was typed is no date or no folder was chosen.
  bool isComplete();
  /// The keys "target", "conflict" and "before" of a request, those that are chosen.
  PropertyList::Entries request() const;
  /// The folder that was chosen; empty for the own places.
  std::string target() const { return into_.get_active() ? folder_ : std::string(); }

 private:
  void addDate();
  void addTarget();
  void addConflict();
  void setTarget(const std::string& folder);

  void dateTyped();

  const std::function<void(double)> dateChosen_;
  double time_ = 0;  // what was told of last
  sigc::connection typing_;
  bool dateIsOffered_ = true;
  std::string folder_;
  Gtk::Label dateTitle_, targetTitle_, conflictTitle_, problem_;
  TimeLine timeLine_;
  Gtk::Box dateBox_, targetBox_;
  Gtk::Entry date_;
  Gtk::MenuButton calendarButton_;
  Gtk::Popover popover_;
  Gtk::Calendar calendar_;
  Gtk::CheckButton own_, into_;
  Gtk::Button choose_;
  Gtk::DropDown conflict_;
  FolderChooser chooser_;
};

}  // namespace keldane
