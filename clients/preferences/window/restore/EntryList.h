// A list of stored files and versions, each with a check box.
#pragma once

#include <giomm/liststore.h>
#include <gtkmm/columnview.h>
#include <gtkmm/scrolledwindow.h>
#include <gtkmm/signallistitemfactory.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace keldane {

/// A file or a version that can be restored.
struct StoredEntry {
  std::string path;
  std::uint64_t version = 0;  ///< 0 for the newest
  std::string title, state, size, date;
  bool isFolder = false;
};

/// The list itself keeps the ticks. Used on the window's thread.
class EntryList : public Gtk::ScrolledWindow {
 public:
  EntryList(const char* name, const char* firstTitle, std::function<void()> selectionChanged);

  void show(std::vector<StoredEntry> entries);
  std::vector<StoredEntry> selected() const;

 private:
  class Item;
  using Items = Gio::ListStore<Item>;

  void addBoxes();
  void addTexts(const char* title, std::string StoredEntry::*text, bool wide, float alignment);

  const std::function<void()> selectionChanged_;
  const Glib::RefPtr<Items> items_;
  Gtk::ColumnView view_;
};

}  // namespace keldane
