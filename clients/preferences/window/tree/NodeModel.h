// The rows of a tree, in the form that the toolkit needs.
#pragma once

#include <gtkmm/treelistmodel.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "clients/preferences/window/tree/NodeItem.h"
#include "clients/preferences/worker/Updates.h"

namespace keldane {

/// Holds only what the view shows; the daemon's thread holds everything else about a file. A folder whose
/// content was not loaded holds one row that says so, and an empty folder holds one that says that it is
/// empty. Used on the window's thread.
class NodeModel {
 public:
  using Item = Glib::RefPtr<NodeItem>;

  NodeModel();

  const Glib::RefPtr<Gtk::TreeListModel>& list() const { return list_; }

  void setTop(const TopRow& top);
  void change(const FolderChange& change);
  /// Removes the rows of a folder.
  void forget(const Item& folder);

 private:
  using Children = Gio::ListStore<NodeItem>;

  void fill(const Item& item, const NodeRow& row);
  void addRows(const Item& folder, const std::vector<AddedRow>& rows);
  void remove(const std::string& path);
  void forgetRowsBelow(const Item& item);
  Item itemAt(const std::string& path) const;
  guint placeBefore(const Item& folder, const std::string& path) const;
  void settlePlaceholder(const Item& folder);

  const Glib::RefPtr<Children> top_;
  const Glib::RefPtr<Gtk::TreeListModel> list_;
  std::unordered_map<std::string, Item> items_;
  guint lastPlace_ = 0;  // the place of the last new row; the next one usually belongs beside it
};

}  // namespace keldane
