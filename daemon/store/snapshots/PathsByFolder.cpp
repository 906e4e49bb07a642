#include "daemon/store/snapshots/PathsByFolder.h"

#include <algorithm>

#include "platform/files/Path.h"

namespace keldane {

PathsByFolder::PathsByFolder(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    add(path);
  }
}

void PathsByFolder::add(std::string_view path) {
  const std::string_view folder = parentPath(path);
  auto names = folders_.find(folder);
  if (names == folders_.end()) {
    names = folders_.try_emplace(std::string(folder)).first;
  }
  names->second.append(entryName(path)) += '\0';
  ++size_;
  asked_.clear();
}

bool PathsByFolder::contains(std::string_view path) const {
  const std::string_view folder = parentPath(path);
  if (asked_ != folder) {
    asked_ = folder;
    names_.clear();
    const auto found = folders_.find(folder);
    std::string_view rest = found == folders_.end() ? std::string_view() : found->second;
    for (; !rest.empty(); rest.remove_prefix(names_.back().size() + 1)) {
      names_.push_back(rest.substr(0, rest.find('\0')));
    }
    std::ranges::sort(names_);
  }
  return std::ranges::binary_search(names_, entryName(path));
}

std::string PathsByFolder::Reader::next() {
  if (offset_ == folder_->second.size()) {
    ++folder_;
    offset_ = 0;
  }
  const std::string_view name = folder_->second.c_str() + offset_;
  offset_ += name.size() + 1;
  return appendPathComponent(folder_->first, name);
}

}  // namespace keldane
