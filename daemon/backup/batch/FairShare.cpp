#include "daemon/backup/batch/FairShare.h"

#include <algorithm>
#include <limits>
#include <queue>

#include "daemon/ByteSum.h"

namespace keldane {

namespace {

// The cost of a file in addition to its bytes. The ratio is that of the first batch's bounds, 20 GiB and
// 150,000 files.
constexpr std::uint64_t kFileCost = 128 << 10;

struct Turn {
  std::uint64_t had = 0;
  uid_t owner = 0;
  // The queue returns the greatest element, which must be the owner who has had the least.
  bool operator<(const Turn& other) const { return had != other.had ? had > other.had : owner > other.owner; }
};

}  // namespace

std::map<uid_t, std::size_t> FairShare::divide(const WaitingSizes& waiting, const BatchBounds& bounds) {
  std::erase_if(had_, [&](const auto& entry) { return !waiting.contains(entry.first); });
  std::uint64_t least = had_.empty() ? 0 : std::numeric_limits<std::uint64_t>::max();
  for (const auto& [owner, had] : had_) {
    least = std::min(least, had);
  }
  std::priority_queue<Turn> turns;
  for (const auto& [owner, sizes] : waiting) {
    std::uint64_t& had = had_.try_emplace(owner, least).first->second;
    had -= least;
    if (!sizes.empty()) {
      turns.push({had, owner});
    }
  }
  std::map<uid_t, std::size_t> shares;
  std::size_t files = 0;
  std::uint64_t bytes = 0;
  while (!turns.empty()) {
    const Turn turn = turns.top();
    turns.pop();
    const std::vector<std::uint64_t>& sizes = waiting.at(turn.owner);
    const std::uint64_t size = sizes[shares[turn.owner]];
    if (files > 0 && (files >= bounds.files || saturatedSum(bytes, size) > bounds.bytes)) {
      break;
    }
    ++files;
    bytes = saturatedSum(bytes, size);
    std::uint64_t& had = had_[turn.owner];
    had = saturatedSum(had, saturatedSum(size, kFileCost));
    if (++shares[turn.owner] < sizes.size()) {
      turns.push({had, turn.owner});
    }
  }
  std::erase_if(shares, [](const auto& share) { return share.second == 0; });
  return shares;
}

}  // namespace keldane
