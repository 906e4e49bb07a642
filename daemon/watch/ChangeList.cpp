#include "daemon/watch/ChangeList.h"

#include <utility>

#include "platform/files/Path.h"

namespace keldane {

namespace {

// With more changed names than this, one look at the whole folder is quicker than a look at each name.
constexpr std::size_t kMostNames = 64;

}  // namespace

void ChangeList::addEntry(const std::string& folder, const std::string& name) {
  Entries& entries = folders_[folder];
  if (!entries.all) {
    entries.names.insert(name);
    if (entries.names.size() > kMostNames) {
      entries = {true, {}};
    }
  }
}

void ChangeList::addFolder(const std::string& folder) { folders_[folder] = {true, {}}; }

void ChangeList::addTree(const std::string& place) { trees_.insert(place); }

// Whether the list has a tree above the path. The path itself does not count.
bool ChangeList::isInTree(const std::string& path) const {
  for (std::string_view above = path; above.size() > 1;) {
    above = parentPath(above);
    if (trees_.contains(above)) {
      return true;
    }
  }
  return false;
}

std::vector<Change> ChangeList::take() {
  std::vector<Change> changes;
  for (const std::string& tree : trees_) {
    if (!isInTree(tree)) {
      changes.push_back({Change::Extent::tree, tree});
    }
  }
  for (const auto& [folder, entries] : folders_) {
    if (trees_.contains(folder) || isInTree(folder)) {
      continue;
    }
    if (entries.all) {
      changes.push_back({Change::Extent::folder, folder});
    }
    for (const std::string& name : entries.names) {
      std::string path = appendPathComponent(folder, name);
      if (!trees_.contains(path)) {
        changes.push_back({Change::Extent::entry, std::move(path)});
      }
    }
  }
  folders_.clear();
  trees_.clear();
  return changes;
}

}  // namespace keldane
