// The rows of the tree of rules, as the toolkit wants them.
#pragma once

#include <gtkmm/treestore.h>

#include <optional>
#include <string>
#include <unordered_map>

#include "clients/preferences/worker/Updates.h"

namespace keldane {

/// What the view shows and nothing more: all that is known of a file lies with the daemon's thread. A folder
/// that was not looked into holds one row that says so. The window's thread.
class RulesModel {
 public:
  using Iterator = Gtk::TreeModel::iterator;

  struct Columns : Gtk::TreeModelColumnRecord {
    Columns();
    Gtk::TreeModelColumn<std::string> path;  // empty in a row that stands for what is not loaded
    Gtk::TreeModelColumn<Glib::ustring> name, state, size, date, icon;
    Gtk::TreeModelColumn<bool> checked, partly, enabled, isRule;
  };

  RulesModel();

  const Columns& columns() const { return columns_; }
  const Glib::RefPtr<Gtk::TreeStore>& store() const { return store_; }

  /// The top row's place, once there is one.
  std::optional<Gtk::TreeModel::Path> top() const;
  void setTop(const TopRow& top);
  void change(const FolderChange& change);
  /// Forgets what is in a folder.
  void forget(const Iterator& folder);

 private:
  void fill(const Iterator& row, const RuleRow& rule);
  void add(const Iterator& folder, const AddedRow& added);
  void remove(const std::string& path);
  void forgetRowsBelow(const Iterator& row);
  void addPlaceholder(const Iterator& folder);
  void removePlaceholder(const Iterator& folder);

  const Columns columns_;
  const Glib::RefPtr<Gtk::TreeStore> store_;
  std::unordered_map<std::string, Iterator> rows_;  // a store's iterators last
};

}  // namespace keldane
