// One file or folder as the backup daemon sees it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/plist/PropertyList.h"

namespace keldane {

class KeldaneProxy;

/// The daemon's backup flags. The low four bits hold a priority.
namespace backup_flags {
inline constexpr std::uint32_t kPriorityMask = 0x0000000F;
inline constexpr std::uint32_t kBackup = 0x00000010;
inline constexpr std::uint32_t kBackedUp = 0x00000020;
inline constexpr std::uint32_t kExclude = 0x00000040;
inline constexpr std::uint32_t kInclude = 0x00000080;
inline constexpr std::uint32_t kExtra = 0x00000100;
inline constexpr std::uint32_t kSystem = 0x00000200;
inline constexpr std::uint32_t kNotActive = 0x00000400;
inline constexpr std::uint32_t kFolder = 0x00000800;
inline constexpr std::uint32_t kMissing = 0x00001000;
inline constexpr std::uint32_t kNoFolder = 0x00020000;  ///< also "folder exclude": one bit, two names
inline constexpr std::uint32_t kFolderInclude = 0x08000000;
inline constexpr std::uint32_t kExcludedVisible = 0x20000000;
}  // namespace backup_flags

/// The flags of the three check boxes that a user interface shows: for the item, its file type and its
/// priority.
namespace simple_flags {
inline constexpr std::uint32_t kChecked = 0x00000001;
inline constexpr std::uint32_t kEnabled = 0x00000002;
inline constexpr std::uint32_t kGrayed = 0x00000004;
inline constexpr std::uint32_t kTypeChecked = 0x00000100;
inline constexpr std::uint32_t kTypeEnabled = 0x00000200;
inline constexpr std::uint32_t kTypeVisible = 0x00000400;
inline constexpr std::uint32_t kPriorityChecked = 0x00010000;
inline constexpr std::uint32_t kPriorityEnabled = 0x00020000;
inline constexpr std::uint32_t kPriorityVisible = 0x00040000;
}  // namespace simple_flags

/// Status colours.
enum class BackupColor : std::int32_t { undefined, none, green, yellow, gray, blue };

/// A file or folder: names, flags, colour, dates, sizes, owner, and its children. A new node has every field
/// zero or absent.
///
/// Held by shared pointers. A parent owns its children; a child knows its parent without owning it, so a tree
/// lives as long as its root is held, and nothing leaks when it goes. Absent-able fields are property-list
/// values, taken from the daemon's dictionary as they stand: one of an unexpected kind prints as what it is
/// and reads as empty text. Not locked: a tree is used from one thread at a time.
class KeldaneFileNode : public std::enable_shared_from_this<KeldaneFileNode> {
 public:
  using Pointer = std::shared_ptr<KeldaneFileNode>;

  static Pointer create() { return std::make_shared<KeldaneFileNode>(); }
  /// From the local file system, without following a final symbolic link; never absent. No flags, colour,
  /// dates or state.
  static Pointer fileNodeForPath(const std::string& path);
  /// From the daemon's answer about the path; absent when there is none. The path given stands, whatever the
  /// answer says.
  static Pointer fileNodeForPath(const std::string& path, KeldaneProxy* fromProxy);
  /// With folder sizes when asked for.
  static Pointer fileNodeForPath(const std::string& path, bool withDirSizes, KeldaneProxy* fromProxy);
  /// Paths without an answer are left out, so the result can be shorter.
  static std::vector<Pointer> fileNodesForPaths(const std::vector<std::string>& paths,
                                                KeldaneProxy* fromProxy);
  /// Entries that are no dictionaries are left out.
  static std::vector<Pointer> fileNodesForDictionaries(const PropertyList& dictionaries);

  KeldaneFileNode() = default;
  virtual ~KeldaneFileNode();
  KeldaneFileNode(const KeldaneFileNode&) = delete;
  KeldaneFileNode& operator=(const KeldaneFileNode&) = delete;

  /// Overwrites the node with what the dictionary holds. An existing child list stays when the dictionary has
  /// no "children". `selected`, `parent` and `inPolicy` stay.
  void initWithDictionary(const PropertyList& dictionary);
  /// The node's own fields, without "children".
  PropertyList dictionary() const;
  /// The same with "children", all the way down, wherever a child list exists.
  PropertyList recursiveDictionary();

  Pointer parent() const { return parent_.lock(); }
  void setParent(const Pointer& parent) { parent_ = parent; }
  const PropertyList& fileName() const { return fileName_; }
  void setFileName(PropertyList fileName) { fileName_ = std::move(fileName); }
  /// The name to show: the file name when there is no other.
  const PropertyList& displayName() const { return displayName_ ? displayName_ : fileName_; }
  void setDisplayName(PropertyList displayName) { displayName_ = std::move(displayName); }
  bool isDirectory() const { return isDirectory_; }
  void setIsDirectory(bool isDirectory) { isDirectory_ = isDirectory; }
  std::int32_t selected() const { return selected_; }
  std::uint32_t backupFlags() const { return backupFlags_; }
  void setBackupFlags(std::uint32_t flags) { backupFlags_ = flags; }
  std::uint32_t simpleFlags() const { return simpleFlags_; }
  void setSimpleFlags(std::uint32_t flags) { simpleFlags_ = flags; }
  std::int32_t backupColor() const { return backupColor_; }
  void setBackupColor(std::int32_t color) { backupColor_ = color; }
  const PropertyList& backupDate() const { return backupDate_; }
  void setBackupDate(PropertyList date) { backupDate_ = std::move(date); }
  const PropertyList& version() const { return version_; }
  void setVersion(PropertyList version) { version_ = std::move(version); }
  const PropertyList& purgeDate() const { return purgeDate_; }
  std::uint32_t totalCount() const { return totalCount_; }
  void setTotalCount(std::uint32_t count) { totalCount_ = count; }
  const PropertyList& state() const { return state_; }
  void setState(PropertyList state) { state_ = std::move(state); }
  std::uint32_t uid() const { return uid_; }
  void setUid(std::uint32_t uid) { uid_ = uid; }
  std::uint32_t gid() const { return gid_; }
  void setGid(std::uint32_t gid) { gid_ = gid; }
  bool inPolicy() const { return inPolicy_; }
  void setInPolicy(bool inPolicy) { inPolicy_ = inPolicy; }
  PropertyList inPolicyValue() const { return PropertyList::boolean(inPolicy_); }

  /// Bytes of this item and of all below it that is loaded; `size` is the same as a number object.
  std::uint64_t sizeValue() const;
  PropertyList size() const { return PropertyList::unsignedInteger(sizeValue()); }
  void setSize(const PropertyList& size) { size_ = size.unsignedLongLongValue(); }
  void setSizeValue(std::uint64_t size) { size_ = size; }

  /// The stored path, or the parent's with the file name appended, which is then kept. Absent for a root
  /// without one.
  std::optional<std::string> path();
  /// Throws AssertionFailure on a node that has a parent.
  void setPath(const std::string& path);

  /// The child list; null until the first child. A subclass may load it first.
  virtual const std::vector<Pointer>* children() { return children_ ? &*children_ : nullptr; }
  /// Appends a child; null is ignored.
  virtual void addChild(const Pointer& child);
  std::uint32_t count();
  Pointer root();
  /// The first child of that name, exactly.
  Pointer childWithName(std::string_view name);
  /// Drops the subtree.
  virtual void flush() { children_.reset(); }

  std::uint32_t backupPriority() const { return backupFlags_ & backup_flags::kPriorityMask; }
  bool isBackup() const { return (backupFlags_ & backup_flags::kBackup) != 0; }
  bool isExcluded() const { return (backupFlags_ & backup_flags::kExclude) != 0; }
  bool isNotActive() const { return (backupFlags_ & backup_flags::kNotActive) != 0; }
  /// The daemon's word, which may differ from `isDirectory`.
  bool isFolder() const { return (backupFlags_ & backup_flags::kFolder) != 0; }
  bool isMissing() const { return (backupFlags_ & backup_flags::kMissing) != 0; }
  /// Whether a child is named "Contents".
  bool isBundle();
  /// Whether a restore browser lists the node. What exists here and cannot be read is hidden, even when it is
  /// backed up.
  bool showInRestoreBrowser();

  std::string backupFlagsString() const;
  std::string simpleFlagsString() const;
  /// Absent for a colour without a name.
  PropertyList backupColorString() const;
  std::string backupDateString() const;
  /// The account's name, or the number as text when there is none.
  std::string uidString() const;
  std::string gidString() const;
  std::string description() const;

 private:
  void cleanup();
  Pointer newOfSameClass() const;

  std::weak_ptr<KeldaneFileNode> parent_;
  PropertyList fileName_, displayName_;
  bool isDirectory_ = false;
  std::optional<std::vector<Pointer>> children_;
  std::int32_t selected_ = 0;  // 1 selected, 0 not, -1 partly
  std::uint32_t backupFlags_ = 0;
  std::uint32_t simpleFlags_ = 0;
  std::int32_t backupColor_ = 0;
  PropertyList backupDate_, version_, purgeDate_;
  std::uint32_t totalCount_ = 0;  // files in or under this item, as the daemon counts
  std::uint64_t size_ = 0;        // bytes of this item alone
  std::shared_ptr<const void> image_;
  PropertyList state_;
  std::optional<std::string> path_;
  std::uint32_t uid_ = 0, gid_ = 0;
  bool inPolicy_ = false;
};

}  // namespace keldane
