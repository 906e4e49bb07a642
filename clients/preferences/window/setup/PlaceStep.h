// The first step of the set-up: the place of the backup.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/checkbutton.h>
#include <gtkmm/dropdown.h>
#include <gtkmm/entry.h>
#include <gtkmm/grid.h>
#include <gtkmm/label.h>
#include <gtkmm/passwordentry.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "clients/core/place/MountedDisks.h"
#include "clients/preferences/window/DaemonDesk.h"
#include "clients/preferences/words/ServerPlace.h"

namespace keldane {

/// Shows what each kind of place needs, and the connected disks as they come and go.
class PlaceStep : public Gtk::Box {
 public:
  explicit PlaceStep(DaemonDesk& desk);
  ~PlaceStep() override;

  /// Offers to go on with a backup that exists already.
  void setExistingIsOffered(bool offered) { existing_.set_visible(offered); }
  /// Takes the daemon's own folder, for a repository on this disk.
  void setDataFolder(const std::string& folder) { dataFolder_ = folder; }
  /// The keys of a request for `setUpRepository:`. Absent, with a sentence shown, while something is missing.
  std::optional<PropertyList::Entries> request();
  void say(const std::string& sentence);

 private:
  void addThisDisk();
  void addDisks();
  void addServer();
  void addExisting();
  void showKind();
  void lookForDisks();
  void showDisks(const std::vector<MountedDisk>& disks);
  void showServerKind();
  ServerPlace place(std::string& problem) const;

  DaemonDesk& desk_;
  std::string dataFolder_;
  std::vector<MountedDisk> disks_;
  bool looking_ = false;
  sigc::connection timer_;
  Gtk::CheckButton thisDisk_, externalDisk_, server_;
  Gtk::Label warning_, noDisk_;
  Gtk::Box diskBox_;
  Gtk::DropDown diskChoice_, serverKind_;
  Gtk::Grid serverGrid_;
  std::array<Gtk::Label, 2> fieldTitles_;
  std::array<Gtk::Entry, 2> fields_;
  Gtk::Label secretTitle_;
  Gtk::PasswordEntry secret_;
  Gtk::CheckButton existing_;
  Gtk::PasswordEntry existingKey_;
  Gtk::Label problem_;
};

}  // namespace keldane
