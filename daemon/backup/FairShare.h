// Divides the batches among the owners of the files that wait.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace keldane {

/// What a batch may hold.
struct BatchBounds {
  std::size_t files = 0;
  std::uint64_t bytes = 0;
};

/// The sizes of the files that wait, by owner, each owner's in their order.
using WaitingSizes = std::map<uid_t, std::vector<std::uint64_t>>;

/// Remembers what each owner has had while files of theirs waited. One thread.
class FairShare {
 public:
  /// How many of each owner's first files go into the next batch. The owner who has had the least comes next,
  /// file by file, until the bounds are reached; at least one file goes. A file counts by its size, and a
  /// small one by what it costs to look at it. So whoever has a million files has half of each batch while
  /// somebody else has files waiting, and all of it otherwise. Who comes anew is level with whoever has had
  /// the least.
  std::map<uid_t, std::size_t> divide(const WaitingSizes& waiting, const BatchBounds& bounds);

 private:
  std::map<uid_t, std::uint64_t> had_;  // more than the least that an owner has had
};

}  // namespace keldane
