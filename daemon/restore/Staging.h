// The folder in which files are made whole before they take their places.
#pragma once

#include <cstdint>
#include <string>

#include "platform/files/Descriptor.h"

namespace keldane {

/// A folder `.keldane-restore-<job>-XXXXXX` of mode 0700. It is used by its descriptor alone: who can write
/// to the folder above it could put a link in its place. It stays until `remove`. One thread.
class Staging {
 public:
  Staging() = default;
  /// A name that no folder has yet.
  static std::string nameFor(std::uint32_t job);
  /// Makes it in a folder. Not open when that fails, with the reason in errno.
  static Staging make(const std::string& parent, const std::string& name);
  /// Opens one that an earlier process left, if it is this user's own.
  static Staging open(const std::string& path);

  explicit operator bool() const { return static_cast<bool>(folder_); }
  int folder() const { return folder_.get(); }
  /// A path for another process of this user to reach a folder in the staging, which is made. It leads to the
  /// staging itself, whatever is at its name.
  std::string makePart(const std::string& part) const;
  void remove();

 private:
  Staging(const std::string& parent, std::string name);

  Descriptor parent_;
  Descriptor folder_;
  std::string name_;
};

/// The deepest folder that exists on the way to a path, links not followed: "/" at worst.
std::string deepestFolder(const std::string& path);

/// Where files can be moved within: two folders of one place never need a copy, unless something is mounted
/// below them.
struct MountPlace {
  std::uint64_t device = 0;
  std::uint64_t mount = 0;
  auto operator<=>(const MountPlace&) const = default;
};
MountPlace mountPlace(const std::string& folder);

}  // namespace keldane
