// The folder in which files are made whole before they take their places.
#pragma once

#include <cstdint>
#include <string>

#include "platform/files/Descriptor.h"

namespace keldane {

/// A folder `.keldane-restore-<job>-XXXXXX` of mode 0700. It is used only through its descriptor, because
/// somebody who can write to the folder above could put a link in its place. It stays until `remove`. One
/// thread.
class Staging {
 public:
  Staging() = default;
  /// A name that no folder has yet.
  static std::string nameFor(std::uint32_t job);
  /// Makes a staging in a folder. When that fails, the result is not open and errno has the reason.
  static Staging make(const std::string& parent, const std::string& name);
  /// Opens a staging that an earlier process left, if it belongs to this user.
  static Staging open(const std::string& path);

  explicit operator bool() const { return static_cast<bool>(folder_); }
  int folder() const { return folder_.get(); }
  /// A path for another process of this user to reach a folder in the staging, which is made. It leads to
  /// this staging even if another item has its name now.
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

/// A place within which files can be moved. Between two folders of one place no copy is needed, unless
/// something is mounted below them.
struct MountPlace {
  std::uint64_t device = 0;
  std::uint64_t mount = 0;
  auto operator<=>(const MountPlace&) const = default;
};
MountPlace mountPlace(const std::string& folder);

}  // namespace keldane
