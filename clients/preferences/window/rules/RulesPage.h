// The rules in force, as a tree with check boxes, and the reasons for their decisions.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/label.h>

#include <string>

#include "clients/preferences/window/DaemonDesk.h"
#include "clients/preferences/window/FolderChooser.h"
#include "clients/preferences/window/rules/PatternPane.h"
#include "clients/preferences/window/tree/NodeTreeView.h"

namespace keldane {

/// The selected row is explained below the tree: first the rule that decides, then the rules that it
/// outranks.
class RulesPage : public Gtk::Box {
 public:
  explicit RulesPage(DaemonDesk& desk);

  void setTop(const TopRow& top) { tree_.setTop(top); }
  void change(const FolderChange& change) { tree_.change(change); }
  void show(const PathAnswer& answer);

 private:
  void explain(const std::string& path);
  void say(const std::string& path, const std::string& text);

  DaemonDesk& desk_;
  Gtk::Box heading_;
  Gtk::Label explanation_;
  Gtk::Button another_;
  FolderChooser chooser_;
  NodeTreeView tree_;
  Gtk::Label whyTitle_, why_;
  PatternPane pattern_;
  std::string explained_;  // the path that is explained
};

}  // namespace keldane
