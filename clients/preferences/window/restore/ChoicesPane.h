// The target of a restore, what happens to files that are in the way, and the time as of which files are
// restored.
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

/// By default, items come back to their original places in their newest version, under another name where
/// something is there already.
class ChoicesPane : public Gtk::Grid {
 public:
  /// `dateChosen` is called when another date was chosen: seconds since the UNIX epoch, or 0 for the present.
  explicit ChoicesPane(std::function<void(double time)> dateChosen);
  ~ChoicesPane() override;

  /// The times of the backups, oldest first.
  void showBackups(const std::vector<double>& times) { timeLine_.show(times); }
  /// Versions have dates of their own, so no date is offered with them.
  void setDateIsOffered(bool offered);
  /// Returns false and shows a sentence while the typed text is no date or no folder was chosen.
  bool isComplete();
  /// Those of the keys "target", "conflict" and "before" of a request that a person has chosen.
  PropertyList::Entries request() const;
  /// The chosen folder; empty when items go to their original places.
  std::string target() const { return into_.get_active() ? folder_ : std::string(); }

 private:
  void addDate();
  void addTarget();
  void addConflict();
  void setTarget(const std::string& folder);

  void dateTyped();

  const std::function<void(double)> dateChosen_;
  double time_ = 0;  // the time that was last handed to dateChosen
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
