// The rules that decide what belongs into the backup.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Common/calls/DaemonProtocol.h"
#include "daemon/rules/IgnoreList.h"
#include "daemon/store/Store.h"
#include "platform/files/Path.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// The answer for one path.
struct Decision {
  bool barred = false;          ///< the policy keeps it out; no rule can bring it in
  bool selected = false;        ///< it belongs into the backup
  std::optional<bool> ownRule;  ///< the rule on the path itself
  bool rulesBelow = false;      ///< rules on something below it
  std::uint32_t typeToggle = 0;
  bool mayHold = false;   ///< a folder in which something may be selected
  std::string ignoredAt;  ///< the ignored path, this one or one above it; empty when none is ignored
  std::string ignoring;   ///< the line of the ignore list that matched
};

/// One of the rules that a path comes under.
struct Reason {
  enum class Kind {
    root,     ///< the path lies outside of the only folder that belongs to the backup, which `rule` names
    policy,   ///< the path lies at or below a barred path, which `rule` names
    own,      ///< a person's rule on the path itself
    type,     ///< the rule for its type
    folder,   ///< the rule of a folder above
    ignored,  ///< the ignore list leaves out `rule`, which is the path or a folder above it
    none      ///< there is no rule
  };
  Kind kind = Kind::none;
  std::string rule;       ///< a path or a type
  bool includes = false;  ///< whether the rule includes the path
  std::string line;       ///< for `ignored`: the line of the ignore list
};

/// The key of the profile value that holds the ignore list.
inline constexpr const char* kIgnoredKey = "Ignored";

/// The prefix of the names of folders in which restores prepare files.
inline constexpr std::string_view kRestoreFolderPrefix = ".keldane-restore-";

/// The rules, in memory and in the store. A path's own rule decides. Then a path is left out when it, or a
/// folder between it and the nearest folder with a rule, is to be ignored. Then the rule for a file's type
/// decides, then the rule of the nearest folder above. Without any rule a path is not in the backup. Paths
/// outside the root, those on the policy list, the repository and unfinished restores are barred. The scanner
/// notes here the marks that it finds on the disk, which outlive a restart. Used on any thread.
class RuleBook {
 public:
  static constexpr std::size_t kMostRules = 250'000;

  /// `policy` lists the barred paths. Everything below them is barred too.
  RuleBook(Store& store, std::string root, std::vector<std::string> policy,
           std::size_t mostRules = kMostRules);

  Decision decide(const std::string& path, bool isDirectory) const;
  /// The reasons for the decision: every rule that applies to a path. The deciding one comes first, then
  /// those that it outranks, in their order. Never empty.
  std::vector<Reason> explain(const std::string& path, bool isDirectory) const;
  /// Whether all files directly in a folder are selected, or none; absent when each has to be asked about.
  std::optional<bool> decideFiles(const std::string& folder) const;

  /// Sets a rule. Returns false when no more rules can be kept.
  bool setRule(const std::string& path, bool included);
  void removeRule(const std::string& path);
  void setType(const std::string& type, std::uint32_t toggle);
  /// The ignore list, as text.
  std::string ignored() const;
  void setIgnored(const std::string& text);
  /// Whether a mark is to be looked for.
  bool heeds(Mark mark) const;
  /// Records a mark that was found at a path. Returns whether it is new.
  bool setMark(const std::string& path, Mark mark);
  bool isMarked(const std::string& path, Mark mark) const;
  /// Removes the marks at a path and below it.
  void dropMarks(const std::string& path);

  /// Whether there are no rules, neither for paths nor for types.
  bool isEmpty() const;
  std::uint32_t type(const std::string& type) const;

  /// The paths where files that belong into the backup are to be looked for.
  std::vector<std::string> places() const;
  /// Paths with a rule that excludes them, at or below a path.
  std::vector<std::string> excludedAt(const std::string& path) const;
  /// Paths with a rule of their own below a path.
  std::vector<std::string> rulesBelow(const std::string& path) const;
  /// The barred paths. Everything below them is barred too.
  std::vector<std::string> policy() const;
  /// Bars the folder of the repository instead of an earlier one. An empty text means that the repository is
  /// in no local folder.
  void barRepository(const std::string& folder);
  const std::string& root() const { return root_; }

 private:
  bool isBarred(const std::string& path) const KELDANE_REQUIRES(mutex_);
  std::optional<Reason> bar(const std::string& path) const KELDANE_REQUIRES(mutex_);
  using Rules = std::map<std::string, bool, std::less<>>;
  Decision decideUnderLock(const std::string& path, bool isDirectory) const KELDANE_REQUIRES(mutex_);
  bool ignore(std::string_view path, bool isDirectory, Decision& decision) const KELDANE_REQUIRES(mutex_);
  bool selectsTypes() const KELDANE_REQUIRES(mutex_);
  Rules::const_iterator firstBelow(const std::string& path) const KELDANE_REQUIRES(mutex_);

  Store& store_;
  const std::string root_;
  const std::vector<std::string> policy_;
  const std::size_t mostRules_;
  mutable Mutex mutex_{{.name = "RuleBook.mutex"}};
  std::string repository_ KELDANE_GUARDED_BY(mutex_);
  Rules rules_ KELDANE_GUARDED_BY(mutex_);
  IgnoreList ignored_ KELDANE_GUARDED_BY(mutex_);
  std::map<std::string, Mark, std::less<>> marks_ KELDANE_GUARDED_BY(mutex_);
  std::map<std::string, std::uint32_t> types_ KELDANE_GUARDED_BY(mutex_);
};

/// An absolute path without "." and "..", resolved as text and not through links; absent for anything else
/// that a client may send, such as a path longer than the system allows.
std::optional<std::string> normalizedPath(std::string_view path);

/// ".txt" for "/a/b.txt", "." for a name without an extension: the name under which a type's rule is kept.
std::string fileType(const std::string& path);

}  // namespace keldane
