// A private folder for copies of stored files that a person looks at.
#pragma once

#include <string>

#include "platform/files/Descriptor.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// Each copy lies in a folder of its own of mode 0700, can be read by its owner alone and cannot be executed.
/// It is removed with this object, or, if the program ended without that, by the next program that sweeps.
/// Used from any thread; each operation takes as long as the disk does.
class LookFolder {
 public:
  /// `base` is a folder for the copies of all programs of this user; the constructor creates nothing.
  explicit LookFolder(std::string base) : base_(std::move(base)) {}
  ~LookFolder() { clear(); }
  LookFolder(const LookFolder&) = delete;
  LookFolder& operator=(const LookFolder&) = delete;

  /// Removes copies left by programs that have ended.
  void sweep() const;
  /// A free path for a copy of that name. Throws std::runtime_error with a sentence.
  std::string placeFor(const std::string& name);
  /// Makes a finished copy read-only, whatever its mode was. Returns false for anything but a regular file.
  static bool seal(const std::string& path);
  /// Removes all copies of this object.
  void clear();

 private:
  const std::string base_;
  Mutex mutex_;
  std::string own_ KELDANE_GUARDED_BY(mutex_);
  Descriptor lock_ KELDANE_GUARDED_BY(mutex_);  // shows other programs that this one lives
};

}  // namespace keldane
