// The changes that the scanning thread has not looked at yet.
#pragma once

#include <deque>
#include <optional>
#include <set>
#include <string>

#include "daemon/watch/ChangeList.h"

namespace keldane {

/// Changes in the order in which they came, each once. Files and folders come before trees, because trees
/// take long. A change that was taken counts as waiting until it is done. Used by one thread at a time.
class LookList {
 public:
  void add(const Change& change);
  void addTree(const std::string& place) { add({Change::Extent::tree, place}); }

  /// The next file or folder, or null. One that was taken before and is not done is answered again.
  const Change* takeSmall();
  void smallIsDone() { small_.reset(); }
  std::optional<std::string> takeTree();

  bool empty() const { return waiting_.empty() && !small_; }
  std::size_t size() const { return waiting_.size() + (small_ ? 1 : 0); }
  /// Whether a change at or below a folder waits.
  bool hasBelow(const std::string& folder) const;
  /// Whether one of the waiting changes includes a path.
  bool covers(const std::string& path) const;

 private:
  std::deque<Change> smalls_;
  std::deque<std::string> trees_;
  std::set<std::pair<std::string, bool>> waiting_;  // path, and whether it is a tree
  std::optional<Change> small_;
};

}  // namespace keldane
