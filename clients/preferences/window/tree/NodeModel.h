// The rows of a tree, as the toolkit wants them.
#pragma once

#include <gtkmm/treelistmodel.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "clients/preferences/window/tree/NodeItem.h"
#include "clients/preferences/worker/Updates.h"

namespace keldane {

/// What the view shows and nothing more: all that is known of a file lies with the daemon's thread. A folder
/// that was not looked into holds one row that says so, and an empty one a row that says that. The window's
/// thread.
class NodeModel {
 public:
  using Item = Glib::RefPtr<NodeItem>;

  NodeModel();

  const Glib::RefPtr<Gtk::TreeListModel>& list() const { return list_; }

  void setTop(const TopRow& top);
  void change(const FolderChange& change);
  /// Forgets what is in a folder.
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
  guint lastPlace_ = 0;  // where a row was put last, beside which the next one mostly belongs
};

}  // namespace keldane
