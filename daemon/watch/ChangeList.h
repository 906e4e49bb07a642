// Changes on the disk, without repetitions.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace keldane {

/// A part of the disk that has changed.
struct Change {
  enum class Extent {
    entry,   ///< one file or link
    folder,  ///< a folder with its direct entries
    tree     ///< a path with everything below it
  };
  Extent extent = Extent::entry;
  std::string path;
  bool operator==(const Change&) const = default;
};

/// Collects changes, so that a file that changes a hundred times is looked at once. Used on one thread.
class ChangeList {
 public:
  void addEntry(const std::string& folder, const std::string& name);
  void addFolder(const std::string& folder);
  void addTree(const std::string& place);
  bool isEmpty() const { return folders_.empty() && trees_.empty(); }
  /// All changes, trees first, without those that lie in one of the trees. The list is empty afterwards.
  std::vector<Change> take();

 private:
  struct Entries {
    bool all = false;
    std::set<std::string> names;
  };
  bool isInTree(const std::string& path) const;

  std::map<std::string, Entries> folders_;
  std::set<std::string, std::less<>> trees_;
};

}  // namespace keldane
