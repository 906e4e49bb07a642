// A private folder for copies of stored files that a person looks at.
#pragma once

#include <mutex>
#include <string>

#include "platform/files/Descriptor.h"

namespace keldane {

/// Each copy lies in a folder of its own of mode 0700, can be read by its owner alone and not be executed,
/// and goes with this object, or, when the program did not come to that, with the next one that sweeps. Any
/// thread; each operation takes as long as the disk does.
class LookFolder {
 public:
  /// `base` is a folder for the copies of all programs of this user; nothing is made yet.
  explicit LookFolder(std::string base) : base_(std::move(base)) {}
  ~LookFolder() { clear(); }
  LookFolder(const LookFolder&) = delete;
  LookFolder& operator=(const LookFolder&) = delete;

  /// Removes what programs that have ended left.
  void sweep() const;
  /// A path at which nothing is, for a copy of that name. Throws std::runtime_error with a sentence.
  std::string placeFor(const std::string& name);
  /// Makes a copy that has come to its place read-only, whatever it was. False for what is no plain file.
  static bool seal(const std::string& path);
  /// Removes all copies of this object.
  void clear();

 private:
  const std::string base_;
  std::mutex mutex_;
  // Guarded by the mutex:
  std::string own_;
  Descriptor lock_;  // says to others that this program lives
};

}  // namespace keldane
