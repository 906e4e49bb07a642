#include "daemon/backup/batch/Targets.h"

#include <dirent.h>

#include <memory>

#include "daemon/scan/disk/FileFacts.h"
#include "platform/files/Path.h"

namespace keldane {

namespace {

enum class Kind { folder, file, other };

struct FolderEntry {
  std::string path;
  Kind kind;
};

Kind kindOf(const std::string& path, unsigned char type) {
  if (type == DT_UNKNOWN) {
    const std::optional<struct stat> status = statusOf(path);
    return !status                    ? Kind::other
           : S_ISDIR(status->st_mode) ? Kind::folder
           : isStorable(*status)      ? Kind::file
                                      : Kind::other;
  }
  return type == DT_DIR ? Kind::folder : type == DT_REG || type == DT_LNK ? Kind::file : Kind::other;
}

// The entries are read at one time, so that a deep tree does not need a descriptor for each level.
std::vector<FolderEntry> entriesOf(const std::string& folder) {
  std::vector<FolderEntry> entries;
  const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir(folder.c_str()), closedir);
  while (const dirent* entry = open ? readdir(open.get()) : nullptr) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      std::string path = appendPathComponent(folder, name);
      const Kind kind = kindOf(path, entry->d_type);
      entries.push_back({std::move(path), kind});
    }
  }
  return entries;
}

class TargetWalk {
 public:
  TargetWalk(const RuleBook& rules, const WantedFile& wanted) : rules_(rules), wanted_(wanted) {}

  /// Whether everything in the folder is wanted. If not, the wanted parts have been added to the targets.
  bool isWhole(const std::string& folder) {
    const Decision decision = rules_.decide(folder, true);
    if (decision.barred) {
      return false;
    }
    std::vector<std::string> parts;
    bool whole = true;
    for (const FolderEntry& entry : entriesOf(folder)) {
      const bool isPart = entry.kind == Kind::folder ? isWhole(entry.path)
                          : entry.kind == Kind::file ? wanted_(entry.path)
                                                     : rules_.decide(entry.path, false).selected;
      if (isPart) {
        parts.push_back(entry.path);
      }
      whole = whole && isPart;
    }
    if (whole && (decision.selected || !parts.empty())) {
      return true;
    }
    targets_.insert(targets_.end(), parts.begin(), parts.end());
    return false;
  }

  std::vector<std::string> targets_;

 private:
  const RuleBook& rules_;
  const WantedFile& wanted_;
};

}  // namespace

std::vector<std::string> targetsIn(const std::vector<std::string>& places, const RuleBook& rules,
                                   const WantedFile& wanted) {
  TargetWalk walk(rules, wanted);
  for (const std::string& place : places) {
    const std::optional<struct stat> status = statusOf(place);
    if (status && (S_ISDIR(status->st_mode) ? walk.isWhole(place) : isStorable(*status) && wanted(place))) {
      walk.targets_.push_back(place);
    }
  }
  return walk.targets_;
}

}  // namespace keldane
