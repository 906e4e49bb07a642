// What has changed, brought together.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace keldane {

/// What is to be looked at.
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

/// Gathers changes, so that what changes a hundred times is looked at once. One thread.
class ChangeList {
 public:
  void addEntry(const std::string& folder, const std::string& name);
  void addFolder(const std::string& folder);
  void addTree(const std::string& place);
  bool isEmpty() const { return folders_.empty() && trees_.empty(); }
  /// All of them, trees first, less what lies in a tree that is named already. The list is empty afterwards.
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
