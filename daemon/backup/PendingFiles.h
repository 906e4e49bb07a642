// The files that wait to be stored.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "daemon/ByteSum.h"

namespace keldane {

/// The pending files by path, with their sizes and, for those that a person prefers, their order. Any thread;
/// the mutex is a leaf.
class PendingFiles {
 public:
  struct Totals {
    std::uint64_t files = 0, bytes = 0;  ///< more bytes than a number holds are the largest number
  };

  /// Begins a look at the disk: what is added from here on has been seen by it.
  std::uint32_t beginScan();
  /// Takes out what lies at or below a place and was not added since that scan began.
  void endScan(const std::string& place, std::uint32_t scan);

  /// Notes a file that waits, or its new size. True when it was not waiting before.
  bool add(const std::string& path, std::uint64_t bytes);
  void remove(const std::string& path);

  bool contains(const std::string& path) const;
  bool containsBelow(const std::string& folder) const;
  Totals totals() const;

  /// Prefers a file, if that was not done before.
  void prefer(const std::string& path, std::int64_t order);
  void preferNext(const std::string& path);
  void endPreference(const std::string& path);
  bool isPreferred(const std::string& path) const;
  std::vector<std::string> preferred() const;
  bool hasPreferred() const;

  struct File {
    std::string path;
    std::uint64_t bytes = 0;
  };
  /// The preferred files that wait, in the order in which they were preferred.
  std::vector<File> waitingPreferred() const;
  /// Called with each file that waits, in one order every time; false ends it. The mutex is not held during
  /// the call.
  void visit(const std::function<bool(const File& file)>& visitor) const;

 private:
  struct Entry {
    std::uint64_t bytes = 0;
    std::uint32_t scan = 0;
  };

  mutable std::mutex mutex_;
  std::map<std::string, Entry, std::less<>> files_;
  ByteSum bytes_;
  std::uint32_t scan_ = 0;
  std::map<std::string, std::int64_t> preferences_;  // order by path
  std::int64_t lastOrder_ = 0;
};

}  // namespace keldane
