// The pending files of one folder, in little memory.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/ByteSum.h"

namespace keldane {

struct WaitingName {
  std::string_view name;
  std::uint64_t bytes = 0;
  uid_t owner = 0;
};

/// Names with sizes and owners, in the order of the names' bytes. Each keeps the number of the scan during
/// which it was added or removed, so that a scan that began earlier does not undo that. A file takes 25 bytes
/// and its name. Used by one thread at a time.
class WaitingNames {
 public:
  /// Returns whether it was not pending before.
  bool add(const WaitingName& file, std::uint32_t scan);
  void remove(std::string_view name, std::uint32_t scan);
  /// Removes the name unless it was added after the scan `since` had begun. Returns false when it stays.
  bool removeIfOlder(std::string_view name, std::uint32_t since, std::uint32_t scan);
  /// The name in the answer is that of the argument and lives as long.
  std::optional<WaitingName> find(std::string_view name) const;
  /// Replaces all names by `files`, which are in the order of their names. Names that were added or removed
  /// after `scan` had begun stay as they are. Returns whether a file is now pending that was not.
  bool replace(const std::vector<WaitingName>& files, std::uint32_t scan);
  /// Removes all names but those that were added after `scan` had begun.
  void removeOlder(std::uint32_t scan);

  /// Calls `visit(const WaitingName&)` until it returns false.
  template <class Visit>
  bool visit(const Visit& visit) const;
  std::size_t files() const { return entries_.size() - gone_; }
  const ByteSum& bytes() const { return bytes_; }
  /// The scan whose files were taken last.
  std::uint32_t scan() const { return scan_; }

 private:
  static constexpr std::uint64_t kGone = std::numeric_limits<std::uint64_t>::max();
  struct Entry {
    std::uint64_t bytes = 0;   // kGone: it was removed
    std::uint32_t offset = 0;  // in names_
    std::uint32_t scan = 0;
    uid_t owner = 0;
  };
  std::string_view nameOf(const Entry& entry) const { return names_.c_str() + entry.offset; }
  std::vector<Entry>::const_iterator lowerBound(std::string_view name) const;
  WaitingName fileOf(const Entry& entry) const { return {nameOf(entry), entry.bytes, entry.owner}; }
  void append(const WaitingName& file, std::uint32_t scan);
  void compact();

  std::vector<Entry> entries_;  // by name
  std::string names_;           // each with a zero byte after it
  std::size_t gone_ = 0;
  ByteSum bytes_;
  std::uint32_t scan_ = 0;
};

template <class Visit>
bool WaitingNames::visit(const Visit& visit) const {
  for (const Entry& entry : entries_) {
    if (entry.bytes != kGone && !visit(fileOf(entry))) {
      return false;
    }
  }
  return true;
}

}  // namespace keldane
