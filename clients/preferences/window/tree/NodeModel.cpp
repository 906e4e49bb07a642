#include "clients/preferences/window/tree/NodeModel.h"

#include <vector>

#include "clients/core/words/Printable.h"
#include "clients/preferences/words/Translation.h"
#include "platform/files/Path.h"

namespace keldane {

namespace {

Glib::RefPtr<Gio::ListModel> childrenOf(const Glib::RefPtr<Glib::ObjectBase>& item) {
  const auto node = std::dynamic_pointer_cast<NodeItem>(item);
  return node ? node->children : nullptr;
}

Glib::RefPtr<NodeItem> placeholder(NodeItem::Kind kind) {
  const Glib::RefPtr<NodeItem> item = NodeItem::create(kind);
  item->title = kind == NodeItem::Kind::asking ? tr("Asking the daemon…") : tr("Nothing to show here.");
  return item;
}

}  // namespace

NodeModel::NodeModel()
    : top_(Children::create()), list_(Gtk::TreeListModel::create(top_, sigc::ptr_fun(&childrenOf))) {}

NodeModel::Item NodeModel::itemAt(const std::string& path) const {
  const auto found = items_.find(path);
  return found == items_.end() ? nullptr : found->second;
}

void NodeModel::setTop(const TopRow& top) {
  if (const Item known = itemAt(top.row.path); known && !top.fresh) {
    fill(known, top.row);
    return;
  }
  items_.clear();
  top_->remove_all();
  const Item item = items_[top.row.path] = NodeItem::create(NodeItem::Kind::node);
  fill(item, top.row);
  item->title = printable(top.row.path);
  top_->append(item);
}

void NodeModel::change(const FolderChange& change) {
  if (const Item folder = itemAt(change.folder); folder && folder->children) {
    addRows(folder, change.added);
    settlePlaceholder(folder);
  }
  for (const NodeRow& row : change.changed) {
    if (const Item item = itemAt(row.path)) {
      fill(item, row);
    }
  }
  for (const std::string& path : change.removed) {
    remove(path);
  }
}

void NodeModel::forget(const Item& folder) {
  forgetRowsBelow(folder);
  folder->children->splice(0, folder->children->get_n_items(), {placeholder(NodeItem::Kind::asking)});
}

void NodeModel::fill(const Item& item, const NodeRow& row) {
  item->row = row;
  if (item->title.empty()) {
    item->title = row.name;
  }
  if (row.isFolder && !item->children) {
    item->children = Children::create();
    item->children->append(placeholder(NodeItem::Kind::asking));
  }
  item->changed.emit();
}

// Rows come from the last to the first. Rows that stand side by side are inserted together, because the view
// examines all visible rows after each change.
void NodeModel::addRows(const Item& folder, const std::vector<AddedRow>& rows) {
  std::vector<Item> block;  // the last one first
  std::string before;
  const auto put = [&] {
    if (!block.empty()) {
      lastPlace_ = placeBefore(folder, before);
      folder->children->splice(lastPlace_, 0, {block.rbegin(), block.rend()});
      block.clear();
    }
  };
  for (const AddedRow& added : rows) {
    if (const Item known = itemAt(added.row.path)) {
      fill(known, added.row);
      continue;
    }
    if (block.empty() || block.back()->row.path != added.before) {
      put();
      before = added.before;
    }
    const Item item = items_[added.row.path] = NodeItem::create(NodeItem::Kind::node);
    fill(item, added.row);
    block.push_back(item);
  }
  put();
}

// Rows come from the last to the first, so the next one stands where the last one was put.
guint NodeModel::placeBefore(const Item& folder, const std::string& path) const {
  const guint count = folder->children->get_n_items();
  const Item next = path.empty() ? nullptr : itemAt(path);
  if (!next) {
    return count;
  }
  if (lastPlace_ < count && folder->children->get_item(lastPlace_) == next) {
    return lastPlace_;
  }
  const auto [found, place] = folder->children->find(next);
  return found ? place : count;
}

// A placeholder row says that the daemon is being asked or that the folder is empty. It stands there only
// while the folder has no other row.
void NodeModel::settlePlaceholder(const Item& folder) {
  const guint count = folder->children->get_n_items();
  if (count == 0) {
    folder->children->append(placeholder(NodeItem::Kind::empty));
    return;
  }
  for (const guint place : {guint{0}, count - 1}) {
    const Item item = folder->children->get_item(place);
    if (item->kind == NodeItem::Kind::node || (count == 1 && item->kind == NodeItem::Kind::empty)) {
      continue;
    }
    folder->children->remove(place);
    settlePlaceholder(folder);
    return;
  }
}

void NodeModel::remove(const std::string& path) {
  const Item item = itemAt(path), folder = itemAt(std::string(parentPath(path)));
  if (!item) {
    return;
  }
  forgetRowsBelow(item);
  items_.erase(path);
  if (!folder || !folder->children) {
    return;
  }
  if (const auto [found, place] = folder->children->find(item); found) {
    folder->children->remove(place);
  }
  settlePlaceholder(folder);
}

// Not recursive, so any depth of the tree is safe.
void NodeModel::forgetRowsBelow(const Item& item) {
  std::vector<Item> left = {item};
  while (!left.empty()) {
    const Item folder = left.back();
    left.pop_back();
    for (guint i = 0; folder->children && i < folder->children->get_n_items(); ++i) {
      const Item child = folder->children->get_item(i);
      items_.erase(child->row.path);
      left.push_back(child);
    }
  }
}

}  // namespace keldane
