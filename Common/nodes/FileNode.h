// One file or folder as the backup daemon sees it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Common/nodes/SortDescriptor.h"
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
/// A `Pointer` keeps its node and all nodes above it alive, and a child list keeps the nodes below. So a tree
/// lives as long as there is a Pointer to any of its nodes, and is freed as a whole with the last one.
/// Nothing has to be called, and no cycle can remain. Iterating over a child list gives references. They are
/// valid while the tree is held and the list is not changed; `pointer` makes a Pointer of one. A node may
/// stand in the child list of a node that is not its parent, because that is a copy or because the node was
/// moved. When only such a list holds it, it does not hold its parent, and has none once the parent is gone.
/// Whatever would make a node its own ancestor or descendant is refused.
///
/// Fields that may be absent are property-list values and are taken from the daemon's dictionary unchanged. A
/// value of an unexpected kind is printed by its own kind and reads as empty text. No operation uses the
/// stack in proportion to the depth of the tree. A tree is not locked: one thread at a time uses it.
class KeldaneFileNode : public std::enable_shared_from_this<KeldaneFileNode> {
 protected:
  /// Only `create` and the functions like it can make a Key, and so a node.
  struct Key {
    explicit Key() = default;
  };

 public:
  using Pointer = std::shared_ptr<KeldaneFileNode>;
  class ChildList;

  static Pointer create() { return make<KeldaneFileNode>()->pointer(); }
  static Pointer create(PropertyList fileName, bool directory);
  /// A node made from the local file system; a final symbolic link is not followed. The result is never null.
  /// It has no flags, colour, dates or state.
  static Pointer fileNodeForPath(const std::string& path);
  /// A node made from the daemon's answer about the path; null when there is no answer. Its path is the given
  /// one, whatever path the answer holds.
  static Pointer fileNodeForPath(const std::string& path, KeldaneProxy* fromProxy);
  /// The same. `withDirSizes` says whether the daemon adds up the sizes of folders.
  static Pointer fileNodeForPath(const std::string& path, bool withDirSizes, KeldaneProxy* fromProxy);
  /// One node for each path. Paths without an answer are left out, so the result can be shorter.
  static std::vector<Pointer> fileNodesForPaths(const std::vector<std::string>& paths,
                                                KeldaneProxy* fromProxy);
  /// One node for each dictionary. Entries that are no dictionaries are left out.
  static std::vector<Pointer> fileNodesForDictionaries(const PropertyList& dictionaries);

  explicit KeldaneFileNode(Key) {}
  virtual ~KeldaneFileNode();
  KeldaneFileNode(const KeldaneFileNode&) = delete;
  KeldaneFileNode& operator=(const KeldaneFileNode&) = delete;

  /// A Pointer that keeps this node and all nodes above it alive.
  Pointer pointer();
  /// Overwrites the node with the values of the dictionary. An existing child list stays when the dictionary
  /// has no "children". `selected`, `parent` and `inPolicy` stay.
  void initWithDictionary(const PropertyList& dictionary);
  /// The node's own fields, without "children".
  PropertyList dictionary() const;
  /// The same with "children" for every node below that has a child list.
  PropertyList recursiveDictionary();
  /// A node of the same class beside this one: the same parent, names, dates, state, sizes and selection, and
  /// a child list of its own with the same children in it, which cannot be changed unless it is empty. A copy
  /// has no flags, no colour and no stored path; that is on purpose.
  Pointer copy();

  Pointer parent() const;
  /// Throws InvalidArgument for the node itself and for a node below it.
  void setParent(const Pointer& parent);
  const PropertyList& fileName() const { return fileName_; }
  void setFileName(PropertyList fileName) { fileName_ = std::move(fileName); }
  /// The name to show: the file name when there is no other.
  const PropertyList& displayName() const { return displayName_ ? displayName_ : fileName_; }
  void setDisplayName(PropertyList displayName) { displayName_ = std::move(displayName); }
  bool isDirectory() const { return isDirectory_; }
  void setIsDirectory(bool isDirectory) { isDirectory_ = isDirectory; }
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
  void setPurgeDate(PropertyList date) { purgeDate_ = std::move(date); }
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
  /// An icon in the form that the user interface uses. Copies of the node share it.
  const std::shared_ptr<const void>& image() const { return image_; }
  void setImage(std::shared_ptr<const void> image) { image_ = std::move(image); }

  /// The size in bytes of this item and of all loaded nodes below it. `size` is the same as a number object.
  std::uint64_t sizeValue();
  PropertyList size() { return PropertyList::unsignedInteger(sizeValue()); }
  void setSize(const PropertyList& size) { size_ = size.unsignedLongLongValue(); }
  void setSizeValue(std::uint64_t size) { size_ = size; }

  /// The stored path, or the parent's path with the file name appended, which is then stored. Absent for a
  /// root without a path.
  std::optional<std::string> path();
  /// Throws AssertionFailure on a node that has a parent.
  void setPath(const std::string& path);
  /// Whether both nodes have a path and it is the same. Nothing else is compared.
  bool isEqual(KeldaneFileNode* other);

  /// The child list; null until the first child. A subclass may load it first.
  virtual const ChildList* children() { return children_.get(); }
  /// Appends a child and becomes its parent; null is ignored. The child stays in a former parent's list.
  /// Throws InvalidArgument on a copy that has children, for the node itself and for a node above it.
  void addChild(const Pointer& child);
  /// Removes the child itself and every child that is equal to it; they keep their parent. Throws
  /// InvalidArgument for a copy that has children.
  void removeChild(const Pointer& child);
  std::uint32_t count();
  Pointer root();
  /// The first child with exactly this name; null when there is none.
  Pointer childWithName(std::string_view name);
  /// The node at a path below this one. The first component of the path stands for this node, whatever its
  /// name is.
  Pointer nodeAtPath(std::string_view path);
  /// Removes the node at the path from its parent, if there is such a node.
  void removeNodeAtPath(std::string_view path);
  /// Sorts the child list and the lists of all nodes below. Without a child list it does nothing. Throws
  /// InvalidArgument for an unknown key, and on a copy that has children.
  void sortUsingDescriptors(const std::vector<SortDescriptor>& descriptors);
  /// The result of the accessor with that name: a text, number, boolean or date. Throws InvalidArgument for
  /// any other name, such as that of the parent, the children and the image.
  PropertyList valueForKey(std::string_view key);
  /// Whether any child is a folder, and whether any is not.
  void hasChildDirectories(bool& directories, bool& andFiles);
  /// Removes all children.
  virtual void flush();

  /// 1 selected, 0 not, -1 partly: some child is selected or partly selected, but not every one fully.
  std::int32_t selected() const { return selected_; }
  /// Selects or deselects the node and all nodes below, and derives the selection of the nodes above. A node
  /// that is no folder and was never backed up cannot be selected.
  void setSelected(std::int32_t selected);
  /// The selected files below, and the deepest of the selected folders.
  std::vector<Pointer> deepestFullSelections();
  /// The topmost nodes below that are fully selected. With `expand`, a folder among them is replaced by its
  /// contents.
  std::vector<Pointer> selectedChildren(bool expand);

  std::uint32_t backupPriority() const { return backupFlags_ & backup_flags::kPriorityMask; }
  bool isBackup() const { return (backupFlags_ & backup_flags::kBackup) != 0; }
  bool isExcluded() const { return (backupFlags_ & backup_flags::kExclude) != 0; }
  bool isNotActive() const { return (backupFlags_ & backup_flags::kNotActive) != 0; }
  /// The daemon's flag, which may differ from `isDirectory`.
  bool isFolder() const { return (backupFlags_ & backup_flags::kFolder) != 0; }
  bool isMissing() const { return (backupFlags_ & backup_flags::kMissing) != 0; }
  /// Whether a child is named "Contents".
  bool isBundle();
  /// Whether a restore browser lists the node. An item that exists here and cannot be read is hidden, even
  /// when it is backed up.
  bool showInRestoreBrowser();

  std::string backupFlagsString() const;
  std::string simpleFlagsString() const;
  /// Absent for a colour without a name.
  PropertyList backupColorString() const;
  std::string backupDateString() const;
  /// The name of the account or group, or the number as text when there is none.
  std::string uidString() const;
  std::string gidString() const;
  std::string description() const;

 protected:
  /// A pointer as in a child list. It holds the node, but not the nodes above.
  using Link = std::shared_ptr<KeldaneFileNode>;
  template <class Node>
  static std::shared_ptr<Node> make() {
    return std::make_shared<Node>(Key());
  }
  virtual Link newOfSameClass() const { return make<KeldaneFileNode>(); }
  virtual const char* className() const { return "KeldaneFileNode"; }
  /// The work of `addChild` after its checks.
  virtual void attach(const Link& child);
  /// Replaces the child list by a new, empty one.
  void renewChildren();

 private:
  friend class KeldaneFileNodePrivateMethods;  // tests
  struct Hold;
  using std::enable_shared_from_this<KeldaneFileNode>::shared_from_this;  // gives links

  PropertyList readFields(PropertyList dictionary);
  [[noreturn]] static void failForPathOfChild();
  static void takeApart(std::unique_ptr<ChildList> list);
  void setParentLink(const Link& parent);
  Link parentLink() const { return parent_.lock(); }
  ChildList* mutableChildren() { return children_.get(); }
  ChildList& changeableChildren(const char* operation);
  Link originalOfChildren() const;
  bool isAbove(const KeldaneFileNode& other) const;
  bool isBelow(const KeldaneFileNode& other) const;
  void checkSelections();
  void select();
  void deselect();
  void cleanup();
  void flushChildren();

  std::weak_ptr<KeldaneFileNode> parent_;
  std::weak_ptr<Hold> hold_;  // alive while a Pointer to this node, or to one below it, is held
  std::unique_ptr<ChildList> children_;
  PropertyList fileName_, displayName_;
  PropertyList backupDate_, version_, purgeDate_;
  PropertyList state_;
  PropertyList path_;
  std::shared_ptr<const void> image_;
  std::uint64_t size_ = 0;  // bytes of this item without the nodes below
  std::int32_t selected_ = 0;
  std::uint32_t backupFlags_ = 0;
  std::uint32_t simpleFlags_ = 0;
  std::int32_t backupColor_ = 0;
  std::uint32_t totalCount_ = 0;  // files in or under this item, as the daemon counts
  std::uint32_t uid_ = 0, gid_ = 0;
  bool isDirectory_ = false;
  bool inPolicy_ = false;
  bool wasAbove_ = false;  // it has been a node's parent, or its children were copied
};

/// The children of a node, in insertion or sort order.
class KeldaneFileNode::ChildList {
 public:
  class Iterator {
   public:
    using Links = std::vector<Link>::const_iterator;
    using iterator_category = std::input_iterator_tag;
    using value_type = KeldaneFileNode;
    using difference_type = std::ptrdiff_t;
    using pointer = KeldaneFileNode*;
    using reference = KeldaneFileNode&;
    explicit Iterator(Links at) : at_(at) {}
    KeldaneFileNode& operator*() const { return **at_; }
    Iterator& operator++() {
      ++at_;
      return *this;
    }
    bool operator==(const Iterator&) const = default;

   private:
    Links at_;
  };

  bool empty() const { return nodes_.empty(); }
  std::size_t size() const { return nodes_.size(); }
  /// `index` is less than `size`.
  KeldaneFileNode& operator[](std::size_t index) const { return *nodes_[index]; }
  Iterator begin() const { return Iterator(nodes_.begin()); }
  Iterator end() const { return Iterator(nodes_.end()); }

 private:
  friend class KeldaneFileNode;
  std::vector<Link> nodes_;
  std::weak_ptr<KeldaneFileNode> original_;  // in a copy's list, the node whose children these are
  bool changeable_ = true;
  std::unique_ptr<ChildList> next_;  // the next list while a tree is taken apart
};

}  // namespace keldane
