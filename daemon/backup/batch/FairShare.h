// Divides the batches among the owners of the pending files.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace keldane {

/// The limits of a batch.
struct BatchBounds {
  std::size_t files = 0;
  std::uint64_t bytes = 0;
};

/// The sizes of the pending files by owner, each owner's in their order.
using WaitingSizes = std::map<uid_t, std::vector<std::uint64_t>>;

/// Remembers what each owner has had while files of theirs waited. Used on one thread.
class FairShare {
 public:
  /// The number of each owner's first files that go into the next batch. File by file, the owner who has had
  /// the least comes next, until the bounds are reached; there is at least one file. A file counts by its
  /// size and a fixed cost. So with two owners, one with a million files has half of each batch while the
  /// other has pending files, and the whole batch otherwise. A new owner begins level with the one who has
  /// had the least.
  std::map<uid_t, std::size_t> divide(const WaitingSizes& waiting, const BatchBounds& bounds);

 private:
  std::map<uid_t, std::uint64_t> had_;  // counted from the owner who has had the least
};

}  // namespace keldane
