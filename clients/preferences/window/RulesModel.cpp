#include "clients/preferences/window/RulesModel.h"

#include <iterator>
#include <vector>

#include "clients/core/Printable.h"
#include "clients/preferences/window/Translation.h"

namespace keldane {

RulesModel::Columns::Columns() {
  add(path);
  for (Gtk::TreeModelColumn<Glib::ustring>* column : {&name, &state, &size, &date, &icon}) {
    add(*column);
  }
  for (Gtk::TreeModelColumn<bool>* column : {&checked, &partly, &enabled, &isRule}) {
    add(*column);
  }
}

RulesModel::RulesModel() : store_(Gtk::TreeStore::create(columns_)) {}

std::optional<Gtk::TreeModel::Path> RulesModel::top() const {
  return store_->children().empty() ? std::nullopt
                                    : std::optional(store_->get_path(store_->children().begin()));
}

void RulesModel::setTop(const TopRow& top) {
  const auto known = rows_.find(top.row.path);
  if (!top.fresh && known != rows_.end()) {
    fill(known->second, top.row);
    return;
  }
  rows_.clear();
  store_->clear();
  const Iterator row = rows_[top.row.path] = store_->append();
  fill(row, top.row);
}

void RulesModel::change(const FolderChange& change) {
  const auto folder = rows_.find(change.folder);
  if (folder != rows_.end()) {
    for (const AddedRow& added : change.added) {
      add(folder->second, added);
    }
    removePlaceholder(folder->second);
  }
  for (const RuleRow& rule : change.changed) {
    const auto found = rows_.find(rule.path);
    if (found != rows_.end()) {
      fill(found->second, rule);
    }
  }
  for (const std::string& path : change.removed) {
    remove(path);
  }
}

void RulesModel::forget(const Iterator& folder) {
  forgetRowsBelow(folder);
  addPlaceholder(folder);
  for (Iterator row = std::next(folder->children().begin()); row;) {
    row = store_->erase(row);
  }
}

void RulesModel::fill(const Iterator& row, const RuleRow& rule) {
  const char* const icon = rule.isFolder ? "folder" : "text-x-generic";
  const bool wasFolder = (*row)[columns_.icon] == Glib::ustring("folder");
  (*row)[columns_.path] = rule.path;
  (*row)[columns_.name] = store_->iter_depth(row) == 0 ? printable(rule.path) : rule.name;
  // In words too, because not everybody sees how a box is drawn.
  (*row)[columns_.state] =
      rule.checked && rule.partly ? filled(tr("%s, not all of it"), rule.state) : rule.state;
  (*row)[columns_.size] = rule.size;
  (*row)[columns_.date] = rule.date;
  (*row)[columns_.icon] = icon;
  (*row)[columns_.checked] = rule.checked;
  (*row)[columns_.partly] = rule.partly;
  (*row)[columns_.enabled] = rule.enabled;
  (*row)[columns_.isRule] = true;
  if (rule.isFolder && !wasFolder && row->children().empty()) {
    addPlaceholder(row);
  }
}

void RulesModel::add(const Iterator& folder, const AddedRow& added) {
  const auto known = rows_.find(added.row.path);
  if (known != rows_.end()) {
    fill(known->second, added.row);
    return;
  }
  const auto next = rows_.find(added.before);
  const Iterator row =
      next == rows_.end() ? store_->append(folder->children()) : store_->insert(next->second);
  rows_[added.row.path] = row;
  fill(row, added.row);
}

void RulesModel::remove(const std::string& path) {
  const auto found = rows_.find(path);
  if (found == rows_.end()) {
    return;
  }
  const Iterator row = found->second;
  rows_.erase(found);
  forgetRowsBelow(row);
  store_->erase(row);
}

// Not recursive: how deep a tree is does not matter.
void RulesModel::forgetRowsBelow(const Iterator& row) {
  std::vector<Iterator> left = {row};
  while (!left.empty()) {
    const Iterator folder = left.back();
    left.pop_back();
    for (Iterator child = folder->children().begin(); child; ++child) {
      rows_.erase((*child)[columns_.path]);
      left.push_back(child);
    }
  }
}

void RulesModel::addPlaceholder(const Iterator& folder) {
  const Iterator row = store_->prepend(folder->children());
  (*row)[columns_.name] = tr("Asking the daemon…");
}

void RulesModel::removePlaceholder(const Iterator& folder) {
  const Iterator first = folder->children().begin();
  if (first && !(*first)[columns_.isRule]) {
    store_->erase(first);
  }
}

}  // namespace keldane
