// The rules in force, as a tree with check boxes.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/filechooserdialog.h>
#include <gtkmm/label.h>
#include <gtkmm/scrolledwindow.h>
#include <gtkmm/treeview.h>

#include <functional>
#include <memory>
#include <string>

#include "clients/preferences/window/RulesModel.h"

namespace keldane {

/// A box shows what the daemon says; ticking it asks for a change and changes nothing by itself.
class RulesPane : public Gtk::Box {
 public:
  /// What the pane wants of the daemon.
  struct Wishes {
    std::function<void(const std::string&folder)> open, lookInto, close;
    std::function<void(const std::string& path, bool included)> setIncluded;
  };

  explicit RulesPane(Wishes wishes);

  void setTop(const TopRow& top);
  void change(const FolderChange& change) { model_.change(change); }

 private:
  void addColumns();
  void addText(const char* title, const Gtk::TreeModelColumn<Glib::ustring>& column, float alignment);
  void activated(const Gtk::TreeModel::Path& row, const Gtk::TreeViewColumn& column);
  void tick(const Gtk::TreeModel::Path& row);
  void chooseFolder();

  const Wishes wishes_;
  RulesModel model_;
  Gtk::Box heading_;
  Gtk::Label explanation_;
  Gtk::Button another_;
  Gtk::ScrolledWindow scroller_;
  Gtk::TreeView view_;
  Gtk::TreeViewColumn boxes_;
  std::unique_ptr<Gtk::FileChooserDialog> chooser_;
};

}  // namespace keldane
