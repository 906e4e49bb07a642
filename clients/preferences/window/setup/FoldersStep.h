// The third step of the set-up: the choice of the folders.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/checkbutton.h>
#include <gtkmm/label.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "clients/preferences/window/DaemonDesk.h"

namespace keldane {

/// The user's own folders with their sizes, which appear as they become known.
class FoldersStep : public Gtk::Box {
 public:
  explicit FoldersStep(DaemonDesk& desk);

  /// Sends a rule for each ticked folder and returns their number.
  std::size_t apply();

 private:
  struct Folder {
    std::string path;
    Gtk::CheckButton box;
    Gtk::Label sizeText;
    std::uint64_t files = 0, bytes = 0;
    bool isKnown = false;
  };

  void add(const std::string& path, bool ticked);
  void measure(std::size_t place);
  void showSum();

  DaemonDesk& desk_;
  bool measuring_ = false;
  std::vector<std::unique_ptr<Folder>> folders_;
  Gtk::Label sum_;
};

}  // namespace keldane
