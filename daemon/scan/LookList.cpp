#include "daemon/scan/LookList.h"

#include <utility>

#include "platform/files/Path.h"

namespace keldane {

void LookList::add(const Change& change) {
  const bool isTree = change.extent == Change::Extent::tree;
  if (!waiting_.emplace(change.path, isTree).second) {
    return;
  }
  if (isTree) {
    trees_.push_back(change.path);
  } else {
    smalls_.push_back(change);
  }
}

const Change* LookList::takeSmall() {
  if (!small_ && !smalls_.empty()) {
    small_ = std::move(smalls_.front());
    smalls_.pop_front();
    waiting_.erase({small_->path, false});
  }
  return small_ ? &*small_ : nullptr;
}

std::optional<std::string> LookList::takeTree() {
  if (trees_.empty()) {
    return std::nullopt;
  }
  std::string place = std::move(trees_.front());
  trees_.pop_front();
  waiting_.erase({place, true});
  return place;
}

bool LookList::hasBelow(const std::string& folder) const {
  const auto isBelow = [&](const auto& place) {
    return place != waiting_.end() && isAtOrBelow(place->first, folder);
  };
  const std::string below = folder == "/" ? folder : folder + '/';
  return isBelow(waiting_.lower_bound({below, false})) || waiting_.contains({folder, false}) ||
         waiting_.contains({folder, true}) || (small_ && isAtOrBelow(small_->path, folder));
}

bool LookList::covers(const std::string& path) const {
  if (waiting_.empty() && !small_) {
    return false;
  }
  const std::string parent(parentPath(path));
  for (const std::string& small : {path, parent}) {
    if (waiting_.contains({small, false}) || (small_ && small_->path == small)) {
      return true;
    }
  }
  for (std::string above = path;; above = parentPath(above)) {
    if (waiting_.contains({above, true})) {
      return true;
    }
    if (above.size() <= 1) {
      return false;
    }
  }
}

}  // namespace keldane
