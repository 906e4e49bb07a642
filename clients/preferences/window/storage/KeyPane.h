// The key, and the ways to keep a copy of it.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/flowbox.h>
#include <gtkmm/label.h>

#include <functional>
#include <string>

#include "clients/core/key/KeySheet.h"
#include "clients/preferences/window/DaemonDesk.h"
#include "clients/preferences/window/FolderChooser.h"

namespace keldane {

/// Asks the daemon for the key when it is to be shown or copied, and forgets it when it is hidden. A sentence
/// tells where copies were made.
class KeyPane : public Gtk::Box {
 public:
  /// `kept` is called when a copy was made.
  KeyPane(DaemonDesk& desk, std::function<void()> kept);

  /// Shows the key.
  void reveal();
  void hideKey();

 private:
  using Use = void (KeyPane::*)(const KeySheet&);
  void addButton(Gtk::Button& button, const std::function<void()>& clicked);
  /// Asks for the key and calls `use` with it.
  void with(Use use);
  void showKey(const KeySheet& sheet);
  void saveKey(const KeySheet& sheet);
  void saveSheet(const KeySheet& sheet);
  void print(const KeySheet& sheet);
  void keepInKeyRing(const KeySheet& sheet);
  void write(const std::string& path, const std::string& text, const char* done);
  void say(const std::string& sentence);

  DaemonDesk& desk_;
  const std::function<void()> kept_;
  std::string keyFile_, sheetFile_;  // chosen files, which are written once the key is there
  FolderChooser keyChooser_, sheetChooser_;
  Gtk::Label key_, said_;
  Gtk::FlowBox buttons_;
  Gtk::Button show_, saveKey_, saveSheet_, print_, keyRing_;
};

}  // namespace keldane
